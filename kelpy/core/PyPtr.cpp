#include <kelpy/core/PyPtr.h>

#include <kel/Assert.h>
#include <kel/Backtrace.h>
#include <kel/Fork.h>
#include <kel/Watchdog.h>
#include <kelpy/classes/PyGenericIfAttrDescriptor.h>
#include <kelpy/classes/PyGenericIfClass.h>
#include <kelpy/classes/SlotTables.h>
#include <kelpy/core/PyFailure.h>
#include <kelpy/core/PyFork.h>
#include <kelpy/core/PyLockFunctions.h>
#include <kelpy/core/PyModuleFunctions.h>
#include <kelpy/diagnostics/PyBacktrace.h>
#include <kelpy/diagnostics/PyProcTitle.h>
#include <kelpy/diagnostics/PySigint.h>
#include <kelpy/diagnostics/PyThreadStack.h>
#include <kelpy/diagnostics/PyTrace.h>
#include <kelpy/notify/PyActivity.h>
#include <kelpy/notify/PyCallback.h>
#include <kelpy/notify/PyObjHandle.h>
#include <kelpy/objects/PyDir.h>
#include <kelpy/objects/PyEntityFuture.h>
#include <kelpy/objects/PyGenericIf.h>
#include <kelpy/objects/PyValue.h>
#include <kelpy/reflection/PyKelAttr.h>
#include <kelpy/reflection/PyKelType.h>

static_assert( PYTHON_API_VERSION == 1013 );

