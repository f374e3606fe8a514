// Preloaded into the interpreter: stands before the C library's locks, and notes the order in which
// each thread takes the GIL, the activity lock, the import lock and the mutexes behind them. Tells
// of each thread that goes for the activity lock while it holds the GIL.
#include <dlfcn.h>
#include <pthread.h>
#include <semaphore.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <ctime>

#include "LockGraph.h"

namespace {

// The semaphores that this thread has used last; they tell which are the interpreter's locks.
struct LastUsed {
   sem_t* waited;
   sem_t* tried;
   sem_t* posted;
};

constinit thread_local LastUsed last __attribute__( ( tls_model( "initial-exec" ) ) ) = {};

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

bool isOwn( pthread_mutex_t const* mutex ) {
   return mutex->__data.__owner == ::gettid();
}

template< class Function >
Function* symbol( char const* name ) {
   return reinterpret_cast< Function* >( dlsym( RTLD_DEFAULT, name ) );
}

// Of the interpreter that this thread holds the GIL of.
void findPythonLocks() {
   symbol< void() >( "PyEval_InitThreads" )();
   auto* const state = symbol< void*() >( "PyEval_SaveThread" )();
   sem_t* const gil = last.posted;
   symbol< void( void* ) >( "PyEval_RestoreThread" )( state );
   symbol< void*() >( "PyGILState_GetThisThreadState" )();
   sem_t* const keys = last.waited;
   symbol< void() >( "_PyImport_AcquireLock" )();
   sem_t* const import = last.tried;
   symbol< int() >( "_PyImport_ReleaseLock" )();
   LockGraph::lockIs( LockGraph::keys, keys );
   LockGraph::lockIs( LockGraph::import, import );
   LockGraph::lockIs( LockGraph::gil, gil );
   LockGraph::got( LockGraph::gil );
}

template< class Lock >
int locked( pthread_mutex_t* mutex, Lock lock ) {
   auto const node = isOwn( mutex ) ? LockGraph::none : LockGraph::nodeOf( mutex );
   LockGraph::wanted( node );
   int const error = lock();
   if( error == 0 ) {
      LockGraph::got( node );
   } else {
      LockGraph::gaveUp( node );
   }
   return error;
}

} // namespace

#define KEL_STAND_IN extern "C" __attribute__( ( visibility( "default" ) ) )

// From here on the locks of the interpreter are watched too. GIL.
KEL_STAND_IN void kel_lock_order_start() {
   if( !LockGraph::isFound( LockGraph::gil ) ) {
      findPythonLocks();
   }
}

KEL_STAND_IN void kel_lock_order_watch( pthread_mutex_t* activityLock ) {
   LockGraph::lockIs( LockGraph::activity, activityLock );
   kel_lock_order_start();
}

KEL_STAND_IN int kel_lock_order_violations() {
   return LockGraph::violations();
}

// In nanoseconds; 0 is the GIL, 1 the activity lock.
KEL_STAND_IN long kel_lock_order_longest_wait( int lock ) {
   return LockGraph::longestWait( lock );
}

KEL_STAND_IN long kel_lock_order_times_taken( int lock ) {
   return LockGraph::timesTaken( lock );
}

KEL_STAND_IN int pthread_mutex_lock( pthread_mutex_t* mutex ) noexcept {
   static constinit std::atomic< int ( * )( pthread_mutex_t* ) > next{ nullptr };
   return locked( mutex, [&] { return real( next, "pthread_mutex_lock" )( mutex ); } );
}

KEL_STAND_IN int pthread_mutex_timedlock( pthread_mutex_t* mutex, timespec const* until ) noexcept {
   static constinit std::atomic< int ( * )( pthread_mutex_t*, timespec const* ) > next{ nullptr };
   return locked( mutex, [&] { return real( next, "pthread_mutex_timedlock" )( mutex, until ); } );
}

KEL_STAND_IN int pthread_mutex_unlock( pthread_mutex_t* mutex ) noexcept {
   static constinit std::atomic< int ( * )( pthread_mutex_t* ) > next{ nullptr };
   int const error = real( next, "pthread_mutex_unlock" )( mutex );
   if( error == 0 ) {
      LockGraph::released( LockGraph::knownNode( mutex ) );
   }
   return error;
}

KEL_STAND_IN int sem_wait( sem_t* semaphore ) {
   static constinit std::atomic< int ( * )( sem_t* ) > next{ nullptr };
   auto const node = LockGraph::knownNode( semaphore );
   last.waited = semaphore;
   LockGraph::wanted( node );
   int const result = real( next, "sem_wait" )( semaphore );
   int const error = errno;
   if( result == 0 ) {
      LockGraph::got( node );
   } else {
      LockGraph::gaveUp( node );
   }
   errno = error;
   return result;
}

KEL_STAND_IN int sem_trywait( sem_t* semaphore ) noexcept {
   static constinit std::atomic< int ( * )( sem_t* ) > next{ nullptr };
   last.tried = semaphore;
   int const result = real( next, "sem_trywait" )( semaphore );
   if( result == 0 ) {
      LockGraph::got( LockGraph::knownNode( semaphore ) );
   }
   return result;
}

KEL_STAND_IN int sem_post( sem_t* semaphore ) noexcept {
   static constinit std::atomic< int ( * )( sem_t* ) > next{ nullptr };
   last.posted = semaphore;
   LockGraph::released( LockGraph::knownNode( semaphore ) );
   return real( next, "sem_post" )( semaphore );
}

KEL_STAND_IN int __cxa_guard_acquire( void* guard ) {
   static constinit std::atomic< int ( * )( void* ) > next{ nullptr };
   auto const node = LockGraph::nodeOf( guard );
   LockGraph::wanted( node );
   int const runs = real( next, "__cxa_guard_acquire" )( guard );
   if( runs ) {
      LockGraph::got( node );
   } else {
      LockGraph::gaveUp( node );
   }
   return runs;
}

KEL_STAND_IN void __cxa_guard_release( void* guard ) noexcept {
   static constinit std::atomic< void ( * )( void* ) > next{ nullptr };
   real( next, "__cxa_guard_release" )( guard );
   LockGraph::released( LockGraph::knownNode( guard ) );
}

KEL_STAND_IN void __cxa_guard_abort( void* guard ) noexcept {
   static constinit std::atomic< void ( * )( void* ) > next{ nullptr };
   real( next, "__cxa_guard_abort" )( guard );
   LockGraph::released( LockGraph::knownNode( guard ) );
}

KEL_STAND_IN pid_t fork() noexcept {
   static constinit std::atomic< pid_t ( * )() > next{ nullptr };
   LockGraph::forkBegins();
   pid_t const child = real( next, "fork" )();
   LockGraph::forkEnds();
   return child;
}
