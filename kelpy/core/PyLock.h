// The guards of the two locks. The activity lock stands above the GIL: nobody waits for the
// activity lock while it holds the GIL; whoever holds the activity lock may wait for the GIL.
#pragma once

#include <kelpy/core/PyPython.h>

#include <kel/Lock.h>
#include <kelpy/core/KelPyExport.h>

namespace Kel {

namespace Impl {

// This thread's state while an anchor on its stack has released the GIL, whoever has taken it back
// since; null without such an anchor. Python's own way to a thread's state takes a lock and goes
// along a list of all threads.
extern KELPY_API constinit thread_local PyThreadState* anchoredState
   __attribute__( ( tls_model( "initial-exec" ) ) );

} // namespace Impl

// Releases the GIL, which the caller holds; the GIL is back at the end of its life.
class GilUnlockAnchor {
 public:
   GilUnlockAnchor() noexcept : outerState_( Impl::anchoredState ) {
      gilHeldIs( false );
      Impl::anchoredState = threadState_;
   }
   GilUnlockAnchor( GilUnlockAnchor const& ) = delete;
   GilUnlockAnchor& operator=( GilUnlockAnchor const& ) = delete;
   ~GilUnlockAnchor() {
      gilHeldIs( true );
      Impl::anchoredState = outerState_;
   }

   // The field follows the call that releases, so that it never tells of a lock not yet given up.
   void gilHeldIs( bool held ) noexcept {
      if( held == gilHeld_ ) {
         return;
      }
      if( held ) {
         PyEval_RestoreThread( threadState_ );
         gilHeld_ = true;
      } else {
         threadState_ = PyEval_SaveThread();
         gilHeld_ = false;
      }
   }

 private:
   PyThreadState* threadState_ = nullptr; // valid while the GIL is released
   bool gilHeld_ = true;
   PyThreadState* const outerState_;
};

// The two forms of PyLockAnchor.
constexpr LockAnchor::Flags flags0 = LockAnchor::noFlags;       // the body has no GIL
constexpr LockAnchor::Flags flags4 = LockAnchor::gilHeldInBody; // the body has both locks

// Holds the activity lock for its lifetime, taken with the GIL released. Left with the GIL held:
// where it has to wait for the GIL at its end, it does so behind the release of the activity
// lock. Throws what LockAnchor throws, with the GIL held again.
class PyLockAnchor : public GilUnlockAnchor {
 public:
   using Flags = LockAnchor::Flags;

   explicit PyLockAnchor( Flags flags ) : lock_( activityLock(), flags ) {
      if( flags & flags4 ) {
         gilHeldIs( true );
      }
   }

 private:
   LockAnchor lock_;
};

// Holds the GIL for its lifetime, on any thread, whether or not the thread has it already.
class GilAnchor {
 public:
   GilAnchor() noexcept : state_( Impl::anchoredState ) {
      if( !state_ ) {
         unanchored_ = PyGILState_Ensure();
      } else if( state_ != _PyThreadState_Current ) {
         PyEval_RestoreThread( state_ );
      } else {
         wasHeld_ = true; // only its own state tells a thread that it holds the GIL
      }
   }
   GilAnchor( GilAnchor const& ) = delete;
   GilAnchor& operator=( GilAnchor const& ) = delete;
   ~GilAnchor() {
      if( !state_ ) {
         PyGILState_Release( unanchored_ );
      } else if( !wasHeld_ ) {
         PyEval_SaveThread();
      }
   }

 private:
   PyThreadState* const state_; // null on a thread without an anchor
   PyGILState_STATE unanchored_ = PyGILState_UNLOCKED;
   bool wasHeld_ = false;
};

} // namespace Kel
