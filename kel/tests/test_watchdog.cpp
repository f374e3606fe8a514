// Not under the thread sanitizer, which takes the lock of a forked child for that of its parent.
#ifndef __SANITIZE_THREAD__

#include <gtest/gtest.h>

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <limits>
#include <string>
#include <thread>
#include <vector>

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

// Of a thread that says its id: waits until it has said it and stands in a call for a lock.
class Blocked {
 public:
   void say() { id_ = Impl::gettid(); }
   pid_t id() const { return id_; }

   void waitFor() const {
      std::string const path = "/proc/self/task/";
      std::string const call = std::to_string( SYS_futex ) + ' ';
      std::string line;
      while( !line.starts_with( call ) ) {
         std::this_thread::yield();
         std::ifstream file( path + std::to_string( id_ ) + "/syscall" );
         std::getline( file, line );
      }
   }

 private:
   std::atomic< pid_t > id_ = 0;
};

// A thread that Python never saw holds the lock and computes, and the main thread waits for it.
Outcome holdAndWait() {
   return inChild( [] {
      Told const told;
      Blocked waiter;
      std::atomic< bool > isHeld = false;
      std::thread holder( [&] {
         LockAnchor const locked( activityLock() );
         isHeld = true;
         waiter.waitFor();
         Watchdog::instance()->secondsIs( Seconds( 0.2 ) );
         told.waitFor( "waits for the activity lock" );
      } );
      while( !isHeld ) {
         std::this_thread::yield();
      }
      waiter.say();
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
   EXPECT_NE(
      outcome.errors.find( std::string( program_invocation_short_name ) + "(" ), std::string::npos )
      << outcome.errors;
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
      secondsAre( 1 ); // in which the holder comes to its call
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

// A hook that leaves the thread to the watchdog.
bool hookIsOfNobody( int, pid_t ) {
   return false;
}

TEST( Watchdog, showsTheNativeStackOfAThreadThatIsOfNoLanguage ) {
   Outcome const outcome = inChild( [] {
      Told const told;
      printThreadStackFn = hookIsOfNobody;
      secondsAre( 0.2 );
      LockAnchor const locked( activityLock() );
      told.waitFor( "Native stack (most recent call FIRST):\n" );
      return 0;
   } );
   EXPECT_EQ( outcome.exitCode(), 0 ) << outcome.errors;
}

TEST( Watchdog, showsSomeOfManyWhoWaitAndCountsTheOthers ) {
   Outcome const outcome = inChild( [] {
      Told const told;
      std::vector< std::thread > waiting;
      std::array< Blocked, 12 > blocked;
      {
         LockAnchor const locked( activityLock() );
         for( auto& each : blocked ) {
            waiting.emplace_back( [&each] {
               each.say();
               LockAnchor const waits( activityLock() );
            } );
            each.waitFor();
         }
         Watchdog::instance()->secondsIs( Seconds( 0.2 ) );
         told.waitFor( "more wait for it]" );
      }
      for( auto& each : waiting ) {
         each.join();
      }
      return 0;
   } );
   EXPECT_EQ( outcome.exitCode(), 0 ) << outcome.errors;
   EXPECT_EQ( count( outcome, " waits for the activity lock]" ), 8U ) << outcome.errors;
   EXPECT_EQ( count( outcome, "[watchdog: 4 more wait for it]" ), 1U ) << outcome.errors;
}

TEST( Watchdog, takesThreadsThatWaitForOtherLocksForNoWaiters ) {
   Outcome const outcome = inChild( [] {
      Told const told;
      // On the stack and in the program: above and below the library's own.
      pthread_mutex_t above = PTHREAD_MUTEX_INITIALIZER;
      static pthread_mutex_t below = PTHREAD_MUTEX_INITIALIZER;
      std::vector< std::thread > others;
      for( pthread_mutex_t* const mutex : { &above, &below } ) {
         pthread_mutex_lock( mutex );
         Blocked blocked;
         others.emplace_back( [&blocked, mutex] {
            blocked.say();
            pthread_mutex_lock( mutex );
            pthread_mutex_unlock( mutex );
         } );
         blocked.waitFor();
      }
      Blocked waiter;
      std::thread waits;
      {
         LockAnchor const locked( activityLock() );
         waits = std::thread( [&waiter] {
            waiter.say();
            LockAnchor const waits( activityLock() );
         } );
         waiter.waitFor();
         Watchdog::instance()->secondsIs( Seconds( 0.2 ) );
         told.waitFor( ( "thread " + std::to_string( waiter.id() ) + " (" ).c_str() );
      }
      told.waitFor( "has given up" );
      waits.join();
      pthread_mutex_unlock( &above );
      pthread_mutex_unlock( &below );
      for( auto& each : others ) {
         each.join();
      }
      return 0;
   } );
   EXPECT_EQ( outcome.exitCode(), 0 ) << outcome.errors;
   EXPECT_EQ( count( outcome, " waits for the activity lock]" ), 1U ) << outcome.errors;
}

TEST( Watchdog, showsNamesOfThreadsInOneLine ) {
   Outcome const outcome = inChild( [] {
      Told const told;
      secondsAre( 0.2 );
      pthread_setname_np( pthread_self(), "a\nb \xc3\xa4" );
      LockAnchor const locked( activityLock() );
      told.waitFor( "has held" );
      return 0;
   } );
   EXPECT_EQ( outcome.exitCode(), 0 ) << outcome.errors;
   EXPECT_EQ( count( outcome, " (a?b \xc3\xa4) has held the activity lock for " ), 1U )
      << outcome.errors;
}

TEST( Watchdog, tellsOfTheHolderWithoutAnyDescriptor ) {
   Outcome const outcome = inChild( [] {
      Told const told;
      secondsAre( 0.2 );
      rlimit const none = { 0, 0 };
      setrlimit( RLIMIT_NOFILE, &none );
      {
         LockAnchor const locked( activityLock() );
         told.waitFor( "has held" );
         told.waitFor( "[0x" );
      }
      told.waitFor( "has given up" );
      return 0;
   } );
   EXPECT_EQ( outcome.exitCode(), 0 ) << outcome.errors;
}

// The signal by which threads are asked for their stacks, 0 if there is none.
int stackSignal() {
   for( int number = SIGRTMAX; number >= SIGRTMIN; --number ) {
      struct sigaction action = {};
      sigaction( number, nullptr, &action );
      if( action.sa_flags & SA_SIGINFO ) {
         return number;
      }
   }
   return 0;
}

TEST( Watchdog, takesNoSignalThatTheProcessUses ) {
   Outcome const outcome = inChild( [] {
      Told const told;
      for( int number = SIGRTMIN; number <= SIGRTMAX; ++number ) {
         signal( number, SIG_IGN );
      }
      secondsAre( 0.2 );
      LockAnchor const locked( activityLock() );
      told.waitFor( "(there is no signal to ask for it)\n" );
      return stackSignal();
   } );
   EXPECT_EQ( outcome.exitCode(), 0 ) << outcome.errors;
}

TEST( Watchdog, tellsOfAThreadThatCannotBeAsked ) {
   Outcome const outcome = inChild( [] {
      Told const told;
      secondsAre( 0.2 );
      rlimit const none = { 0, 0 };
      setrlimit( RLIMIT_SIGPENDING, &none );
      LockAnchor const locked( activityLock() );
      told.waitFor( "(the thread cannot be asked)\n" );
      return 0;
   } );
   EXPECT_EQ( outcome.exitCode(), 0 ) << outcome.errors;
}

TEST( Watchdog, takesItsSignalFromOthersForNothing ) {
   Outcome const outcome = inChild( [] {
      Told const told;
      secondsAre( 0.2 );
      int const number = stackSignal();
      errno = EBADMSG;
      raise( number );
      sigqueue( getpid(), number, sigval{ .sival_int = 0 } );
      sigqueue( getpid(), number, sigval{ .sival_int = 7 } );
      if( number == 0 || errno != EBADMSG ) {
         return 1;
      }
      LockAnchor const locked( activityLock() );
      told.waitFor( "[0x" );
      return 0;
   } );
   EXPECT_EQ( outcome.exitCode(), 0 ) << outcome.errors;
}

TEST( Watchdog, thatGetsNoThreadCanBeTurnedOnAgain ) {
   Outcome const outcome = inChild( [] {
      Told const told;
      pthread_attr_t usual, huge;
      pthread_getattr_default_np( &usual );
      pthread_attr_init( &huge );
      pthread_attr_setstacksize( &huge, std::size_t( 1 ) << 60 );
      pthread_setattr_default_np( &huge );
      try {
         secondsAre( 0.2 );
         return 1;
      } catch( ErrnoException const& ) {
      }
      pthread_setattr_default_np( &usual );
      if( Watchdog::instance()->seconds().value() != 0 ) {
         return 2;
      }
      secondsAre( 0.2 );
      LockAnchor const locked( activityLock() );
      told.waitFor( "has held" );
      return 0;
   } );
   EXPECT_EQ( outcome.exitCode(), 0 ) << outcome.errors;
}

// As the kernel tells it: R, S, T and so on.
char stateOf( pid_t process ) {
   std::ifstream file( "/proc/" + std::to_string( process ) + "/stat" );
   std::string text;
   std::getline( file, text );
   auto const name = text.rfind( ')' );
   return name == std::string::npos ? '?' : text[name + 2];
}

TEST( Watchdog, doesNotCountTheTimeInWhichTheWholeProcessStood ) {
   Outcome const outcome = inChild( [] {
      Told const told;
      secondsAre( 4 );
      LockAnchor const locked( activityLock() );
      constexpr timespec sampled = { 0, 500'000'000 };
      nanosleep( &sampled, nullptr );
      pid_t const other = fork(); // wakes this process
      if( other == 0 ) {
         while( stateOf( getppid() ) != 'T' ) {
            std::this_thread::yield();
         }
         constexpr timespec stood = { 5, 0 };
         nanosleep( &stood, nullptr );
         kill( getppid(), SIGCONT );
         _exit( 0 );
      }
      kill( getpid(), SIGSTOP );
      nanosleep( &sampled, nullptr );
      return 0;
   } );
   EXPECT_EQ( outcome.exitCode(), 0 );
   EXPECT_EQ( outcome.errors, "" );
}

TEST( Watchdog, isOffAtFirstAndCanBeTurnedOff ) {
   Outcome const outcome = inChild( [] {
      Told const told;
      auto const seconds = [] { return Watchdog::instance()->seconds().value(); };
      bool const isOff = seconds() == 0;
      secondsAre( 0.2 );
      secondsAre( 0 );
      LockAnchor const locked( activityLock() );
      constexpr timespec longer = { 0, 600'000'000 };
      nanosleep( &longer, nullptr );
      return isOff && seconds() == 0 ? 0 : 1;
   } );
   EXPECT_EQ( outcome.exitCode(), 0 );
   EXPECT_EQ( outcome.errors, "" );
}

TEST( Watchdog, doesNotWatchAForkedChildUnlessAsked ) {
   Outcome const outcome = inChild( [] {
      secondsAre( 0.1 );
      // Its thread is there and at rest: one that begins may hold a lock of a sanitizer's
      // allocator, which stays locked in a child.
      Told const ofParent;
      {
         LockAnchor const locked( activityLock() );
         ofParent.waitFor( "has held" );
      }
      ofParent.waitFor( "has given up" );
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

#endif
