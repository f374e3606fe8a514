#include <kel/CrashReport.h>

#include <execinfo.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <iterator>

#include <kel/Backtrace.h>

#include "SafeText.h"

namespace Kel {

namespace {

struct FatalSignal {
   int number;
   char const* name;
   struct sigaction before; // written once, at load
};

constinit FatalSignal fatalSignals[] = {
   { SIGSEGV, "SIGSEGV", {} },
   { SIGBUS, "SIGBUS", {} },
   { SIGFPE, "SIGFPE", {} },
   { SIGILL, "SIGILL", {} },
   { SIGABRT, "SIGABRT", {} },
};

constexpr std::size_t stackBytes = 256 * 1024; // a report may run Python code
constexpr int maxFrames = 64;

// The thread that writes a report, 0 when none does, and the signal that it will die by.
constinit std::atomic< pid_t > reporter{ 0 };
constinit std::atomic< int > reportedSignal{ 0 };
// The steps of the report that faulted, and those that came to a deadline.
constinit std::atomic< int > faults{ 0 };
constinit std::atomic< int > deadlines{ 0 };
// The thread whose assertion is reported and whose SIGABRT is under way.
constinit std::atomic< pid_t > assertionReporter{ 0 };

// For this thread; gives the mask before.
sigset_t unblock( int number ) {
   sigset_t set, before;
   sigemptyset( &set );
   sigaddset( &set, number );
   pthread_sigmask( SIG_UNBLOCK, &set, &before );
   return before;
}

[[noreturn]] void dieBySignal( int number ) {
   struct sigaction action = {};
   action.sa_handler = SIG_DFL;
   sigaction( number, &action, nullptr );
   unblock( number );
   syscall( SYS_tgkill, getpid(), ::gettid(), number );
   _exit( 128 + number );
}

// Behind a step that did not end: the hook may have more to tell.
[[noreturn]] void endReport( bool mayAskHook ) {
   if( mayAskHook && printBacktraceFn ) {
      printBacktraceFn( STDERR_FILENO );
   }
   dieBySignal( reportedSignal );
}

// On a busy machine a step may be late that does not hang, ahead of one that does.
void onDeadline( int number ) {
   unblock( number ); // what goes on from here may hang, too
   endReport( deadlines++ < 2 );
}

// Ends a report that hangs, say for a lock of the C library that this thread held as it crashed. By
// SIGALRM to this thread, whose handler the process does not need any more.
class Deadline {
 public:
   Deadline() {
      struct sigaction action = {};
      action.sa_handler = onDeadline;
      action.sa_flags = SA_ONSTACK;
      sigaction( SIGALRM, &action, &action_ );
      mask_ = unblock( SIGALRM );
      sigevent event = {};
      event.sigev_notify = SIGEV_THREAD_ID;
      event.sigev_signo = SIGALRM;
      event._sigev_un._tid = ::gettid();
      isSet_ = timer_create( CLOCK_MONOTONIC, &event, &timer_ ) == 0;
      if( isSet_ ) {
         constexpr itimerspec times = { .it_interval = { 0, 400'000'000 }, .it_value = { 1, 0 } };
         timer_settime( timer_, 0, &times, nullptr );
      }
   }
   Deadline( Deadline const& ) = delete;
   Deadline& operator=( Deadline const& ) = delete;
   ~Deadline() {
      if( isSet_ ) {
         timer_delete( timer_ );
      }
      pthread_sigmask( SIG_SETMASK, &mask_, nullptr );
      sigaction( SIGALRM, &action_, nullptr );
   }

