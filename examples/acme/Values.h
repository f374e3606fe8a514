// The value types of the example schema. What one can do in Python is what it can do here: it
// compares if it has ==, adds if it has +. No lock of their own.
#pragma once

#include <compare>

#include <acme/Types.h>

namespace Acme {

// A number with all operators. Division by zero throws Kel::RangeException.
class KEL_API Size {
 public:
   explicit Size( U32 value = 0 ) : value_( value ) {}

   U32 value() const { return value_; }
   void valueIs( U32 value ) { value_ = value; }

   explicit operator bool() const { return value_; }
   std::uint64_t hash() const { return value_; }

   friend auto operator<=>( Size const&, Size const& ) = default;
   friend Size operator+( Size a, Size b ) { return Size( a.value_ + b.value_ ); }
   friend Size operator-( Size a, Size b ) { return Size( a.value_ - b.value_ ); }
   friend Size operator*( Size a, Size b ) { return Size( a.value_ * b.value_ ); }
   friend Size operator/( Size a, Size b ) { return Size( a.value_ / b.divisor() ); }
   friend Size operator%( Size a, Size b ) { return Size( a.value_ % b.divisor() ); }
   friend Size operator&( Size a, Size b ) { return Size( a.value_ & b.value_ ); }
   friend Size operator|( Size a, Size b ) { return Size( a.value_ | b.value_ ); }
   friend Size operator^( Size a, Size b ) { return Size( a.value_ ^ b.value_ ); }
   friend Size operator~( Size a ) { return Size( ~a.value_ ); }

 private:
   U32 divisor() const;

   U32 value_;
};

// A text that is not mixed up with other texts.
class KEL_API Name : public String {
 public:
   explicit Name( String value = String() ) : String( std::move( value ) ) {}

   String const& value() const { return *this; }
   String const& strRep() const { return *this; }
   std::uint64_t hash() const { return std::hash< String >()( *this ); }

   // Names are compared but not joined.
   friend String operator+( Name const&, Name const& ) = delete;
};

struct KEL_API Point {
   S32 x = 0;
   S32 y = 0;

   std::uint64_t hash() const;

   friend auto operator<=>( Point const&, Point const& ) = default;
   friend Point operator+( Point a, Point b ) { return { sum( a.x, b.x ), sum( a.y, b.y ) }; }
   friend Point operator-( Point a, Point b ) {
      return { difference( a.x, b.x ), difference( a.y, b.y ) };
   }

 private:
   // Both wrap around.
   static S32 sum( S32 a, S32 b ) { return static_cast< S32 >( U32( a ) + U32( b ) ); }
   static S32 difference( S32 a, S32 b ) { return static_cast< S32 >( U32( a ) - U32( b ) ); }
};

} // namespace Acme
