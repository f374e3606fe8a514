#include "ThreadStack.h"

#include <execinfo.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "SafeText.h"

namespace Kel::Impl {

namespace {

constexpr int maxFrames = 64;
constexpr int ownFrames = 2; // the handler's and the kernel's

// What one thread asks of another. A request that was withdrawn is of no one, so a signal that
// comes late, to a thread that had blocked it, finds nothing to do.
constinit std::atomic< int > wanted{ 0 };
constinit std::atomic< int > answered{ 0 };
constinit int lastRequest = 0;
constinit int stackSignal = 0;
constinit void* addresses[maxFrames + ownFrames]; // of the thread that has taken the request
constinit int frames = 0;

void onStackSignal( int, siginfo_t* info, void* ) {
   int const kept = errno;
   int request = info->si_value.sival_int;
   if( info->si_code == SI_QUEUE && request != 0 && wanted.compare_exchange_strong( request, 0 ) ) {
      frames = ::backtrace( addresses, maxFrames + ownFrames );
      answered.store( request, std::memory_order_release );
   }
   errno = kept;
}

// False, with errno, where there is no such thread.
bool send( pid_t thread, int request ) {
   siginfo_t info = {};
   info.si_signo = stackSignal;
   info.si_code = SI_QUEUE;
   info.si_pid = getpid();
   info.si_uid = getuid();
   info.si_value.sival_int = request;
   return syscall( SYS_rt_tgsigqueueinfo, getpid(), thread, stackSignal, &info ) == 0;
}

bool isAnswered( int request ) {
   constexpr timespec pause = { 0, 1'000'000 };
   for( int waited = 0; waited < 1000; ++waited ) {
      if( answered.load( std::memory_order_acquire ) == request ) {
         return true;
      }
      nanosleep( &pause, nullptr );
   }
   return false;
}

// Null once the stack is in `addresses`; else why it is not.
char const* faultOfAsking( pid_t thread ) {
   if( stackSignal == 0 ) {
      return "(there is no signal to ask for it)\n";
   }
   int request = ++lastRequest;
   wanted = request;
   if( !send( thread, request ) ) {
      wanted = 0;
      return errno == ESRCH ? "(the thread has ended)\n" : "(the thread cannot be asked)\n";
   }
   if( isAnswered( request ) ) {
      return nullptr;
   }
   // Once the thread has begun, it must be done before anybody else is asked.
   return wanted.compare_exchange_strong( request, 0 ) || !isAnswered( lastRequest )
             ? "(the thread does not answer)\n"
             : nullptr;
}

bool isFree( int number ) {
   struct sigaction now = {};
   return sigaction( number, nullptr, &now ) == 0 && now.sa_handler == SIG_DFL;
}

} // namespace

std::optional< SystemCall > systemCallOf( pid_t thread ) noexcept {
   SafeText path;
   path << "/proc/self/task/" << static_cast< long >( thread ) << "/syscall";
   path.endText();
   int const file = open( path.data(), O_RDONLY | O_CLOEXEC );
   if( file < 0 ) {
      return std::nullopt;
   }
   char text[256] = {};
   ssize_t const length = read( file, text, sizeof text - 1 );
   close( file );
   char* at = text;
   SystemCall call;
   call.number = std::strtol( text, &at, 10 );
   if( length <= 0 || at == text ) {
      return std::nullopt; // "running"
   }
   call.argument = std::strtoul( at, nullptr, 16 );
   char const* const last = std::strrchr( text, ' ' );
   call.returnAddress = last ? std::strtoul( last, nullptr, 16 ) : 0;
   return call;
}

void takeStackSignal() noexcept {
   if( stackSignal != 0 ) {
      return;
   }
   struct sigaction action = {};
   action.sa_sigaction = onStackSignal;
   action.sa_flags = SA_SIGINFO | SA_RESTART | SA_ONSTACK;
   for( int number = SIGRTMAX; number >= SIGRTMIN; --number ) {
      if( isFree( number ) && sigaction( number, &action, nullptr ) == 0 ) {
         stackSignal = number;
         return;
      }
   }
}

void printNativeStack( int fd, pid_t thread ) noexcept {
   if( char const* const fault = faultOfAsking( thread ) ) {
      [[maybe_unused]] auto const written = write( fd, fault, std::strlen( fault ) );
      return;
   }
   int const known = std::min( frames, ownFrames );
   backtrace_symbols_fd( addresses + known, frames - known, fd );
}

} // namespace Kel::Impl
