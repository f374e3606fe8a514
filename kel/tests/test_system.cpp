#include <gtest/gtest.h>

#include <time.h>

#include <kel/System.h>

namespace Kel {

namespace {

Seconds monotonicTime() {
   timespec now{};
   clock_gettime( CLOCK_MONOTONIC, &now );
   return Seconds(
      static_cast< double >( now.tv_sec ) + 1e-9 * static_cast< double >( now.tv_nsec ) );
}

TEST( System, runsOnTheMonotonicClock ) {
   Seconds const before = monotonicTime();
   Seconds const now = System::kelNowToLinuxMonoTime( System::currentTime() );
   Seconds const after = monotonicTime();
   EXPECT_LE( before, now );
   EXPECT_LE( now, after );
}

TEST( System, neverGoesBack ) {
   Seconds last = System::currentTime();
   for( int i = 0; i < 1000; ++i ) {
      Seconds const now = System::currentTime();
      ASSERT_GE( now, last );
      last = now;
   }
}

} // namespace

} // namespace Kel
