// The activity lock, which guards all mutable state of the runtime, and the guards that take and
// release it.
#pragma once

#include <pthread.h>
#include <sys/types.h>

#include <kel/Assert.h>
#include <kel/Export.h>

namespace Kel {

// A mutex that knows its owner: a lock by the owner gives EDEADLK, an unlock by another thread
// EPERM. Constant-initialised, so that a static one stands before any code runs.
class KEL_API Lock {
 public:
   constexpr Lock() noexcept = default;
   Lock( Lock const& ) = delete;
   Lock& operator=( Lock const& ) = delete;

   pthread_mutex_t* mutex() noexcept { return &mutex_; }

   // The kernel's id of the thread that holds it, 0 when free. Takes nothing; the answer may be old
   // when it arrives, but a thread can trust it about itself.
   pid_t ownerThread() const noexcept {
      return __atomic_load_n( &mutex_.__data.__owner, __ATOMIC_RELAXED );
   }

   // Makes the mutex anew, for the only thread of a forked child: held by it or free.
   void resetAfterFork( bool held ) noexcept;

   // Both throw ErrnoException with the number that the mutex operation returned.
   [[noreturn]] static void throwFailedLock( int error );
   [[noreturn]] static void throwFailedUnlock( int error );

 private:
   pthread_mutex_t mutex_ = PTHREAD_ERRORCHECK_MUTEX_INITIALIZER_NP; // first: read by its address
};

// Holds the lock for its lifetime. One that the thread owned before stays held behind it.
class KEL_API LockAnchor {
 public:
   // Without meaning to this class: guards that derive from it read `gilHeldInBody`.
   enum Flags : unsigned {
      noFlags = 0,
      gilHeldInBody = 4,
   };

   // Blocks until the lock is free. Throws ErrnoException.
   explicit LockAnchor( Lock* lock, [[maybe_unused]] Flags flags = noFlags ) : locked_( lock ) {
      if( int const error = pthread_mutex_lock( lock->mutex() ) ) [[unlikely]] {
         notTaken( error );
      }
   }
   LockAnchor( LockAnchor const& ) = delete;
   LockAnchor& operator=( LockAnchor const& ) = delete;
   ~LockAnchor() {
      if( locked_ ) {
         int const unlockError = pthread_mutex_unlock( locked_->mutex() );
         KEL_ASSERT( unlockError == 0 );
      }
   }

 private:
   void notTaken( int error );

   Lock* locked_; // null if the thread owned the lock before
};

// Releases a lock that the thread owns, for its lifetime; the destructor blocks until it is back.
class KEL_API UnlockAnchor {
 public:
   // Throws ErrnoException if the thread does not own the lock.
   explicit UnlockAnchor( Lock* lock );
   UnlockAnchor( UnlockAnchor const& ) = delete;
   UnlockAnchor& operator=( UnlockAnchor const& ) = delete;
   ~UnlockAnchor();

 private:
   Lock* lock_;
};

namespace Impl {

extern KEL_API Lock activityLock_;

// The kernel's id of this thread, kept per thread; right in a forked child too.
KEL_API pid_t gettid() noexcept;
// For the runtime's own fork handlers, which may run in the child before the one that does this.
void forgetThreadId() noexcept;

} // namespace Impl

// The one activity lock of the process.
inline Lock* activityLock() noexcept {
   return &Impl::activityLock_;
}

} // namespace Kel
