// Value types of every shape: derived, without operators, with default attributes right and wrong,
// unions, bit sets, values that hold pointers or collections. Activity lock where they hold
// pointers.
#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include <odd/Node.h>

namespace Odd {

struct Point3;
class Segment;
struct Boxed;
struct PyText;
struct Both;
struct TwoDomain;
struct OneDomain;
struct BadStatic;
struct BadKind;
struct BadColl;
struct BadFunc;
struct MoreBoxed;
struct MaybeBoxed;
class Thrower;
struct BadName;
struct BadRepr;
class Shape;
struct ColorSet;
struct Holder;
struct Nest;
class Sealed;
struct QuietHolder;
struct Tags;
struct Payload;
struct Empty;
struct Renamed;
class Values;

KEL_TYPES( _Odd_Values_kelModule, Point3, Segment, Boxed, PyText, Both, TwoDomain, OneDomain,
   BadStatic, BadKind, BadColl, BadFunc, MoreBoxed, MaybeBoxed, Thrower, BadName, BadRepr, Shape,
   ColorSet, Holder, Nest, Sealed, QuietHolder, Tags, Payload, Empty, Renamed, Values );

struct Point3 : Acme::Point {
   S32 z = 0;

   std::uint64_t hash() const { return Point::hash() * 31 + U32( z ); }

   friend auto operator<=>( Point3 const&, Point3 const& ) = default;
   friend Point3 operator+( Point3 const& a, Point3 const& b ) {
      return { Point( a ) + Point( b ), static_cast< S32 >( U32( a.z ) + U32( b.z ) ) };
   }
   friend Point3 operator-( Point3 const& a, Point3 const& b ) {
      return { Point( a ) - Point( b ), static_cast< S32 >( U32( a.z ) - U32( b.z ) ) };
   }
};

// Without any operator.
class Segment {
 public:
   Segment() = default;
   Segment( Acme::Point start, Acme::Point end ) : start_( start ), end_( end ) {}

   Acme::Point start() const { return start_; }
   Acme::Point end() const { return end_; }

   String label;

 private:
   Acme::Point start_;
   Acme::Point end_;
};

struct Boxed {
   static String defaultAttribute() { return "inner"; }
   bool operator==( Boxed const& ) const = default;

   Acme::Size inner;
};

struct PyText {
   static String defaultReprAttribute() { return "source"; }
   bool operator==( PyText const& ) const = default;
   std::uint64_t hash() const { return std::hash< String >()( source ); }

   String source;
};

struct Both {
   static String defaultAttribute() { return "a"; }
   static String defaultReprAttribute() { return "b"; }
   bool operator==( Both const& ) const = default;

   U32 a = 0;
   String b;
};

struct TwoDomain {
   bool operator==( TwoDomain const& ) const = default;

   U32 value = 0;
   U32 other = 0;
};

struct OneDomain {
   bool operator==( OneDomain const& ) const = default;

   U32 value = 0;
   U32 other = 0;
};

struct BadStatic {
   bool operator==( BadStatic const& ) const = default;

   U32 value = 0;
   String defaultAttribute;
};

struct BadKind {
   static U32 defaultAttribute() { return 0; }
   bool operator==( BadKind const& ) const = default;

   U32 value = 0;
};

struct BadColl {
   static Kel::Map< U32, String >& defaultAttribute();
   bool operator==( BadColl const& ) const = default;

   U32 value = 0;
};

struct BadFunc {
   static String defaultAttribute() { return "value"; }
   bool operator==( BadFunc const& ) const = default;

   U32 value = 0;
};

struct MoreBoxed : Boxed {
   bool operator==( MoreBoxed const& ) const = default;

   String label;
};

struct MaybeBoxed {
   static String defaultAttribute() { return "inner"; }
   bool operator==( MaybeBoxed const& ) const = default;

   std::optional< Acme::Size > inner;
};

class Thrower {
 public:
   static String defaultAttribute() { return "value"; }
   bool operator==( Thrower const& ) const = default;

   // Throws Kel::InternalException.
   U32 value() const;
   void valueIs( U32 value ) { value_ = value; }

