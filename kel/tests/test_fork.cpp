#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <future>
#include <string>
#include <thread>

#include <kel/Fork.h>
#include <kel/Lock.h>

#include "ChildProcess.h"

namespace Kel {

namespace {

using Testing::inChild;

enum Seen : int {
   seenFree = 10,
   seenOwned = 11,
   seenForeign = 12,
   seenWrong = 13,
};

// How the activity lock looks to this thread, tried and not only read.
int seen() {
   int const tried = pthread_mutex_trylock( activityLock()->mutex() );
   pid_t const owner = activityLock()->ownerThread();
   if( tried == 0 ) {
      pthread_mutex_unlock( activityLock()->mutex() );
      return owner == Impl::gettid() ? seenFree : seenWrong;
   }
   if( owner == Impl::gettid() ) {
      return pthread_mutex_lock( activityLock()->mutex() ) == EDEADLK ? seenOwned : seenWrong;
   }
   return seenForeign;
}

class Fork : public testing::Test {
 protected:
   void SetUp() override { initializeAtForkHandler(); }
   void TearDown() override { EXPECT_EQ( seen(), seenFree ); }
};

// Holds the activity lock on a thread of its own until it goes.
class Holder {
 public:
   Holder() {
      std::promise< void > held;
      thread_ = std::thread( [&] {
         LockAnchor const anchor( activityLock() );
         held.set_value();
         release_.get_future().wait();
      } );
      held.get_future().wait();
   }
   ~Holder() {
      release_.set_value();
      thread_.join();
   }