namespace {

constinit PyMethodDef functions[] = {
   { "trace_h", trace_h, METH_VARARGS, "Trace a message." },
   { "trace_ht", trace_ht, METH_VARARGS, "Trace a message with a tag." },
   { "setproctitle", setproctitle, METH_VARARGS, "Set the process title." },
   { "escapedTraceString", escapedTraceString, METH_VARARGS,
      "Escape a string for tracing or logging." },
   { "proctitle", proctitle, METH_NOARGS, "Return the process title." },
   { "kelNowToLinuxMonoTime", kelNowToLinuxMonoTime, METH_VARARGS,
      "Convert Kel.now() value to Linux monotonic time without SSO time delta." },
   { "traceLineSuppressed", traceLineSuppressed, METH_VARARGS,
      "Determine if a tracing level is currently suppressed." },
   { "traceTagSuppressed", traceTagSuppressed, METH_VARARGS,
      "Determine if a tracing tag is currently suppressed." },
   { "acquireActivityLock", acquireActivityLock, METH_NOARGS, "Acquire the global activity lock." },
   { "releaseActivityLock", releaseActivityLock, METH_NOARGS, "Release the global activity lock." },
   { "activityLockOwner", activityLockOwner, METH_NOARGS,
      "Return the owner of the activity lock." },
   { "timedAcquireActivityLock", timedAcquireActivityLock, METH_VARARGS,
      "Try to acquire the global activity lock." },
   { "enableThreadSafePointers", enableThreadSafePointers, METH_NOARGS,
      "Enable atomic smart pointers." },
   { "singleton", singleton, METH_VARARGS, "Look up a singleton by type name." },
   { "handle", handle, METH_O, "Create a PyObject handle." },
   { "newNotifiee", newNotifiee, METH_VARARGS, "Create a new notifiee." },
   { "typeNode", typeNode, METH_VARARGS,
      "Return the Kel::KelType object with the specified name." },
   { "pyType", pyType, METH_VARARGS,
      "Return the Python type object for the specified Kel::KelType." },
   { "nonConst", nonConstValue, METH_O, "Return a mutable copy of the specified value." },
   { "const", constValue, METH_O, "Return an immutable copy of the specified value." },
   { "nonConstPtr", nonConstPtr, METH_O,
      "Return a non-const pointer to the specified PtrInterface object." },
   { "constPtr", constPtr, METH_O, "Return a const pointer to the specified PtrInterface object." },
   { "isConst", isConst, METH_O, "Return True if the kelc-Python object is const." },
   { "entityFuture", entityFuture, METH_VARARGS, "Create an EntityFuture object." },
   { "isValue", isValue, METH_O, "Return True if the argument is an instance of a value type." },
   { "isCollection", isCollection, METH_O, "Return True if the argument is a Collection object." },
   { "isFunction", isFunction, METH_O, "Return True if the argument is a Function object." },
   { "isEntityFuture", isEntityFuture, METH_O,
      "Return True if the argument is an EntityFuture object." },
   { "isFailedMount", isFailedMount, METH_O,
      "Return True if the argument is a FailedMount object." },
   { "addressOf", addressOf, METH_O, "Return the address of the object as an integer." },
   { "hashOf", hashOf, METH_O,
      "Return the hash of a kelc-Python object.  Note that this works even if the argument is a "
      "non-const value object." },
   { "attributeAccessorCount", attributeAccessorCount, METH_NOARGS,
      "Return the number of times any kelc attribute has been accessed from Python." },
   { "newEntityHookIs", newEntityHookIs, METH_O,
      "Register a function to be called from Kel::Dir::newEntity(), with the same three arguments "
      "(dir, typeName, instanceName) that are passed to that call, before the call to "
      "Kel::Dir::createEntity()." },
   { "newInstanceHookIs", newInstanceHookIs, METH_O,
      "Register a function to be called from 'Kel.newInstance' or 'Kel.Value', or when calling a "
      "kelc-Python type object, before instantiating the C++ object.  It is passed one argument, "
      "the kelc-Python type object." },
   { "getitemHookIs", getitemHookIs, METH_O,
      "Register a function to be called from the '__getitem__' method (but not the 'getRawEntry' "
      "or 'get' methods) of a kelc-Python collection object, with the same two arguments (coll, "
      "key) that are passed to that call, before the lookup in the underlying collection." },
   { "convertEntityToFailedMount", convertEntityToFailedMount, METH_O,
      "Convert a Kel::Entity to a FailedMount." },
   { "demangle", demangle, METH_VARARGS, "demangle a C++ mangled name" },
   { "gnmiJsonString", PyGenericIf_gnmiJsonString, METH_VARARGS,
      "Return gnmiJsonString representation" },
   { "pythonForkHandlersRegistered", setPythonForkHandlersRegistered, METH_NOARGS,
      "Indicate python-level fork handlers are registered" },
   { "atforkPrepare", prepareGilAndActivityLockPython3, METH_NOARGS, "we are preparing to fork" },
   {},
};

constexpr PyTypeObject* staticTypes[] = {
   &PyKelTypeType,
   &PyKelAttrType,
   &PyGenericIfMetaclass,
   &PyGenericIfAttrDescriptorType,
   &PyGenericIfCollectionType,
   &PyGenericIfFunctionType,
   &PyGenericIfNewMemberFuncType,
   &PyGenericIfAddMemberFuncType,
   &PyGenericIfIteratorType,
   &PyGenericIfEntityFutureType,
   &PyGenericIfFailedMountType,
   &PyBacktraceType,
};

bool readyTypes() {
   for( PyTypeObject* type : staticTypes ) {
      if( PyType_Ready( type ) < 0 ) {
         return false;
      }
   }
   return true;
}

// The module with its functions and its one type; false with a Python error.
bool createModule() {
   PyObject* const module = Py_InitModule4(
      "_Kel", functions, "Module providing access to Kel types", nullptr, PYTHON_API_VERSION );
   if( !module ) {
      return false;
   }
   Py_INCREF( &PyBacktraceType );
   return PyModule_AddObject(
             module, "Backtrace", reinterpret_cast< PyObject* >( &PyBacktraceType ) ) == 0;
}

} // namespace

void init_Kel() {
   // There is no GIL before this, and threads of the runtime may come at any time from now on.
   PyEval_InitThreads();
   if( !readyTypes() || !createModule() ) {
      return;
   }
   chainSigint();
   KEL_ASSERT( !printBacktraceFn );
   printBacktraceFn = printPythonBacktrace;
   printThreadStackFn = printPythonThreadStack;
   try {
      Kel::initializeAtForkHandler();
      Kel::registerAtForkHandler( prepareGilAndActivityLockPosix, postGilFork, postGilFork, 10 );
   } catch( ... ) {
      Kel::translateCppExceptionToPython( "" );
      return;
   }
   watchInterpreterEnd();
}
