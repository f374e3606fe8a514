#include <kelpy/core/PyLockFunctions.h>

#include <cerrno>
#include <ctime>

#include <kel/Activity.h>
#include <kelpy/core/PyFailure.h>
#include <kelpy/core/PyLock.h>

namespace {

// Looked up once: scripts call these functions in loops.
Kel::Lock* exposedLock() {
   static Kel::Lock* const lock = Kel::ActivityImplFacility::activityManagerSm()->activityLock();
   return lock;
}

// False if the wait gave up. The GIL is back also where this throws.
bool timedLock( timespec const& until ) {
   Kel::GilUnlockAnchor const gil;
   int const error = pthread_mutex_timedlock( exposedLock()->mutex(), &until );
   if( error != 0 && error != ETIMEDOUT && error != EDEADLK ) {
      Kel::Lock::throwFailedLock( error );
   }
   return error == 0;
}

} // namespace

PyObject* acquireActivityLock( PyObject*, PyObject* ) noexcept {
   Kel::Lock* const lock = exposedLock();
   int error;
   {
      Kel::GilUnlockAnchor const gil;
      error = pthread_mutex_lock( lock->mutex() );
   }
   if( error != 0 && error != EDEADLK ) {
      Kel::Lock::throwFailedLock( error );
   }
   return PyBool_FromLong( error == 0 );
}

PyObject* releaseActivityLock( PyObject*, PyObject* ) noexcept {
   if( int const error = pthread_mutex_unlock( exposedLock()->mutex() ) ) {
      Kel::Lock::throwFailedUnlock( error );
   }
   Py_RETURN_NONE;
}

PyObject* timedAcquireActivityLock( PyObject*, PyObject* args ) {
   int seconds = 0;
   if( !PyArg_ParseTuple( args, "i:timedAcquireActivityLock", &seconds ) ) {
      return nullptr;
   }
   try {
      timespec until = {};
      clock_gettime( CLOCK_REALTIME, &until );
      until.tv_sec += seconds;
      return PyBool_FromLong( timedLock( until ) );
   } catch( ... ) {
      Kel::translateCppExceptionToPython( "" );
      return nullptr;
   }
}

PyObject* activityLockOwner( PyObject*, PyObject* ) {
   return PyLong_FromLong( _activityLockOwner() );
}

std::uint32_t _activityLockOwner() {
   return Kel::ActivityImplFacility::activityManagerSm()->activityLock()->ownerThread();
}
