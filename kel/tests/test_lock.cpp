#include <gtest/gtest.h>

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <future>
#include <thread>

#include <kel/Exception.h>
#include <kel/Fork.h>
#include <kel/Lock.h>
#include <kel/Mem.h>

#include "ChildProcess.h"

namespace Kel {

namespace {

pid_t kernelThreadId() {
   return static_cast< pid_t >( syscall( SYS_gettid ) );
}

class ALock : public testing::Test {
 protected:
   bool heldHere() const { return lock.ownerThread() == kernelThreadId(); }

   Lock lock;
};

TEST_F( ALock, isFreeAtFirst ) {
   EXPECT_EQ( lock.ownerThread(), 0 );
}

TEST_F( ALock, hasItsMutexFirst ) {
   EXPECT_EQ( static_cast< void* >( lock.mutex() ), static_cast< void* >( &lock ) );
}

TEST_F( ALock, knowsItsOwner ) {
   EXPECT_EQ( pthread_mutex_lock( lock.mutex() ), 0 );
   EXPECT_TRUE( heldHere() );
   EXPECT_EQ( pthread_mutex_lock( lock.mutex() ), EDEADLK );
   EXPECT_EQ( pthread_mutex_unlock( lock.mutex() ), 0 );
   EXPECT_EQ( lock.ownerThread(), 0 );
}

#ifndef KEL_SANITIZED // the thread sanitizer takes these for faults of the program

// A mutex of no kind, which nobody can lock.
struct Broken {
   explicit Broken( Lock& lock ) : kind_( lock.mutex()->__data.__kind ), before_( kind_ ) {
      kind_ = 15;
   }
   ~Broken() { kind_ = before_; }

   int& kind_;
   int const before_;
};

int numberOf( std::function< void() > const& fails ) {
   try {
      fails();
   } catch( ErrnoException const& exception ) {
      return exception.errnoValue();
   }
   return 0;
}

TEST_F( ALock, isReleasedByItsOwnerOnly ) {
   LockAnchor const anchor( &lock );
   int fromElsewhere = 0;
   std::thread( [&] { fromElsewhere = pthread_mutex_unlock( lock.mutex() ); } ).join();
   EXPECT_EQ( fromElsewhere, EPERM );
   EXPECT_TRUE( heldHere() );
}

TEST_F( ALock, thatCannotBeTakenThrowsAndIsLeftAlone ) {
   {
      Broken const broken( lock );
      EXPECT_EQ( numberOf( [this] { LockAnchor const anchor( &lock ); } ), EINVAL );
   }
   EXPECT_EQ( lock.ownerThread(), 0 );
   LockAnchor const anchor( &lock );
   EXPECT_TRUE( heldHere() );
}

TEST( ActivityLock, thatCannotBeTakenForAForkThrows ) {
   EXPECT_EQ( Testing::inChild( [] {
      Broken const broken( *activityLock() );
      return numberOf( grabActivityLockBeforeFork );
   } ).exitCode(),
      EINVAL );
}

TEST_F( ALock, throwsWhenAThreadReleasesWhatItDoesNotOwn ) {
   try {
      UnlockAnchor const free( &lock );
      FAIL();
   } catch( ErrnoException const& exception ) {
      EXPECT_EQ( exception.errnoValue(), EPERM );
   }
}

#endif

TEST_F( ALock, isHeldForTheLifeOfAnAnchor ) {
   {
      LockAnchor const anchor( &lock );
      EXPECT_TRUE( heldHere() );
   }
   EXPECT_EQ( lock.ownerThread(), 0 );
}

TEST_F( ALock, staysHeldBehindAnInnerAnchor ) {
   LockAnchor const outer( &lock );
   {
      LockAnchor const inner( &lock, LockAnchor::gilHeldInBody );
      EXPECT_TRUE( heldHere() );
   }
   EXPECT_TRUE( heldHere() );
}

TEST_F( ALock, keepsAnAnchorOfAnotherThreadWaiting ) {
   std::promise< void > asked;
   bool got = false;
   std::thread other;
   {
      LockAnchor const anchor( &lock );
      other = std::thread( [&] {
         asked.set_value();
         LockAnchor const inner( &lock );
         got = true;
      } );
      asked.get_future().wait();
      EXPECT_FALSE( got );
   }
   other.join();
   EXPECT_TRUE( got );
}

TEST_F( ALock, isFreeForTheLifeOfAnUnlockAnchor ) {
   LockAnchor const anchor( &lock );
   {
      UnlockAnchor const free( &lock );
      EXPECT_EQ( lock.ownerThread(), 0 );
      std::thread( [this] { LockAnchor const elsewhere( &lock ); } ).join();
   }
   EXPECT_TRUE( heldHere() );
}

TEST_F( ALock, mayComeBackToAnUnlockAnchorAlreadyHeld ) {
   LockAnchor const anchor( &lock );
   {
      UnlockAnchor const free( &lock );
      EXPECT_EQ( pthread_mutex_lock( lock.mutex() ), 0 );
   }
   EXPECT_TRUE( heldHere() );
}

TEST_F( ALock, reportsFailuresByTheirNumber ) {
   try {
      Lock::throwFailedLock( EINVAL );
   } catch( ErrnoException const& exception ) {
      EXPECT_EQ( exception.errnoValue(), EINVAL );
   }
   EXPECT_THROW( Lock::throwFailedUnlock( EPERM ), ErrnoException );
}

TEST_F( ALock, isHeldOrFreeAfterAReset ) {
   lock.resetAfterFork( true );
   EXPECT_TRUE( heldHere() );
   EXPECT_EQ( pthread_mutex_lock( lock.mutex() ), EDEADLK );
   EXPECT_EQ( pthread_mutex_unlock( lock.mutex() ), 0 );
   EXPECT_EQ( pthread_mutex_lock( lock.mutex() ), 0 );
   lock.resetAfterFork( false );
   EXPECT_EQ( lock.ownerThread(), 0 );
}

TEST( ActivityLock, isOne ) {
   EXPECT_NE( activityLock(), nullptr );
   EXPECT_EQ( activityLock(), activityLock() );
}

TEST( ThreadId, isTheKernelsInEachThread ) {
   EXPECT_EQ( Impl::gettid(), kernelThreadId() );
   EXPECT_EQ( Impl::gettid(), kernelThreadId() );
   std::thread( [] { EXPECT_EQ( Impl::gettid(), kernelThreadId() ); } ).join();
}

TEST( ThreadId, isTheChildsOwnAfterAFork ) {
   pid_t const parent = Impl::gettid();
   auto const outcome = Testing::inChild(
      [parent] { return Impl::gettid() == kernelThreadId() && Impl::gettid() != parent ? 0 : 1; } );
   EXPECT_EQ( outcome.exitCode(), 0 );
}

} // namespace

} // namespace Kel
