// Functions with every kind of argument and result, and every exception that a call can throw.
// Activity lock.
#pragma once

#include <odd/Values.h>

namespace Odd {

// A C++ type that no unit declares.
struct Unregistered {};

class Args;
class Faults;

KEL_TYPES( _Odd_Calls_kelModule, Args, Faults );

class KEL_API Args : public Kel::PtrInterface {
 public:
   KEL_OBJECT( Args )

   U32 none() const { return 0; }
   U32 one( U32 a ) const { return a; }
   // The sum.
   S64 nine( S32 a, S32 b, S32 c, S32 d, S32 e, S32 f, S32 g, S32 h, S32 i ) const;
   // Whether a was given.
   bool opt( std::optional< U32 > a ) const { return a.has_value(); }
   // All of these give their first argument back.
   Acme::Size size( Acme::Size s ) const { return s; }
   Ptr< Node > node( Ptr< Node > n ) const { return n; }
   PyText pyText( PyText t ) const { return t; }
   Ptr< Node > many( Ptr< Node > n, S32 b, S32 c, S32 d, S32 e, S32 f, S32 g, S32 h, S32 i ) const;

   void keep( Ptr< Node > n ) { kept_ = std::move( n ); }
   Ptr< Node > kept() const { return kept_; }
   U32 poke() { return ++pokes_; }
   void unknown( Unregistered ) const {}

 private:
   Ptr< Node > kept_;
   U32 pokes_ = 0;
};

class KEL_API Faults : public Kel::PtrInterface {
 public:
   KEL_OBJECT( Faults )

   // Throws the exception of that class, by its full name, with that text; Kel::ErrnoException with
   // number 5, "int" the number 7. Throws Kel::TypeException for the name of no such class.
   void fail( String kind, String text ) const;
   void failErrno( S32 number, String text ) const;
   // Throws a Kel::RangeException that carries a backtrace.
   void failTraced( String text ) const;

   // Throw Kel::InternalException and Kel::ConstException.
   U32 bad() const;
   void badIs( U32 value );
};

} // namespace Odd