 private:
   struct sigaction action_ = {};
   sigset_t mask_ = {};
   timer_t timer_ = {};
   bool isSet_ = false;
};

// One report at a time. Other threads wait for the process to end, but not for a report that hangs.
void enterReport( int number ) {
   constexpr timespec pause = { 0, 10'000'000 };
   constexpr int pauses = 500;
   pid_t const self = ::gettid();
   pid_t other = 0;
   for( int waited = 0; !reporter.compare_exchange_strong( other, self ); ++waited ) {
      if( other == self ) {
         endReport( faults++ == 0 );
      }
      if( waited == pauses ) {
         dieBySignal( number );
      }
      nanosleep( &pause, nullptr );
      other = 0;
   }
   reportedSignal = number;
}

void writeStacks() {
   Deadline const deadline;
   void* frames[maxFrames];
   backtrace_symbols_fd( frames, ::backtrace( frames, maxFrames ), STDERR_FILENO );
   if( printBacktraceFn ) {
      printBacktraceFn( STDERR_FILENO );
   }
}

bool sentByProcess( siginfo_t const* info ) {
   return info->si_code <= 0;
}

void writeHead( FatalSignal const& fatal, siginfo_t const* info ) {
   Impl::SafeText line;
   line << "fatal signal " << static_cast< long >( fatal.number ) << " (" << fatal.name << ")";
   if( sentByProcess( info ) ) {
      line << " sent by process " << static_cast< long >( info->si_pid );
   } else {
      ( line << " at address " ).hex( reinterpret_cast< std::uintptr_t >( info->si_addr ) );
   }
   line << ", process " << static_cast< long >( getpid() ) << ", thread "
        << static_cast< long >( ::gettid() );
   line.endLine();
   Impl::writeToStderr( line.data(), line.length() );
}

// Hands the signal to whoever handled it before the runtime was loaded.
void chain( FatalSignal const& fatal, siginfo_t* info, void* context ) {
   struct sigaction const& before = fatal.before;
   if( before.sa_flags & SA_SIGINFO ) {
      before.sa_sigaction( fatal.number, info, context );
   } else if( before.sa_handler == SIG_DFL || before.sa_handler == SIG_IGN ) {
      dieBySignal( fatal.number ); // a fault cannot be ignored
   } else {
      before.sa_handler( fatal.number );
   }
}

bool ignored( FatalSignal const& fatal, siginfo_t const* info ) {
   return sentByProcess( info ) && !( fatal.before.sa_flags & SA_SIGINFO ) &&
          fatal.before.sa_handler == SIG_IGN;
}

FatalSignal const& fatalSignal( int number ) {
   FatalSignal const* fatal = fatalSignals;
   while( fatal->number != number ) {
      ++fatal;
   }
   return *fatal;
}

void onFatalSignal( int number, siginfo_t* info, void* context ) {
   int const savedErrno = errno;
   FatalSignal const& fatal = fatalSignal( number );
   if( ignored( fatal, info ) ) {
      return;
   }
   if( number != SIGABRT || assertionReporter != ::gettid() ) {
      // A fault of the report's own must come back here even if it is of the same sort.
      sigset_t const mask = unblock( number );
      enterReport( number );
      writeHead( fatal, info );
      writeStacks();
      pthread_sigmask( SIG_SETMASK, &mask, nullptr );
      reporter = 0;
   }
   errno = savedErrno;
   chain( fatal, info, context );
   errno = savedErrno;
}

// Memory for this thread's alternate stack, in use from now on; null if it has one or gets none.
void* installStack() {
   stack_t now = {};
   if( sigaltstack( nullptr, &now ) != 0 || !( now.ss_flags & SS_DISABLE ) ) {
      return nullptr;
   }
   void* memory = mmap(
      nullptr, stackBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0 );
   if( memory == MAP_FAILED ) {
      return nullptr;
   }
   stack_t stack = {};
   stack.ss_sp = memory;
   stack.ss_size = stackBytes;
   if( sigaltstack( &stack, nullptr ) != 0 ) {
      munmap( memory, stackBytes );
      return nullptr;
   }
   return memory;
}

class ThreadStack {
 public:
   void install() {
      if( !memory_ ) {
         memory_ = installStack();
      }
   }

   ~ThreadStack() {
      if( !memory_ ) {
         return;
      }
      stack_t now = {};
      sigaltstack( nullptr, &now );
      if( now.ss_sp == memory_ ) {
         stack_t off = {};
         off.ss_flags = SS_DISABLE;
         sigaltstack( &off, nullptr );
      }
      munmap( memory_, stackBytes );
   }

 private:
   void* memory_ = nullptr;
};

thread_local ThreadStack threadStack;

[[gnu::constructor]] void installCrashReport() {
   // The first call loads the unwinder, which allocates.
   void* frame;
   ::backtrace( &frame, 1 );
   installStack(); // stays to the end: destructors at exit may crash too
   struct sigaction action = {};
   action.sa_sigaction = onFatalSignal;
   action.sa_flags = SA_SIGINFO | SA_ONSTACK;
   for( FatalSignal& fatal : fatalSignals ) {
      sigaction( fatal.number, &action, &fatal.before );
   }
}

} // namespace

void crashStackForThread() noexcept {
   threadStack.install();
}

void Impl::reportAssertion( char const* line, std::size_t length ) noexcept {
   // Before anything else, for it may be an assertion inside of a report.
   writeToStderr( line, length );
   enterReport( SIGABRT );
   writeStacks();
   assertionReporter = ::gettid();
}

} // namespace Kel
