// The runtime's clock. No lock, throws nothing.
#pragma once

#include <kel/Export.h>
#include <kel/Seconds.h>

namespace Kel {

class KEL_API System {
 public:
   // The present time of the runtime: seconds on a clock that never goes back and does not follow
   // changes of the time of day.
   static Seconds currentTime() noexcept;

   // A time of the runtime's clock as a time of CLOCK_MONOTONIC. This runtime runs on that clock
   // itself, so the two are the same number.
   static Seconds kelNowToLinuxMonoTime( Seconds time ) noexcept;
};

} // namespace Kel
