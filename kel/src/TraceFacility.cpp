#include <kel/TraceFacility.h>

#include <unistd.h>

#include <kel/Schema.h>

#include "TraceConfig.h"

namespace Kel {

TraceDestination TraceFacility::destination() const {
   return Impl::TraceConfig::instance().descriptor() == STDERR_FILENO
             ? TraceDestination::standardError
             : TraceDestination::file;
}

char const* Impl::traceFacilityName( TraceFacility const* facility ) {
   return facility->name().charPtr();
}

KEL_UNIT( _TraceFacility_9f2b368972944a5e_kelModule,
   enumeration< FacilityLevel >( constant< trace0 >( "trace0" ), constant< trace1 >( "trace1" ),
      constant< trace2 >( "trace2" ), constant< trace3 >( "trace3" ),
      constant< trace4 >( "trace4" ), constant< trace5 >( "trace5" ),
      constant< trace6 >( "trace6" ), constant< trace7 >( "trace7" ),
      constant< trace8 >( "trace8" ), constant< trace9 >( "trace9" ) ),
   enumeration< TraceDestination >( constant< TraceDestination::standardError >( "standardError" ),
      constant< TraceDestination::file >( "file" ) ),
   entity< TraceFacility, Entity >(
      args( arg< String >( "name" ) ), attr< &TraceFacility::destination >( "destination" ) ) )

namespace {
[[maybe_unused]] bool const facilityExistsFromLoad = [] {
   Entity::singletonIs( newObject< TraceFacility >( String( "python" ) ) );
   return true;
}();
} // namespace

} // namespace Kel
