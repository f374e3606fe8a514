#include <gtest/gtest.h>

#include <alloca.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include <kel/Assert.h>
#include <kel/Backtrace.h>
#include <kel/CrashReport.h>
#include <kel/Mem.h>

#include "ChildProcess.h"

namespace Kel {

namespace {

using Testing::inChild;
using Testing::Outcome;

bool contains( Outcome const& outcome, std::string const& text ) {
   return outcome.errors.find( text ) != std::string::npos;
}

// The sanitizers' own handlers stand before the runtime's and end the process their own way.
void expectKilledBy( Outcome const& outcome, int number ) {
#ifdef KEL_SANITIZED
   if( number != SIGABRT ) {
      EXPECT_NE( outcome.status, 0 );
      return;
   }
#endif
   EXPECT_TRUE( outcome.killedBy( number ) ) << outcome.status << ": " << outcome.errors;
}

// For handlers of signals.
void say( int fd, char const* text ) {
   [[maybe_unused]] auto const written = write( fd, text, std::strlen( text ) );
}

[[gnu::noinline]] void writeTo( std::uintptr_t address ) {
   asm volatile( "" : "+r"( address ) ); // keeps the compilers from seeing the fault
   *reinterpret_cast< char volatile* >( address ) = 1;
}

class FatalSignal : public testing::TestWithParam< std::pair< int, char const* > > {};

TEST_P( FatalSignal, isNamedWithTheStackAndTheHookAndEndsTheProcess ) {
   auto const [number, name] = GetParam();
   Outcome const outcome = inChild( [number = number] {
      printBacktraceFn = []( int fd ) {
         say( fd, fd == STDERR_FILENO ? "the hook on 2\n" : "wrong\n" );
      };
      raise( number );
      return 0;
   } );
   expectKilledBy( outcome, number );
   EXPECT_TRUE(
      contains( outcome, "fatal signal " + std::to_string( number ) + " (" + name + ")" ) )
      << outcome.errors;
   EXPECT_TRUE( contains( outcome, "the hook on 2\n" ) );
   EXPECT_TRUE( contains( outcome, "[0x" ) );
   EXPECT_LT( outcome.errors.find( "[0x" ), outcome.errors.find( "the hook" ) );
}

INSTANTIATE_TEST_SUITE_P( All, FatalSignal,
   testing::Values( std::pair( SIGSEGV, "SIGSEGV" ), std::pair( SIGBUS, "SIGBUS" ),
      std::pair( SIGFPE, "SIGFPE" ), std::pair( SIGILL, "SIGILL" ),
      std::pair( SIGABRT, "SIGABRT" ) ),
   []( auto const& each ) { return std::string( each.param.second ); } );

TEST( CrashReport, tellsTheAddressOfAFault ) {
   Outcome const outcome = inChild( [] {
      writeTo( 0x123 );
      return 0;
   } );
   expectKilledBy( outcome, SIGSEGV );
   EXPECT_TRUE( contains( outcome, "(SIGSEGV) at address 0x123, process " ) ) << outcome.errors;
}

// As from a sender that this process cannot see.
TEST( CrashReport, tellsTheSenderAsItIsGiven ) {
   Outcome const outcome = inChild( [] {
      siginfo_t info = {};
      info.si_code = SI_QUEUE;
      info.si_pid = -50;
      syscall( SYS_rt_tgsigqueueinfo, getpid(), syscall( SYS_gettid ), SIGBUS, &info );
      return 0;
   } );
   expectKilledBy( outcome, SIGBUS );
   EXPECT_TRUE( contains( outcome, "(SIGBUS) sent by process -50, process " ) ) << outcome.errors;
}

TEST( CrashReport, comesFromOtherThreadsToo ) {
   Outcome const outcome = inChild( [] {
      std::thread( [] { writeTo( 0x123 ); } ).join();
      return 0;
   } );
   expectKilledBy( outcome, SIGSEGV );
   EXPECT_TRUE( contains( outcome, "fatal signal" ) );
}

TEST( CrashReport, endsAtOnceOnAFaultInsideOfIt ) {
   Outcome const outcome = inChild( [] {
      printBacktraceFn = []( int ) {
         writeTo( 0x123 );
         _exit( 0 );
      };
      raise( SIGFPE );
      return 0;
   } );
   expectKilledBy( outcome, SIGFPE );
}

// The hook's calls so far.
int calls = 0;

// A deadline of another signal than the report's own.
void deadlineIsDeadly() {
   alarm( 0 );
   sigevent event = {};
   event.sigev_notify = SIGEV_SIGNAL;
   event.sigev_signo = SIGKILL;
   timer_t timer = {};
   timer_create( CLOCK_MONOTONIC, &event, &timer );
   itimerspec const times = { .it_interval = {}, .it_value = { 20, 0 } };
   timer_settime( timer, 0, &times, nullptr );
}

TEST( CrashReport, calledAgainAHookThatFaultedHasItsSay ) {
   Outcome const outcome = inChild( [] {
      printBacktraceFn = []( int fd ) {
         say( fd, "the hook\n" );
         if( ++calls == 1 ) {
            writeTo( 0x123 );
         }
         say( fd, "its end\n" );
      };
      writeTo( 0x456 );
      return 0;
   } );
   expectKilledBy( outcome, SIGSEGV );
   EXPECT_TRUE( contains( outcome, "the hook\nthe hook\nits end\n" ) ) << outcome.errors;
}

TEST( CrashReport, calledAgainAHookThatHungTwiceHasItsSay ) {
   Outcome const outcome = inChild( [] {
      deadlineIsDeadly();
      signal( SIGALRM, SIG_IGN );
      sigset_t alarm;
      sigemptyset( &alarm );
      sigaddset( &alarm, SIGALRM );
      sigprocmask( SIG_BLOCK, &alarm, nullptr );
      printBacktraceFn = []( int fd ) {
         say( fd, "the hook\n" );
         while( ++calls <= 2 ) {
            pause();
         }
         say( fd, "its end\n" );
      };
      std::thread( [] { writeTo( 0x456 ); } ).join();
      return 0;
   } );
   expectKilledBy( outcome, SIGSEGV );
   EXPECT_TRUE( contains( outcome, "the hook\nthe hook\nthe hook\nits end\n" ) ) << outcome.errors;
}

TEST( CrashReport, calledAgainAHookThatHungAndThenFaultedHasItsSay ) {
   Outcome const outcome = inChild( [] {
      deadlineIsDeadly();
      printBacktraceFn = []( int fd ) {
         say( fd, "the hook\n" );
         while( ++calls == 1 ) {
            pause();
         }
         if( calls == 2 ) {
            writeTo( 0x123 );
         }
         say( fd, "its end\n" );
      };
      writeTo( 0x456 );
      return 0;
   } );
   expectKilledBy( outcome, SIGSEGV );
   EXPECT_TRUE( contains( outcome, "the hook\nthe hook\nthe hook\nits end\n" ) ) << outcome.errors;
}

TEST( CrashReport, endsThoughItsHookHangsForGood ) {
   Outcome const outcome = inChild( [] {
      deadlineIsDeadly();
      printBacktraceFn = []( int ) {
         for( ;; ) {
            pause();
         }
      };
      raise( SIGFPE );
      return 0;
   } );
   expectKilledBy( outcome, SIGFPE );
}

// A handler from before libkel was loaded: KEL_TEST_BEFORE says which, and the test starts the
// program anew for it.
void plainHandler( int number ) {
   say( STDERR_FILENO, number == SIGFPE ? "plain\n" : "abort\n" );
   _exit( 7 );
}

void infoHandler( int number, siginfo_t* info, void* context ) {
   bool const complete = info->si_signo == number && info->si_pid == getpid() && context;
   say( STDERR_FILENO, complete ? "complete\n" : "incomplete\n" );
   _exit( 8 );
}

void returningHandler( int ) {}

void installBefore( int, char**, char** environment ) {
   constexpr std::string_view name = "KEL_TEST_BEFORE=";
   for( ; *environment; ++environment ) {
      std::string_view const variable = *environment;
      if( !variable.starts_with( name ) ) {
         continue;
      }
      std::string_view const which = variable.substr( name.size() );
      struct sigaction action = {};
      action.sa_handler = which == "plain"    ? plainHandler
                          : which == "ignore" ? SIG_IGN
                                              : returningHandler;
      if( which == "info" ) {
         action.sa_sigaction = infoHandler;
         action.sa_flags = SA_SIGINFO;
      }
      sigaction( SIGFPE, &action, nullptr );
      sigaction( SIGABRT, &action, nullptr );
   }
}

// Runs before the initialisers of all shared libraries.
[[gnu::section( ".preinit_array" ), gnu::used]] void ( *const installBeforeEntry )(
   int, char**, char** ) = installBefore;

class EarlierHandler : public testing::Test {
 protected:
   static void whichIs( char const* which ) {
      GTEST_FLAG_SET( death_test_style, "threadsafe" );
      setenv( "KEL_TEST_BEFORE", which, 1 );
   }
   void TearDown() override { unsetenv( "KEL_TEST_BEFORE" ); }