 private:
   std::promise< void > release_;
   std::thread thread_;
};

TEST_F( Fork, leavesAFreeLockFreeOnBothSides ) {
   EXPECT_EQ( inChild( seen ).exitCode(), seenFree );
   EXPECT_EQ( seen(), seenFree );
}

TEST_F( Fork, leavesALockWithItsOwnerOnBothSides ) {
   LockAnchor const anchor( activityLock() );
   EXPECT_EQ( inChild( seen ).exitCode(), seenOwned );
   EXPECT_EQ( seen(), seenOwned );
}

TEST_F( Fork, lastsUntilAnotherThreadHasReleasedTheLock ) {
   int shared = 0;
   std::promise< void > held;
   std::thread holder( [&] {
      LockAnchor const anchor( activityLock() );
      held.set_value();
      std::this_thread::sleep_for( std::chrono::milliseconds( 20 ) );
      shared = 1;
   } );
   held.get_future().wait();
   // The child would see the change half done if the fork did not wait.
   EXPECT_EQ( inChild( [&] { return shared == 1 ? seen() : -1; } ).exitCode(), seenFree );
   holder.join();
}

TEST_F( Fork, runsHandlersWithoutHoldingTheLock ) {
   static int inHandler = 0;
   auto const outcome = inChild( [] {
      static int inParent = 0;
      registerAtForkHandler(
         [] { inHandler = seen(); }, [] { inParent = seen(); }, [] { inHandler = seen(); }, 1 );
      auto const inner = inChild( [] { return inHandler; } );
      return inner.exitCode() == seenFree && inHandler == seenFree && inParent == seenFree;
   } );
   EXPECT_EQ( outcome.exitCode(), 1 );
}

TEST_F( Fork, releasesAnEarlyGrabOnBothSides ) {
   grabActivityLockBeforeFork();
   EXPECT_EQ( seen(), seenOwned );
   EXPECT_EQ( inChild( seen ).exitCode(), seenFree );
   EXPECT_EQ( seen(), seenFree );
}

TEST_F( Fork, grabsOnceForTwoCalls ) {
   grabActivityLockBeforeFork();
   grabActivityLockBeforeFork();
   EXPECT_EQ( inChild( seen ).exitCode(), seenFree );
   EXPECT_EQ( seen(), seenFree );
}

TEST_F( Fork, leavesALockToTheOwnerWhoGrabsItAgain ) {
   LockAnchor const anchor( activityLock() );
   grabActivityLockBeforeFork();
   grabActivityLockBeforeFork();
   EXPECT_EQ( inChild( seen ).exitCode(), seenOwned );
   EXPECT_EQ( seen(), seenOwned );
}

TEST_F( Fork, worksAfterAGrabWithoutAFork ) {
   grabActivityLockBeforeFork();
   EXPECT_EQ( pthread_mutex_unlock( activityLock()->mutex() ), 0 );
   EXPECT_EQ( inChild( seen ).exitCode(), seenFree );
   EXPECT_EQ( seen(), seenFree );
}

TEST_F( Fork, grabsAnewAfterAGrabWithoutAFork ) {
   grabActivityLockBeforeFork();
   EXPECT_EQ( pthread_mutex_unlock( activityLock()->mutex() ), 0 );
   grabActivityLockBeforeFork();
   EXPECT_EQ( seen(), seenOwned );
   EXPECT_EQ( inChild( seen ).exitCode(), seenFree );
   EXPECT_EQ( seen(), seenFree );
}

TEST_F( Fork, thatSkipsTheLockDoesNotWaitForItsHolder ) {
   Holder const holder;
   skipActivityLockForNextFork();
   EXPECT_EQ( inChild( seen ).exitCode(), seenFree );
   EXPECT_EQ( seen(), seenForeign );
}

TEST_F( Fork, thatSkipsTheLockLeavesItToItsOwner ) {
   LockAnchor const anchor( activityLock() );
   skipActivityLockForNextFork();
   EXPECT_EQ( inChild( seen ).exitCode(), seenOwned );
   EXPECT_EQ( seen(), seenOwned );
}

TEST_F( Fork, skipsTheLockJustOnce ) {
   skipActivityLockForNextFork();
   inChild( [] { return 0; } );
   bool released = false;
   std::promise< void > held;
   std::thread holder( [&] {
      LockAnchor const anchor( activityLock() );
      held.set_value();
      std::this_thread::sleep_for( std::chrono::milliseconds( 20 ) );
      released = true;
   } );
   held.get_future().wait();
   EXPECT_EQ( inChild( [&] { return released ? 1 : 0; } ).exitCode(), 1 );
   holder.join();
}

TEST_F( Fork, keepsItsStateByThread ) {
   std::thread( [] { skipActivityLockForNextFork(); } ).join();
   std::thread( [] {
      grabActivityLockBeforeFork();
      EXPECT_EQ( inChild( seen ).exitCode(), seenFree );
      EXPECT_EQ( seen(), seenFree );
   } ).join();
   EXPECT_EQ( inChild( seen ).exitCode(), seenFree );
}

TEST_F( Fork, worksAgainInTheChild ) {
   auto const outcome = inChild( [] {
      grabActivityLockBeforeFork();
      int const grandchild = inChild( seen ).exitCode();
      return grandchild == seenFree && seen() == seenFree ? 0 : 1;
   } );
   EXPECT_EQ( outcome.exitCode(), 0 );
}

TEST_F( Fork, runsHandlersInTheOrderOfTheirPriorities ) {
   static std::string order;
   auto const outcome = inChild( [] {
      registerAtForkHandler( [] { order += 'b'; }, [] { order += 'B'; }, [] { order += '2'; }, 5 );
      registerAtForkHandler( [] { order += 'a'; }, [] { order += 'A'; }, [] { order += '1'; }, 9 );
      registerAtForkHandler( [] { order += 'c'; }, nullptr, [] { order += '3'; }, 1 );
      registerAtForkHandler( [] { order += 'd'; }, [] { order += 'D'; }, nullptr, 5 );
      auto const inner = inChild( [] { return order == "adbc321" ? 1 : 0; } );
      return inner.exitCode() == 1 && order == "adbcBDA" ? 1 : 0;
   } );
   EXPECT_EQ( outcome.exitCode(), 1 );
}

TEST_F( Fork, letsAPrepareHandlerGrabOrSkipTheLock ) {
   auto const outcome = inChild( [] {
      registerAtForkHandler( grabActivityLockBeforeFork, nullptr, nullptr, 10 );
      bool const grabbed = inChild( seen ).exitCode() == seenFree && seen() == seenFree;
      registerAtForkHandler( skipActivityLockForNextFork, nullptr, nullptr, 20 );
      bool const both = inChild( seen ).exitCode() == seenFree && seen() == seenFree;
      return grabbed && both ? 0 : 1;
   } );
   EXPECT_EQ( outcome.exitCode(), 0 );
}

TEST_F( Fork, survivesThreadsThatWorkUnderTheLock ) {
   std::atomic< bool > stop = false;
   std::thread busy( [&] {
      while( !stop ) {
         LockAnchor const anchor( activityLock() );
      }
   } );
   for( int i = 0; i < 50; ++i ) {
      EXPECT_EQ( inChild( seen ).exitCode(), seenFree );
   }
   stop = true;
   busy.join();
}

} // namespace

} // namespace Kel
