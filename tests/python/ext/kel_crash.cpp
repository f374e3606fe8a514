// kel_crash: crashes of every sort, and the Python part of a crash report by itself. GIL.
#include <kelpy/core/PyPython.h>

#include <alloca.h>
#include <frameobject.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include <kel/Activity.h>
#include <kel/CrashReport.h>
#include <kelpy/core/PyLock.h>
#include <kelpy/core/PyRef.h>
#include <kelpy/diagnostics/PyBacktrace.h>

namespace {

// The compiler must not see where it points.
int volatile* volatile nowhere = nullptr;

[[gnu::noinline]] void writeToNull() {
   *nowhere = 1;
}

// Behind the end of a file that is mapped.
void busError() {
   char name[] = "/tmp/kel-crash-XXXXXX";
   int const file = mkstemp( name );
   unlink( name );
   void* const page = mmap( nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0 );
   *static_cast< int volatile* >( page ) = 1;
}

void divideByZero() {
   int volatile number = 1000;
   int const volatile zero = 0;
   number = number / zero;
}

[[noreturn]] void throwUncaught() {
   throw std::runtime_error( "nobody catches this" );
}

[[gnu::noinline]] int overflowStack( int depth ) {
   char* const volatile block = static_cast< char* >( alloca( 4096 ) );
   std::memset( block, depth, 4096 );
   return depth < 0 ? 0 : overflowStack( depth + 1 ) + block[17];
}

// The C library finds its lists broken as it looks for memory, and aborts with its lock held: each
// further allocation of this thread would wait for good. Again until it does: a block among others
// that are free is joined with them, and its size is not looked at any more.
void breakHeap() {
   constexpr std::size_t size = 2000; // goes to no list of the thread's own
   for( ;; ) {
      void* const broken = std::malloc( size );
      // Not in its place, and not the end of the heap.
      nowhere = static_cast< int volatile* >( std::malloc( size ) );
      // Its size, which the compiler must not see this write to.
      std::uintptr_t const volatile sizeOfBroken =
         reinterpret_cast< std::uintptr_t >( broken ) - sizeof size;
      std::free( broken );
      *reinterpret_cast< std::size_t volatile* >( sizeOfBroken ) = ~std::size_t{ 0 };
      nowhere = static_cast< int volatile* >( std::malloc( 20 * size ) );
   }
}

struct Way {
   char const* name;
   void ( *crash )();
};

constexpr Way ways[] = { { "segv", writeToNull }, { "abort", [] { std::abort(); } },
   { "bus", busError }, { "fpe", divideByZero }, { "exception", throwUncaught },
   { "overflow",
      [] {
         Kel::crashStackForThread();
         overflowStack( 0 );
      } },
   { "malloc", breakHeap } };

void crashBy( char const* name ) {
   for( Way const& way : ways ) {
      if( std::strcmp( way.name, name ) == 0 ) {
         way.crash();
      }
   }
}

// crash( way ), with the GIL, without it, and on a thread that Python never saw.
PyObject* crash( PyObject*, PyObject* way ) {
   crashBy( PyString_AsString( way ) );
   Py_RETURN_NONE;
}

PyObject* crashWithoutGil( PyObject*, PyObject* way ) {
   char const* const name = PyString_AsString( way );
   Kel::GilUnlockAnchor const gil;
   crashBy( name );
   Py_RETURN_NONE;
}

PyObject* crashOnNativeThread( PyObject*, PyObject* way ) {
   char const* const name = PyString_AsString( way );
   Kel::GilUnlockAnchor const gil;
   std::thread( crashBy, name ).join();
   Py_RETURN_NONE;
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
   { "crash", crash, METH_O, nullptr },
   { "crashWithoutGil", crashWithoutGil, METH_O, nullptr },
   { "crashOnNativeThread", crashOnNativeThread, METH_O, nullptr },
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
