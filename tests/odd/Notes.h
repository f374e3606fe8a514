// Attributes and collections that notify, beside one that does not. Activity lock.
#pragma once

#include <odd/Values.h>

namespace Odd {

class Notes;

KEL_TYPES( _Odd_Notes_kelModule, Notes );

class KEL_API Notes : public Kel::PtrInterface {
 public:
   KEL_OBJECT( Notes )

   U32 a() const { return a_; }
   U32 b() const { return b_; }
   void aIs( U32 a ) { memberIs( a_, a, Kel::attrId( "a" ) ); }
   void bIs( U32 b ) { memberIs( b_, b, Kel::attrId( "b" ) ); }
   // Sets `a` from the activity loop, as soon as that runs.
   void setLater( U32 value );

   Kel::Map< String, U32 > map{ this, Kel::attrId( "map" ) };
   Kel::Map< PyText, U32 > byText{ this, Kel::attrId( "byText" ) };
   U32 quiet = 0;

 private:
   U32 a_ = 0;
   U32 b_ = 0;
};

} // namespace Odd