 private:
   U32 value_ = 0;
};

struct BadName {
   static String defaultAttribute() { return "nothing"; }
   bool operator==( BadName const& ) const = default;

   U32 value = 0;
};

struct BadRepr {
   static String defaultReprAttribute() { return "number"; }
   bool operator==( BadRepr const& ) const = default;

   U32 number = 0;
};

// Its one constructor argument is not its default attribute, and not just stored; its second
// declaration is not to be looked at.
struct Renamed {
   Renamed() = default;
   explicit Renamed( U32 number ) : value( number + 100 ) {}

   static String defaultAttribute() { return "value"; }
   static String defaultReprAttribute() { return "nothing"; }
   bool operator==( Renamed const& ) const = default;

   U32 value = 0;
};

// The alternative that was set last lives; the other one reads as zero.
class Shape {
 public:
   U32 circle() const { return isCircle() ? std::get< U32 >( alternative_ ) : 0; }
   Acme::Point square() const {
      return isSquare() ? std::get< Acme::Point >( alternative_ ) : Acme::Point();
   }
   void circleIs( U32 circle ) { alternative_ = circle; }
   void squareIs( Acme::Point square ) { alternative_ = square; }
   bool isCircle() const { return std::holds_alternative< U32 >( alternative_ ); }
   bool isSquare() const { return !isCircle(); }

   bool operator==( Shape const& ) const = default;

 private:
   std::variant< U32, Acme::Point > alternative_;
};

struct ColorSet {
   bool red = false;
   bool blue = false;

   bool operator==( ColorSet const& ) const = default;
   friend ColorSet operator&( ColorSet a, ColorSet b ) {
      return { a.red && b.red, a.blue && b.blue };
   }
   friend ColorSet operator|( ColorSet a, ColorSet b ) {
      return { a.red || b.red, a.blue || b.blue };
   }
   friend ColorSet operator^( ColorSet a, ColorSet b ) {
      return { a.red != b.red, a.blue != b.blue };
   }
   friend ColorSet operator~( ColorSet a ) { return { !a.red, !a.blue }; }
};

struct Holder {
   bool operator==( Holder const& ) const = default;

   Ptr< Node > node;
};

struct Nest {
   bool operator==( Nest const& ) const = default;

   Holder holder;
};

class Sealed {
 public:
   U32 n() const { return n_; }

   bool operator==( Sealed const& ) const = default;

 private:
   U32 n_ = 0;

 public:
   U32 m = 0;
};

struct QuietHolder {
   bool operator==( QuietHolder const& ) const = default;

   Ptr< Node > node;
   U32 n = 0;
};

struct Tags {
   using Entries = Kel::Map< String, U32 >;

   static Entries& common();
   bool operator==( Tags const& ) const = default;

   Entries entry;
   Kel::Vector< S32 > list;
};

// With gNMI forms that keep NUL bytes.
struct Payload {
   std::string gnmiStrRep() const { return text.stdString(); }
   std::vector< unsigned char > gnmiByterep() const {
      return { data.bytesPtr(), data.bytesPtr() + data.length() };
   }
   String rawJson() const { return raw; }
   bool operator==( Payload const& ) const = default;

   Kel::Bytes data;
   U64 n = 0;
   String text;
   String raw;
};

struct Empty {
   bool operator==( Empty const& ) const = default;
};

// One attribute of each value type.
class KEL_API Values : public Kel::PtrInterface {
 public:
   KEL_OBJECT( Values )

   String pointJson() const;

   Point3 point3;
   Segment segment;
   Boxed boxed;
   MoreBoxed moreBoxed;
   MaybeBoxed maybeBoxed;
   Thrower thrower;
   PyText pyText;
   Both both;
   TwoDomain twoDomain;
   OneDomain oneDomain;
   BadStatic badStatic;
   BadKind badKind;
   BadColl badColl;
   BadFunc badFunc;
   BadName badName;
   BadRepr badRepr;
   Shape shape;
   ColorSet colorSet;
   Holder holder;
   Nest nest;
   Sealed sealed;
   QuietHolder quietHolder;
   Tags tags;
   Payload payload;
   Empty empty;
   Acme::Size size;
   Acme::Name name;
   Acme::Point point;
   Acme::Point json;
};

} // namespace Odd
