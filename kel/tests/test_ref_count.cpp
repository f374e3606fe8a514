#include <gtest/gtest.h>

#include <cstdint>
#include <thread>
#include <vector>

#include <kel/RefCount.h>

namespace Kel {

namespace {

class RefCount : public testing::Test {
 protected:
   ~RefCount() override { VFPtrInterface::threadSafePointersIs( false ); }

   std::uint32_t word = 5;
};

TEST_F( RefCount, isPlainUntilAskedToBeThreadSafe ) {
   EXPECT_FALSE( VFPtrInterface::threadSafePointers() );
   VFPtrInterface::threadSafePointersIs( true );
   EXPECT_TRUE( VFPtrInterface::threadSafePointers() );
}

TEST_F( RefCount, stepsAWordByOneInBothModes ) {
   for( bool const threadSafe : { false, true } ) {
      VFPtrInterface::threadSafePointersIs( threadSafe );
      VFPtrInterface::refIncrement( word );
      EXPECT_EQ( word, 6U );
      EXPECT_EQ( VFPtrInterface::refDecrement( word ), 5U );
      EXPECT_EQ( word, 5U );
   }
}

TEST_F( RefCount, losesNoStepOfSeveralThreadsWhenThreadSafe ) {
   constexpr std::uint32_t steps = 50'000;
   VFPtrInterface::threadSafePointersIs( true );
   std::vector< std::thread > threads;
   for( int i = 0; i < 4; ++i ) {
      threads.emplace_back( [this] {
         for( std::uint32_t step = 0; step < steps; ++step ) {
            VFPtrInterface::refIncrement( word );
         }
      } );
   }
   for( std::thread& thread : threads ) {
      thread.join();
   }
   EXPECT_EQ( word, 5 + 4 * steps );
}

} // namespace

} // namespace Kel
