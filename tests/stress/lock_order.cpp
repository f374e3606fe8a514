// Preloaded into the interpreter: stands before the C library's locking of a mutex and tells of
// each thread that goes for the watched one, the activity lock, while it holds the GIL.
#include <dlfcn.h>
#include <execinfo.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <ctime>

namespace {

constinit std::atomic< pthread_mutex_t* > watched{ nullptr };
constinit std::atomic< int > violations{ 0 };
// A forked child has one thread, and a lock of its own that nobody else wants.
constinit std::atomic< pid_t > process{ 0 };

// The interpreter's: the state of the thread that holds the GIL, and that of the calling thread.
constinit std::atomic< void** > holder{ nullptr };
constinit std::atomic< void* (*)() > own{ nullptr };

bool holdsGil() {
   void* const state = own.load()();
   return state && __atomic_load_n( holder.load(), __ATOMIC_RELAXED ) == state;
}

void check( pthread_mutex_t* mutex ) {
   if( mutex != watched || mutex->__data.__owner == ::gettid() || getpid() != process ||
       !holdsGil() ) {
      return;
   }
   ++violations;
   constexpr char text[] = "\nthe activity lock is wanted with the GIL held, by\n";
   [[maybe_unused]] auto const written = write( STDERR_FILENO, text, sizeof text - 1 );
   void* frames[32];
   backtrace_symbols_fd( frames, ::backtrace( frames, 32 ), STDERR_FILENO );
}

// The C library's own. Found anew by whoever comes before it is kept: all find the same.
template< class Function >
Function* real( std::atomic< Function* >& kept, char const* name ) {
   Function* function = kept;
   if( !function ) {
      function = reinterpret_cast< Function* >( dlsym( RTLD_NEXT, name ) );
      kept = function;
   }
   return function;
}

} // namespace

extern "C" {

// Watches that mutex from now on.
__attribute__( ( visibility( "default" ) ) ) void kel_lock_order_watch( pthread_mutex_t* mutex ) {
   holder = static_cast< void** >( dlsym( RTLD_DEFAULT, "_PyThreadState_Current" ) );
   own = reinterpret_cast< void* (*)() >( dlsym( RTLD_DEFAULT, "PyGILState_GetThisThreadState" ) );
   process = getpid();
   watched = mutex;
}

__attribute__( ( visibility( "default" ) ) ) int kel_lock_order_violations() {
   return violations;
}

__attribute__( ( visibility( "default" ) ) ) int pthread_mutex_lock(
   pthread_mutex_t* mutex ) noexcept {
   static constinit std::atomic< int ( * )( pthread_mutex_t* ) > next{ nullptr };
   check( mutex );
   return real( next, "pthread_mutex_lock" )( mutex );
}

__attribute__( ( visibility( "default" ) ) ) int pthread_mutex_timedlock(
   pthread_mutex_t* mutex, timespec const* until ) noexcept {
   static constinit std::atomic< int ( * )( pthread_mutex_t*, timespec const* ) > next{ nullptr };
   check( mutex );
   return real( next, "pthread_mutex_timedlock" )( mutex, until );
}
}
