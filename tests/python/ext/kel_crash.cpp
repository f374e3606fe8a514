// kel_crash: crashes of every sort, and the Python part of a crash report by itself. GIL.
#include <kelpy/core/PyPython.h>

#include <frameobject.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <utility>

#include <kel/Activity.h>
#include <kelpy/core/PyLock.h>
#include <kelpy/core/PyRef.h>
#include <kelpy/diagnostics/PyBacktrace.h>

namespace {

// The compiler must not see where it points.
int volatile* volatile nowhere = nullptr;

[[gnu::noinline]] void writeToNull() {
   *nowhere = 1;
}

PyObject* fault( PyObject*, PyObject* ) {
   writeToNull();
   Py_RETURN_NONE;
}

PyObject* faultWithoutGil( PyObject*, PyObject* ) {
   Kel::GilUnlockAnchor const gil;
   writeToNull();
   Py_RETURN_NONE;
}

PyObject* faultUnderLocks( PyObject*, PyObject* ) {
   Kel::PyLockAnchor const locks( Kel::flags0 );
   writeToNull();
   Py_RETURN_NONE;
}

PyObject* faultOnNativeThread( PyObject*, PyObject* ) {
   Kel::GilUnlockAnchor const gil;
   std::thread( writeToNull ).join();
   Py_RETURN_NONE;
}

// What the function writes to the descriptor that it gets; less than a pipe holds.
template< class Write >
std::string written( Write write ) {
   int ends[2];
   if( pipe( ends ) != 0 ) {
      return "no pipe";
   }
   write( ends[1] );
   close( ends[1] );
   std::string text;
   char buffer[4096];
   for( ssize_t got; ( got = read( ends[0], buffer, sizeof buffer ) ) > 0; ) {
      text.append( buffer, static_cast< std::size_t >( got ) );
   }
   close( ends[0] );
   return text;
}

PyObject* asStr( std::string const& text ) {
   return PyString_FromStringAndSize( text.data(), static_cast< Py_ssize_t >( text.size() ) );
}

PyObject* printBacktrace( PyObject*, PyObject* fd ) {
   printPythonBacktrace( static_cast< int >( PyInt_AsLong( fd ) ) );
   Py_RETURN_NONE;
}

PyObject* report( PyObject*, PyObject* ) {
   return asStr( written( printPythonBacktrace ) );
}

PyObject* reportOfNativeThread( PyObject*, PyObject* ) {
   std::string text;
   std::thread( [&] { text = written( printPythonBacktrace ); } ).join();
   return asStr( text );
}

// As if no Python code ran in this thread any more.
PyObject* reportWithoutFrame( PyObject*, PyObject* ) {
   PyThreadState* const ts = PyThreadState_GET();
   PyFrameObject* const frame = std::exchange( ts->frame, nullptr );
   std::string const text = written( printPythonBacktrace );
   ts->frame = frame;
   return asStr( text );
}

// Makes the object the traceback of the exception being handled.
PyObject* setTraceback( PyObject*, PyObject* object ) {
   Py_INCREF( object );
   PyRef::steal( std::exchange( PyThreadState_GET()->exc_traceback, object ) );
   Py_RETURN_NONE;
}

// Puts numbers in the place of a code object's file and name, for good.
PyObject* forgetNames( PyObject*, PyObject* object ) {
   auto* code = reinterpret_cast< PyCodeObject* >( object );
   code->co_filename = PyInt_FromLong( 1 );
   code->co_name = PyInt_FromLong( 2 );
   Py_RETURN_NONE;
}

PyObject* stopOnQuiesce( PyObject*, PyObject* ) {
   return PyBool_FromLong( Kel::ActivityFacility::activityManagerConfig()->stopOnQuiesce() );
}

constinit PyMethodDef functions[] = {
   { "fault", fault, METH_NOARGS, nullptr },
   { "faultWithoutGil", faultWithoutGil, METH_NOARGS, nullptr },
   { "faultUnderLocks", faultUnderLocks, METH_NOARGS, nullptr },
   { "faultOnNativeThread", faultOnNativeThread, METH_NOARGS, nullptr },
   { "printBacktrace", printBacktrace, METH_O, nullptr },
   { "report", report, METH_NOARGS, nullptr },
   { "reportOfNativeThread", reportOfNativeThread, METH_NOARGS, nullptr },
   { "reportWithoutFrame", reportWithoutFrame, METH_NOARGS, nullptr },
   { "setTraceback", setTraceback, METH_O, nullptr },
   { "forgetNames", forgetNames, METH_O, nullptr },
   { "stopOnQuiesce", stopOnQuiesce, METH_NOARGS, nullptr },
   {},
};

} // namespace

extern "C" __attribute__( ( visibility( "default" ) ) ) void initkel_crash() {
   Py_InitModule( "kel_crash", functions );
}
