#include <kel/System.h>

#include <time.h>

namespace Kel {

Seconds System::currentTime() noexcept {
   timespec now = {};
   clock_gettime( CLOCK_MONOTONIC, &now );
   return Seconds(
      static_cast< double >( now.tv_sec ) + static_cast< double >( now.tv_nsec ) * 1e-9 );
}

Seconds System::kelNowToLinuxMonoTime( Seconds time ) noexcept {
   return time;
}

} // namespace Kel