   [[noreturn]] static void raiseTwice() {
      raise( SIGFPE );
      raise( SIGFPE );
      _exit( 3 );
   }
};

TEST_F( EarlierHandler, isCalledBehindTheReport ) {
   whichIs( "plain" );
   EXPECT_EXIT( raiseTwice(), testing::ExitedWithCode( 7 ), "^fatal signal 8 .*\nplain\n$" );
}

TEST_F( EarlierHandler, isCalledBehindAFailedAssertion ) {
   whichIs( "plain" );
   EXPECT_EXIT(
      KEL_ASSERT( !"x" ), testing::ExitedWithCode( 7 ), "^assertion failed: !\"x\" .*\nabort\n$" );
}

TEST_F( EarlierHandler, getsTheInformationThatItAskedFor ) {
   whichIs( "info" );
   EXPECT_EXIT( raiseTwice(), testing::ExitedWithCode( 8 ), "^fatal signal 8 .*\ncomplete\n$" );
}

TEST_F( EarlierHandler, mayReturn ) {
   whichIs( "return" );
   EXPECT_EXIT( raiseTwice(), testing::ExitedWithCode( 3 ), "fatal signal.*fatal signal" );
}

TEST_F( EarlierHandler, thatReturnsFindsTheAlarmAsItWas ) {
   whichIs( "return" );
   auto const interrupted = [] {
      signal( SIGALRM, []( int ) { _exit( 5 ); } );
      raise( SIGFPE );
      raise( SIGALRM );
      _exit( 3 );
   };
   EXPECT_EXIT( interrupted(), testing::ExitedWithCode( 5 ), "fatal signal" );
}

TEST_F( EarlierHandler, thatIgnoresASentSignalKeepsItIgnored ) {
   whichIs( "ignore" );
   EXPECT_EXIT( raiseTwice(), testing::ExitedWithCode( 3 ), "^$" );
}

// As the processor's own fault arrives.
[[noreturn]] void fault( int number ) {
   siginfo_t info = {};
   info.si_signo = number;
   info.si_code = FPE_INTDIV;
   syscall( SYS_rt_tgsigqueueinfo, getpid(), syscall( SYS_gettid ), number, &info );
   _exit( 3 );
}

TEST_F( EarlierHandler, thatIgnoresASignalLetsAFaultEndTheProcess ) {
   whichIs( "ignore" );
   EXPECT_EXIT( fault( SIGFPE ), testing::KilledBySignal( SIGFPE ), "^fatal signal 8 " );
}

#ifndef KEL_SANITIZED // they have stacks and limits of their own

[[gnu::noinline]] int overflow( int depth ) {
   char* volatile block = static_cast< char* >( alloca( 4096 ) );
   std::memset( block, depth, 4096 );
   return depth < 0 ? 0 : overflow( depth + 1 ) + block[17];
}

TEST( CrashReport, tellsOfAnOverflowOfTheMainStack ) {
   Outcome const outcome = inChild( [] { return overflow( 0 ); } );
   EXPECT_TRUE( outcome.killedBy( SIGSEGV ) ) << outcome.status;
   EXPECT_TRUE( contains( outcome, "fatal signal" ) );
}

TEST( CrashReport, tellsOfAnOverflowOfAThreadWithAStackForIt ) {
   Outcome const outcome = inChild( [] {
      std::thread( [] {
         crashStackForThread();
         crashStackForThread();
         overflow( 0 );
      } ).join();
      return 0;
   } );
   EXPECT_TRUE( outcome.killedBy( SIGSEGV ) ) << outcome.status;
   EXPECT_TRUE( contains( outcome, "fatal signal" ) );
}

TEST( CrashReport, takesTheThreadsStackBackAtItsEnd ) {
   stack_t inside{};
   std::thread( [&inside] {
      crashStackForThread();
      sigaltstack( nullptr, &inside );
   } ).join();
   EXPECT_EQ( inside.ss_flags & SS_DISABLE, 0 );
   unsigned char resident = 0;
   EXPECT_NE( mincore( inside.ss_sp, 1, &resident ), 0 ); // no longer mapped
}

// A thread's own alternate stack, which nobody may free.
class OwnStack {
 public:
   void install() const {
      stack_t stack{};
      stack.ss_sp = memory_.get();
      stack.ss_size = bytes;
      sigaltstack( &stack, nullptr );
   }
   bool isInUse() const {
      stack_t now{};
      sigaltstack( nullptr, &now );
      return now.ss_sp == memory_.get() && !( now.ss_flags & SS_DISABLE );
   }

