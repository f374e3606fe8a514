// The guards of the two locks, each step seen from inside.
#include <kelpy/core/PyPython.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <future>
#include <thread>

#include <kel/Exception.h>
#include <kelpy/core/PyFailure.h>
#include <kelpy/core/PyLock.h>
#include <kelpy/core/PyLockFunctions.h>

namespace {

bool gilHeld() {
   return _PyThreadState_Current && _PyThreadState_Current == PyGILState_GetThisThreadState();
}

bool lockHeld() {
   return _activityLockOwner() == static_cast< unsigned >( Kel::Impl::gettid() );
}

TEST( GilUnlockAnchor, releasesTheGilForItsLifeOrAsAsked ) {
   ASSERT_TRUE( gilHeld() );
   {
      Kel::GilUnlockAnchor gil;
      EXPECT_FALSE( gilHeld() );
      gil.gilHeldIs( false );
      EXPECT_FALSE( gilHeld() );
      gil.gilHeldIs( true );
      EXPECT_TRUE( gilHeld() );
      gil.gilHeldIs( true );
      EXPECT_TRUE( gilHeld() );
      gil.gilHeldIs( false );
      EXPECT_FALSE( gilHeld() );
   }
   EXPECT_TRUE( gilHeld() );
}

TEST( PyLockAnchor, withFlags0HasTheActivityLockAlone ) {
   {
      Kel::PyLockAnchor locks( Kel::flags0 );
      EXPECT_FALSE( gilHeld() );
      EXPECT_TRUE( lockHeld() );
      locks.gilHeldIs( true );
      EXPECT_TRUE( gilHeld() );
      EXPECT_TRUE( lockHeld() );
   }
   EXPECT_TRUE( gilHeld() );
   EXPECT_EQ( _activityLockOwner(), 0u );
}

TEST( PyLockAnchor, withFlags4HasBothLocks ) {
   {
      Kel::PyLockAnchor const locks( Kel::flags4 );
      EXPECT_TRUE( gilHeld() );
      EXPECT_TRUE( lockHeld() );
   }
   EXPECT_TRUE( gilHeld() );
   EXPECT_EQ( _activityLockOwner(), 0u );
}

TEST( PyLockAnchor, ofAnOwnerLeavesTheLockHeld ) {
   Kel::LockAnchor const outer( Kel::activityLock() );
   for( auto flags : { Kel::flags0, Kel::flags4 } ) {
      {
         Kel::PyLockAnchor const locks( flags );
         EXPECT_EQ( gilHeld(), flags == Kel::flags4 );
         EXPECT_TRUE( lockHeld() );
      }
      EXPECT_TRUE( gilHeld() );
      EXPECT_TRUE( lockHeld() );
   }
}

TEST( PyLockAnchor, leavesTheGilHeldWhereTheLockCannotBeTaken ) {
   int& kind = Kel::activityLock()->mutex()->__data.__kind;
   constexpr int noKind = 12; // of the C library's mutexes
   for( auto flags : { Kel::flags0, Kel::flags4 } ) {
      kind = noKind;
      try {
         Kel::PyLockAnchor const locks( flags );
         ADD_FAILURE();
      } catch( Kel::ErrnoException const& exc ) {
         EXPECT_EQ( exc.errnoValue(), EINVAL );
         EXPECT_TRUE( gilHeld() );
      }
      kind = PTHREAD_MUTEX_ERRORCHECK;
      EXPECT_TRUE( gilHeld() );
   }
}

// Somebody has the GIL at the end of the guard, and keeps it until the activity lock is free.
TEST( PyLockAnchor, releasesTheActivityLockBeforeItWaitsForTheGil ) {
   std::promise< void > gilTaken;
   bool seenFree = false;
   std::thread other;
   {
      Kel::PyLockAnchor const locks( Kel::flags0 );
      other = std::thread( [&] {
         Kel::GilAnchor const gil;
         gilTaken.set_value();
         auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds( 20 );
         while( !seenFree && std::chrono::steady_clock::now() < deadline ) {
            std::this_thread::yield();
            seenFree = _activityLockOwner() == 0;
         }
      } );
      gilTaken.get_future().wait();
   }
   {
      Kel::GilUnlockAnchor const gil;
      other.join();
   }
   EXPECT_TRUE( gilHeld() );
   EXPECT_TRUE( seenFree );
}

TEST( GilAnchor, nestsOnAnyThread ) {
   {
      Kel::GilAnchor const gil;
      EXPECT_TRUE( gilHeld() );
   }
   EXPECT_TRUE( gilHeld() );
   Kel::GilUnlockAnchor const unlocked;
   std::thread( [] {
      EXPECT_FALSE( gilHeld() );
      Kel::GilAnchor const outer;
      EXPECT_TRUE( gilHeld() );
      {
         Kel::GilAnchor const inner;
         EXPECT_TRUE( gilHeld() );
      }
      EXPECT_TRUE( gilHeld() );
   } ).join();
}

TEST( Translator, takesTheGilForItselfAndGivesItBack ) {
   Kel::GilUnlockAnchor gil;
   try {
      throw Kel::RangeException( "x" );
   } catch( ... ) {
      Kel::translateCppExceptionToPython( "stage: " );
   }
   EXPECT_FALSE( gilHeld() );
   gil.gilHeldIs( true );
   EXPECT_TRUE( PyErr_ExceptionMatches( PyExc_IndexError ) );
   PyErr_Clear();
}

} // namespace
