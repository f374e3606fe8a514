// A heater: an object with a name, two temperatures and a valve that follows them. Activity lock.
#pragma once

#include <kel/Entity.h>
#include <kel/schema/Types.h>

namespace Home {

class Heater;
KEL_TYPES( _Home_kelModule, Heater );

class KEL_API Heater : public Kel::Entity {
 public:
   KEL_OBJECT( Heater )

   explicit Heater( Kel::String name ) : Entity( std::move( name ) ) {}

   double wanted() const { return wanted_; }
   double measured() const { return measured_; }
   bool isOpen() const { return measured_ < wanted_; }

   // Throws Kel::RangeException for what no room should be.
   void wantedIs( double degrees );
   void measuredIs( double degrees ) { memberIs( measured_, degrees, Kel::attrId( "measured" ) ); }
   // Gives what is wanted now.
   double warmer( double degrees );

 private:
   double wanted_ = 18;
   double measured_ = 18;
};

} // namespace Home