 private:
   static constexpr std::size_t bytes = 64 * 1024;
   std::unique_ptr< char[] > memory_ = std::make_unique< char[] >( bytes );
};

TEST( CrashReport, leavesAThreadTheStackThatItHas ) {
   std::thread( [] {
      OwnStack const own;
      own.install();
      crashStackForThread();
      EXPECT_TRUE( own.isInUse() );
   } ).join();
}

// Made before the thread asks for a stack, it ends behind what that leaves.
struct LooksAtThreadsEnd {
   ~LooksAtThreadsEnd() {
      if( wasInUse ) {
         *wasInUse = own.isInUse();
      }
   }

   OwnStack own;
   bool* wasInUse = nullptr;
};

TEST( CrashReport, leavesAThreadTheStackThatItTookLater ) {
   bool wasInUse = false;
   std::thread( [&wasInUse] {
      thread_local LooksAtThreadsEnd looks;
      looks.wasInUse = &wasInUse;
      crashStackForThread();
      looks.own.install();
   } ).join();
   EXPECT_TRUE( wasInUse );
}

#endif

TEST( CrashReport, twoThreadsThatCrashEndTheProcessOnce ) {
   Outcome const outcome = inChild( [] {
      printBacktraceFn = []( int fd ) {
         usleep( 100'000 );
         say( fd, "the hook\n" );
      };
      std::thread first( [] { abort(); } );
      std::thread second( [] { abort(); } );
      first.join();
      second.join();
      return 0;
   } );
   EXPECT_TRUE( outcome.killedBy( SIGABRT ) ) << outcome.status;
   EXPECT_NE( outcome.errors.find( "the hook\n" ), std::string::npos );
   EXPECT_EQ( outcome.errors.find( "the hook\n" ), outcome.errors.rfind( "the hook\n" ) );
}

} // namespace

} // namespace Kel
