#include <kel/Lock.h>

#include <unistd.h>

#include <cerrno>

#include <kel/Assert.h>
#include <kel/Exception.h>

namespace Kel {

constinit Lock Impl::activityLock_;

namespace {

constinit thread_local pid_t threadId = 0;

// The child's one thread has the parent's thread storage, but an id of its own. Registered before
// any other handler, since theirs may ask for the id.
[[gnu::constructor( 101 )]] void watchForks() {
   int const error = pthread_atfork( nullptr, nullptr, Impl::forgetThreadId );
   KEL_ASSERT( error == 0 );
}

} // namespace

void Lock::resetAfterFork( bool held ) noexcept {
   mutex_ = PTHREAD_ERRORCHECK_MUTEX_INITIALIZER_NP;
   if( held ) {
      int const error = pthread_mutex_lock( &mutex_ );
      KEL_ASSERT( error == 0 );
   }
}

void Lock::throwFailedLock( int error ) {
   throw ErrnoException( error, "cannot lock" );
}

void Lock::throwFailedUnlock( int error ) {
   throw ErrnoException( error, "cannot unlock" );
}

void LockAnchor::notTaken( int error ) {
   if( error != EDEADLK ) {
      Lock::throwFailedLock( error );
   }
   locked_ = nullptr;
}

UnlockAnchor::UnlockAnchor( Lock* lock ) : lock_( lock ) {
   if( int const error = pthread_mutex_unlock( lock->mutex() ) ) {
      Lock::throwFailedUnlock( error );
   }
}

UnlockAnchor::~UnlockAnchor() {
   // EDEADLK: what ran meanwhile took the lock and left it held.
   int const lockError = pthread_mutex_lock( lock_->mutex() );
   KEL_ASSERT( lockError == 0 || lockError == EDEADLK );
}

void Impl::forgetThreadId() noexcept {
   threadId = 0;
}

pid_t Impl::gettid() noexcept {
   if( threadId == 0 ) {
      threadId = ::gettid();
   }
   return threadId;
}

} // namespace Kel
