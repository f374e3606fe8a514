#include <kelpy/core/PyFork.h>

#include <kel/Fork.h>
#include <kelpy/core/PyLock.h>

namespace {

// Never cleared. Read and written without a lock.
constinit bool pythonForkHandlersRegistered = false;
// Of the thread that is about to fork.
constinit thread_local bool forkPrepared = false;

bool threadHoldsGil() {
   PyThreadState const* const own = PyGILState_GetThisThreadState();
   return own && _PyThreadState_Current == own;
}

// Nobody waits for the activity lock while it holds the GIL.
void grabActivityLock() {
   Kel::GilUnlockAnchor const gil;
   Kel::grabActivityLockBeforeFork();
}

} // namespace

void prepareGilAndActivityLockPosix() {
   if( forkPrepared ) {
      return;
   }
   forkPrepared = true;
   if( !threadHoldsGil() ) {
      return;
   }
   if( pythonForkHandlersRegistered ) {
      Kel::skipActivityLockForNextFork();
      return;
   }
   // os.fork holds the import lock here, which must not be held across the wait.
   int const released = _PyImport_ReleaseLock();
   grabActivityLock();
   if( released >= 1 ) {
      _PyImport_AcquireLock();
   }
}

void postGilFork() {
   forkPrepared = false;
}

PyObject* prepareGilAndActivityLockPython3( PyObject*, PyObject* ) noexcept {
   if( !forkPrepared ) {
      forkPrepared = true;
      grabActivityLock();
   }
   Py_RETURN_NONE;
}

PyObject* setPythonForkHandlersRegistered( PyObject*, PyObject* ) {
   pythonForkHandlersRegistered = true;
   Py_RETURN_NONE;
}
