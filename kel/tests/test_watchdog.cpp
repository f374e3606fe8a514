#include <gtest/gtest.h>

#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <cstring>
#include <limits>
#include <string>
#include <thread>

#include <kel/Exception.h>
#include <kel/Lock.h>
#include <kel/Watchdog.h>

#include "ChildProcess.h"

namespace Kel {

namespace {

using Testing::inChild;
using Testing::Outcome;

void secondsAre( double seconds ) {
   LockAnchor const locked( activityLock() );
   Watchdog::instance()->secondsIs( Seconds( seconds ) );
}

// Standard error of a child while it lives, so that it can wait for what the watchdog tells. All of
// it goes to the parent in the end. The child's alarm ends a wait that is in vain.
class Told {
 public:
   Told() : parent_( dup( STDERR_FILENO ) ), file_( memfd_create( "told", 0 ) ) {
      dup2( file_, STDERR_FILENO );
   }
   ~Told() {
      std::string const all = text();
      [[maybe_unused]] auto const written = write( parent_, all.data(), all.size() );
   }

   void waitFor( char const* text ) const {
      while( this->text().find( text ) == std::string::npos ) {
         std::this_thread::yield();
      }
   }

 private:
   std::string text() const {
      std::string all( 1 << 16, '\0' );
      ssize_t const length = pread( file_, all.data(), all.size(), 0 );
      all.resize( length > 0 ? length : 0 );
      return all;
   }

   int parent_;
   int file_;
};

std::size_t count( Outcome const& outcome, std::string const& text ) {
   std::size_t found = 0;
   for( auto at = outcome.errors.find( text ); at != std::string::npos;
        at = outcome.errors.find( text, at + 1 ) ) {
      ++found;
   }
   return found;
}

// A thread that Python never saw holds the lock and computes, and the main thread waits for it.
Outcome holdAndWait() {
   return inChild( [] {
      Told const told;
      secondsAre( 0.2 );
      pid_t id = 0;
      std::thread holder( [&] {
         LockAnchor const locked( activityLock() );
         __atomic_store_n( &id, Impl::gettid(), __ATOMIC_RELEASE );
         told.waitFor( "waits for the activity lock" );
      } );
      while( __atomic_load_n( &id, __ATOMIC_ACQUIRE ) == 0 ) {
         std::this_thread::yield();
      }
      { LockAnchor const waits( activityLock() ); }
      told.waitFor( "has given up" );
      holder.join();
      return 0;
   } );
}

TEST( Watchdog, tellsOfTheHolderAndOfThoseWhoWaitWithTheirStacksAndOfTheEnd ) {
   Outcome const outcome = holdAndWait();
   EXPECT_EQ( outcome.exitCode(), 0 );
   EXPECT_EQ( count( outcome, "has held the activity lock for " ), 1U ) << outcome.errors;
   EXPECT_EQ( count( outcome, " waits for the activity lock]" ), 1U ) << outcome.errors;
   EXPECT_EQ( count( outcome, "Native stack (most recent call FIRST):\n" ), 2U ) << outcome.errors;
   // The waiter stands in the C library's function, the holder in this program.
   EXPECT_NE( outcome.errors.find( "kel_tests(" ), std::string::npos ) << outcome.errors;
   EXPECT_EQ( count( outcome, "has given up the activity lock, which it held for " ), 1U )
      << outcome.errors;
}

TEST( Watchdog, tellsOfOneThatHasEndedWithTheLock ) {
   Outcome const outcome = inChild( [] {
      Told const told;
      secondsAre( 0.2 );
      std::thread( [] { pthread_mutex_lock( activityLock()->mutex() ); } ).join();
      told.waitFor( "(the thread has ended)" );
      return 0;
   } );
   EXPECT_EQ( outcome.exitCode(), 0 ) << outcome.errors;
}

TEST( Watchdog, tellsOfOneThatBlocksAllSignals ) {
   Outcome const outcome = inChild( [] {
      Told const told;
      secondsAre( 0.2 );
      sigset_t all;
      sigfillset( &all );
      pthread_sigmask( SIG_SETMASK, &all, nullptr );
      LockAnchor const locked( activityLock() );
      told.waitFor( "(the thread does not answer)" );
      // The signal comes now, and finds nothing to do.
      sigemptyset( &all );
      pthread_sigmask( SIG_SETMASK, &all, nullptr );
      return 0;
   } );
   EXPECT_EQ( outcome.exitCode(), 0 ) << outcome.errors;
}

bool hookIsOfLanguage( int fd, pid_t ) {
   [[maybe_unused]] auto const written = write( fd, "the hook\n", 9 );
   return true;
}

TEST( Watchdog, leavesTheSystemCallsOfLanguagesAloneAndShowsWhereTheyAre ) {
   Outcome const outcome = inChild( [] {
      Told const told;
      printThreadStackFn = hookIsOfLanguage;
      secondsAre( 0.2 );
      int ends[2];
      int awaited = -1;
      if( pipe( ends ) != 0 ) {
         return 1;
      }
      std::thread holder( [&] {
         LockAnchor const locked( activityLock() );
         pollfd bytes{ ends[0], POLLIN, 0 };
         awaited = poll( &bytes, 1, -1 );
      } );
      told.waitFor( "which a signal would end:\n" );
      [[maybe_unused]] auto const written = write( ends[1], "", 1 );
      holder.join();
      told.waitFor( "has given up" );
      return awaited == 1 ? 0 : 2;
   } );
   EXPECT_EQ( outcome.exitCode(), 0 ) << outcome.errors;
   EXPECT_EQ( count( outcome, "the hook\nIt waits in system call " ), 1U ) << outcome.errors;
   EXPECT_EQ( count( outcome, "Native stack" ), 0U ) << outcome.errors;
}

TEST( Watchdog, isOffAtFirstAndCanBeTurnedOff ) {
   Outcome const outcome = inChild( [] {
      Told const told;
      auto const seconds = [] { return Watchdog::instance()->seconds().value(); };
      bool const isOff = seconds() == 0;
      secondsAre( 0.05 );
      secondsAre( 0 );
      LockAnchor const locked( activityLock() );
      constexpr timespec longer = { 0, 400'000'000 };
      nanosleep( &longer, nullptr );
      return isOff && seconds() == 0 ? 0 : 1;
   } );
   EXPECT_EQ( outcome.exitCode(), 0 );
   EXPECT_EQ( outcome.errors, "" );
}

TEST( Watchdog, doesNotWatchAForkedChildUnlessAsked ) {
   Outcome const outcome = inChild( [] {
      secondsAre( 0.1 );
      return inChild( [] {
         bool const isOff = Watchdog::instance()->seconds().value() == 0;
         Told const told;
         secondsAre( 0.1 );
         LockAnchor const locked( activityLock() );
         told.waitFor( "has held" );
         return isOff ? 3 : 4;
      } ).exitCode();
   } );
   EXPECT_EQ( outcome.exitCode(), 3 ) << outcome.errors;
}

TEST( Watchdog, refusesWhatIsNoTimeToWait ) {
   for( double const seconds : { -1.0, 1e10, std::numeric_limits< double >::quiet_NaN(),
           std::numeric_limits< double >::infinity() } ) {
      EXPECT_THROW( secondsAre( seconds ), RangeException );
      EXPECT_EQ( Watchdog::instance()->seconds().value(), 0 );
   }
}

} // namespace

} // namespace Kel
