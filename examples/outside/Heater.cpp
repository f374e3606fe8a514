#include "Heater.h"

#include <kel/Exception.h>
#include <kel/Schema.h>

namespace Home {

void Heater::wantedIs( double degrees ) {
   if( !( degrees >= 5 && degrees <= 30 ) ) {
      throw Kel::RangeException( "a heater works from 5 to 30 degrees" );
   }
   memberIs( wanted_, degrees, Kel::attrId( "wanted" ) );
}

double Heater::warmer( double degrees ) {
   wantedIs( wanted_ + degrees );
   return wanted_;
}

// All that Python has to be told.
KEL_UNIT( _Home_kelModule,

   entity< Heater, Kel::Entity >( args( arg< Kel::String >( "name" ) ),
      attr< &Heater::wanted, &Heater::wantedIs >( "wanted", notifies ),
      attr< &Heater::measured, &Heater::measuredIs >( "measured", notifies ),
      attr< &Heater::isOpen >( "isOpen" ), function< &Heater::warmer >( "warmer", "degrees" ) ) )

} // namespace Home
