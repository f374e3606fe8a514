// The guards of the two locks, each step seen from inside.
#include <kelpy/core/PyPython.h>

#include <gtest/gtest.h>

#include <cerrno>
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

// A thread that holds the activity lock waits for the GIL; the guard's end must not wait for the
// GIL while it holds the activity lock's place in the order upside down.
TEST( PyLockAnchor, releasesTheActivityLockBeforeItWaitsForTheGil ) {
   std::thread reactor;
   {
      Kel::PyLockAnchor const locks( Kel::flags0 );
      reactor = std::thread( [] {
         Kel::LockAnchor const lock( Kel::activityLock() );
         Kel::GilAnchor const gil;
         EXPECT_TRUE( gilHeld() );
         EXPECT_TRUE( lockHeld() );
      } );
   }
   {
      Kel::GilUnlockAnchor const gil;
      reactor.join();
   }
   EXPECT_TRUE( gilHeld() );
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
