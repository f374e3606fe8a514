// kel_hand: what a test sees of the runtime past the Python module, and threads that are not
// Python's. GIL.
#include <kelpy/core/PyPython.h>

#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include <kel/AllocTrack.h>
#include <kel/Fork.h>
#include <kel/Lock.h>
#include <kelpy/core/PyLock.h>
#include <kelpy/core/PyLockFunctions.h>
#include <kelpy/core/PyRef.h>

namespace {

// The number of live objects by C++ class, as a new dict.
PyObject* live( PyObject*, PyObject* ) {
   PyRef counts = PyRef::steal( PyDict_New() );
   if( !counts ) {
      return nullptr;
   }
   for( Kel::AllocTrackTypeInfo const* info : Kel::AllocTrackTypeInfo::all() ) {
      PyRef const count = PyRef::steal( PyLong_FromUnsignedLongLong( info->live() ) );
      if( !count ||
          PyDict_SetItemString( counts.get(), info->name().charPtr(), count.get() ) < 0 ) {
         return nullptr;
      }
   }
   return counts.release();
}

PyObject* thread( PyObject*, PyObject* ) {
   return PyInt_FromLong( ::gettid() );
}

// A contended mutex of the C library says 2 in its first word.
PyObject* isLockContended( PyObject*, PyObject* ) {
   int const word =
      __atomic_load_n( &Kel::activityLock()->mutex()->__data.__lock, __ATOMIC_RELAXED );
   return PyBool_FromLong( word == 2 );
}

// From now on each operation on the mutex fails with EINVAL: its kind is none of the C library's.
PyObject* breakLock( PyObject*, PyObject* ) {
   Kel::activityLock()->mutex()->__data.__kind = 12;
   Py_RETURN_NONE;
}

PyObject* mendLock( PyObject*, PyObject* ) {
   Kel::activityLock()->mutex()->__data.__kind = PTHREAD_MUTEX_ERRORCHECK;
   Py_RETURN_NONE;
}

PyObject* ownerWithoutPython( PyObject*, PyObject* ) {
   return PyInt_FromLong( _activityLockOwner() );
}

// Runs the body on a thread that Python has never seen, with the GIL released here until it ends.
template< class Body >
void onNativeThread( Body body ) {
   Kel::GilUnlockAnchor const gil;
   std::thread( body ).join();
}

// What the child tells by its exit status: who owns the activity lock and whether it can be taken.
int forkAndLook() {
   pid_t const child = fork();
   if( child == 0 ) {
      bool const free = _activityLockOwner() == 0;
      Kel::LockAnchor const lock( Kel::activityLock() );
      _exit( free && _activityLockOwner() == static_cast< unsigned >( ::gettid() ) ? 0 : 1 );
   }
   int status = -1;
   waitpid( child, &status, 0 );
   return status;
}

// On a thread of Python that has released the GIL.
PyObject* forkWithoutGil( PyObject*, PyObject* ) {
   Kel::GilUnlockAnchor gil;
   int const status = forkAndLook();
   gil.gilHeldIs( true );
   return PyInt_FromLong( status );
}

PyObject* forkOnNativeThread( PyObject*, PyObject* ) {
   int status = -1;
   onNativeThread( [&] { status = forkAndLook(); } );
   return PyInt_FromLong( status );
}

// First without Python, then with the GIL: the statuses of both. `between` is called with the GIL,
// ahead of the second fork.
PyObject* forkTwiceOnNativeThread( PyObject*, PyObject* between ) {
   int first = -1;
   int second = -1;
   onNativeThread( [&] {
      first = forkAndLook();
      Kel::GilAnchor const gil;
      if( PyRef::steal( PyObject_CallObject( between, nullptr ) ) ) {
         second = forkAndLook();
      }
   } );
   return Py_BuildValue( "(ii)", first, second );
}

PyObject* duringPreparation_ = nullptr; // for the life of the process

void callDuringPreparation() {
   if( !PyRef::steal( PyObject_CallObject( duringPreparation_, nullptr ) ) ) {
      PyErr_Print();
   }
}

// From now on each fork of a holder of the GIL calls the function once the module has prepared.
PyObject* callInForks( PyObject*, PyObject* function ) {
   duringPreparation_ = PyRef::borrow( function ).release();
   Kel::registerAtForkHandler( callDuringPreparation, nullptr, nullptr, 1 );
   Py_RETURN_NONE;
}

// Calls the function as a reactor of the runtime would that keeps the lock: on a native thread that
// takes the activity lock first and then waits for the GIL.
PyObject* callUnderActivityLock( PyObject*, PyObject* function ) {
   PyRef result;
   onNativeThread( [&] {
      Kel::LockAnchor const lock( Kel::activityLock() );
      Kel::GilAnchor const gil;
      result = PyRef::steal( PyObject_CallObject( function, nullptr ) );
   } );
   if( !result ) {
      PyErr_SetString( PyExc_RuntimeError, "the function failed" );
   }
   return result.release();
}

constinit PyMethodDef functions[] = {
   { "live", live, METH_NOARGS, "Live runtime objects by C++ class." },
   { "thread", thread, METH_NOARGS, "The kernel's id of this thread." },
   { "isLockContended", isLockContended, METH_NOARGS, "Whether a thread waits for the lock." },
   { "breakLock", breakLock, METH_NOARGS, "Makes operations on the activity lock fail." },
   { "mendLock", mendLock, METH_NOARGS, "Takes breakLock back." },
   { "ownerWithoutPython", ownerWithoutPython, METH_NOARGS, "The C function's answer." },
   { "forkWithoutGil", forkWithoutGil, METH_NOARGS, "The child's wait status." },
   { "forkOnNativeThread", forkOnNativeThread, METH_NOARGS, "The child's wait status." },
   { "forkTwiceOnNativeThread", forkTwiceOnNativeThread, METH_O, "Both children's wait statuses." },
   { "callInForks", callInForks, METH_O, "Calls the function in the middle of each fork." },
   { "callUnderActivityLock", callUnderActivityLock, METH_O, "The function's result." },
   {},
};

} // namespace

extern "C" __attribute__( ( visibility( "default" ) ) ) void initkel_hand() {
   Py_InitModule( "kel_hand", functions );
}
