// Writes the counters of a coverage build where a process ends without its exit handlers: by _exit,
// or by a signal that it sends to its own thread when nobody handles it, as a crash report ends.
// Stands in each library and program of that build, for each has counters and a writer of its own,
// and is loaded ahead of the interpreter's libraries.
#include <dlfcn.h>
#include <setjmp.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdarg>

// Hidden: of this library, not of another that has one.
extern "C" [[gnu::visibility( "hidden" )]] void __gcov_dump();

struct Counters {
   void ( *write )();
   Counters* next;
};

// One for the process, however its libraries were loaded.
struct [[gnu::visibility( "default" )]] CoverageProcess {
   static inline std::atomic< Counters* > counters{ nullptr };
   static inline std::atomic< bool > ends{ false };
};

namespace {

using Syscall = long ( * )( long, long, long, long, long, long, long );

Counters own{ __gcov_dump, nullptr };

Syscall nextSyscall() {
   static Syscall const found = reinterpret_cast< Syscall >( dlsym( RTLD_NEXT, "syscall" ) );
   return found;
}

[[gnu::constructor]] void listCounters() {
   nextSyscall();
   own.next = CoverageProcess::counters;
   while( !CoverageProcess::counters.compare_exchange_strong( own.next, &own ) ) {
   }
}

sigjmp_buf givenUp;

// A process that crashed inside of the allocator cannot write: it ends without.
void writeAll() {
   if( CoverageProcess::ends.exchange( true ) ) {
      return;
   }
   struct sigaction action = {};
   action.sa_handler = []( int ) { siglongjmp( givenUp, 1 ); };
   action.sa_flags = SA_ONSTACK;
   sigaction( SIGALRM, &action, nullptr );
   // It takes a moment, and what ends the process is settled.
   for( int number : { SIGHUP, SIGINT, SIGQUIT, SIGTERM } ) {
      signal( number, SIG_IGN );
   }
   sigset_t set;
   sigemptyset( &set );
   sigaddset( &set, SIGALRM );
   pthread_sigmask( SIG_UNBLOCK, &set, nullptr );
   if( sigsetjmp( givenUp, 0 ) == 0 ) {
      alarm( 5 );
      for( Counters const* each = CoverageProcess::counters; each; each = each->next ) {
         each->write();
      }
   }
   alarm( 0 );
}

bool isDeadly( long number ) {
   struct sigaction action = {};
   return sigaction( static_cast< int >( number ), nullptr, &action ) == 0 &&
          action.sa_handler == SIG_DFL;
}

} // namespace

extern "C" {

[[gnu::visibility( "default" )]] void _exit( int status ) {
   writeAll();
   for( ;; ) {
      nextSyscall()( SYS_exit_group, status, 0, 0, 0, 0, 0 );
   }
}

[[gnu::visibility( "default" )]] long syscall( long number, ... ) {
   va_list list;
   va_start( list, number );
   long args[6];
   for( long& each : args ) {
      each = va_arg( list, long );
   }
   va_end( list );
   if( number == SYS_tgkill && args[1] == gettid() && isDeadly( args[2] ) ) {
      writeAll();
   }
   return nextSyscall()( number, args[0], args[1], args[2], args[3], args[4], args[5] );
}

} // extern "C"
