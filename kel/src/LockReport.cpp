#include "LockReport.h"

#include <dirent.h>
#include <execinfo.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include <kel/Lock.h>
#include <kel/Watchdog.h>

#include "SafeText.h"
#include "ThreadStack.h"

bool ( *printThreadStackFn )( int fd, pid_t thread ) = nullptr;

namespace Kel::Impl {

namespace {

constexpr unsigned maxWaiters = 8; // whose stacks are shown

// Written at the end of its life.
class Line : public SafeText {
 public:
   ~Line() {
      endLine();
      writeToStderr( data(), length() );
   }
};

// In tenths of a second.
SafeText& operator<<( SafeText& line, Time time ) {
   auto const tenths = std::lround( time.count() * 10 );
   return line << tenths / 10 << "." << tenths % 10 << " s";
}

struct Thread {
   pid_t id;
};

// "thread 4711 (loop)", with the kernel's name of it.
SafeText& operator<<( SafeText& line, Thread thread ) {
   SafeText path;
   path << "/proc/self/task/" << static_cast< long >( thread.id ) << "/comm";
   path.endText();
   char name[32] = {};
   ssize_t length = 0;
   if( int const file = open( path.data(), O_RDONLY | O_CLOEXEC ); file >= 0 ) {
      length = read( file, name, sizeof name - 1 );
      close( file );
   }
   line << "thread " << static_cast< long >( thread.id );
   if( length < 2 ) {
      return line;
   }
   name[length - 1] = '\0'; // a newline
   std::replace_if(
      name, name + length - 1, []( char c ) { return c > 0 && c < ' '; }, '?' );
   return line << " (" << name << ")";
}

bool waitsForLock( pid_t thread ) {
   auto const call = systemCallOf( thread );
   auto const lock = reinterpret_cast< std::uintptr_t >( activityLock()->mutex() );
   return call && call->number == SYS_futex && call->argument >= lock &&
          call->argument < lock + sizeof( pthread_mutex_t );
}

void writeSystemCall( SystemCall const& call ) {
   Line() << "It waits in system call " << call.number << ", which a signal would end:";
   void* address = reinterpret_cast< void* >( call.returnAddress );
   backtrace_symbols_fd( &address, 1, STDERR_FILENO );
}

// To most programs in languages above it is an error if a signal ends a system call.
void writeStacks( pid_t thread ) {
   bool const isOfLanguage = printThreadStackFn && printThreadStackFn( STDERR_FILENO, thread );
   auto const call = systemCallOf( thread );
   if( isOfLanguage && call && call->number >= 0 && call->number != SYS_futex ) {
      writeSystemCall( *call );
      return;
   }
   Line() << "Native stack (most recent call FIRST):";
   printNativeStack( STDERR_FILENO, thread );
}

void writeWaiter( pid_t thread ) {
   Line() << "[watchdog: " << Thread{ thread } << " waits for the activity lock]";
   writeStacks( thread );
}

void writeWaiters() {
   DIR* const threads = opendir( "/proc/self/task" );
   if( !threads ) {
      return;
   }
   unsigned count = 0;
   while( dirent const* const entry = readdir( threads ) ) {
      pid_t const thread = std::atoi( entry->d_name );
      if( thread > 0 && waitsForLock( thread ) && ++count <= maxWaiters ) {
         writeWaiter( thread );
      }
   }
   closedir( threads );
   if( count > maxWaiters ) {
      Line() << "[watchdog: " << static_cast< long >( count - maxWaiters ) << " more wait for it]";
   }
}

} // namespace

void reportHolder( pid_t holder, Time held ) {
   Line() << "[watchdog: " << Thread{ holder } << " has held the activity lock for " << held
          << ", process " << static_cast< long >( getpid() ) << "]";
   writeStacks( holder );
   writeWaiters();
}

void reportRelease( pid_t holder, Time held ) {
   Line() << "[watchdog: thread " << static_cast< long >( holder )
          << " has given up the activity lock, which it held for " << held << "]";
}

} // namespace Kel::Impl
