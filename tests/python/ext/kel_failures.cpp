// kel_failures: C++ exceptions of every sort, sent through the translator. GIL.
#include <kelpy/core/PyPython.h>

#include <unwind.h>

#include <cstring>
#include <stdexcept>

#include <kel/Exception.h>
#include <kelpy/core/PyFailure.h>
#include <kelpy/core/PyLock.h>
#include <kelpy/core/PyRef.h>
#include <kelpy/diagnostics/PyBacktrace.h>
#include <kelpy/reflection/PyKelAttr.h>
#include <kelpy/reflection/PyKelType.h>

namespace KelFailures {

struct Plain {};

// Seen by nobody else, and so with a name of its own sort.
namespace {
struct Hidden {};
} // namespace

class DerivedRange : public Kel::RangeException {
 public:
   using RangeException::RangeException;
};

class NewKind : public Kel::Exception {
 public:
   using Exception::Exception;
};

} // namespace KelFailures

namespace {

// An exception of another language, in whose front stand no things of C++.
struct Foreign {
   char before[256];
   _Unwind_Exception header;
};

[[noreturn]] void raiseForeign() {
   static Foreign foreign;
   std::memset( foreign.before, 0x11, sizeof foreign.before );
   std::memset( &foreign.header, 0, sizeof foreign.header );
   foreign.header.exception_class = 0x4b454c5445535400;
   _Unwind_RaiseException( &foreign.header );
   std::abort();
}

void setPending() {
   PyErr_SetString( PyExc_KeyError, "pending" );
}

struct Fault {
   char const* kind;
   void ( *raise )( char const* text );
};

template< class E >
void raiseText( char const* text ) {
   throw E( text );
}

constexpr Fault faults[] = {
   { "Kel::RangeException", raiseText< Kel::RangeException > },
   { "traced",
      []( char const* text ) { throw Kel::withBacktrace( Kel::RangeException( text ) ); } },
   { "errno", []( char const* text ) { throw Kel::ErrnoException( 2, text ); } },
   { "errno traced",
      []( char const* text ) { throw Kel::withBacktrace( Kel::ErrnoException( 2, text ) ); } },
   { "derived", raiseText< KelFailures::DerivedRange > },
   { "new kind", raiseText< KelFailures::NewKind > },
   { "logic_error", raiseText< std::logic_error > },
   { "bad_alloc", []( char const* ) { throw std::bad_alloc(); } },
   { "int", []( char const* ) { throw 7; } },
   { "text", []( char const* text ) { throw text; } },
   { "plain", []( char const* ) { throw KelFailures::Plain(); } },
   { "hidden", []( char const* ) { throw KelFailures::Hidden(); } },
   { "foreign", []( char const* ) { raiseForeign(); } },
   { "python, with an error",
      []( char const* ) {
         setPending();
         throw PythonException();
      } },
   { "python, without one", []( char const* ) { throw PythonException(); } },
   { "Kel, with a pending error",
      []( char const* text ) {
         setPending();
         throw Kel::RangeException( text );
      } },
   { "errno, with a pending error",
      []( char const* text ) {
         setPending();
         throw Kel::ErrnoException( 2, text );
      } },
   { "std, with a pending error",
      []( char const* text ) {
         setPending();
         throw std::runtime_error( text );
      } },
   { "int, with a pending error",
      []( char const* ) {
         setPending();
         throw 7;
      } },
};

void raiseKind( char const* kind, char const* text ) {
   for( Fault const& fault : faults ) {
      if( std::strcmp( fault.kind, kind ) == 0 ) {
         fault.raise( text );
      }
   }
}

void translateAs( PyObject* subject, char const* prefix ) {
   Kel::KelType type;
   Kel::KelAttr attr;
   if( subject && Py_TYPE( subject ) == &PyKelTypeType ) {
      type = reinterpret_cast< PyKelType* >( subject )->kelType;
      Kel::translateCppExceptionToPython( type, prefix );
   } else if( subject ) {
      attr = reinterpret_cast< PyKelAttr* >( subject )->kelAttr;
      Kel::translateCppExceptionToPython( attr, prefix );
   } else {
      Kel::translateCppExceptionToPython( prefix );
   }
}

// fail(kind, text, prefix[, subject]): throws and translates; the subject is a type or attribute.
PyObject* fail( PyObject*, PyObject* args ) {
   char const* kind = nullptr;
   char const* text = nullptr;
   char const* prefix = nullptr;
   PyObject* subject = nullptr;
   if( !PyArg_ParseTuple( args, "sss|O", &kind, &text, &prefix, &subject ) ) {
      return nullptr;
   }
   try {
      raiseKind( kind, text );
   } catch( ... ) {
      translateAs( subject, prefix );
      return nullptr;
   }
   Py_RETURN_NONE;
}

// The same from a frame that has released the GIL and holds the activity lock.
PyObject* failWithoutGil( PyObject*, PyObject* args ) {
   char const* kind = nullptr;
   char const* text = nullptr;
   if( !PyArg_ParseTuple( args, "ss", &kind, &text ) ) {
      return nullptr;
   }
   Kel::PyLockAnchor const locks( Kel::flags0 );
   try {
      raiseKind( kind, text );
   } catch( ... ) {
      Kel::translateCppExceptionToPython( "" );
   }
   return nullptr;
}

Kel::Ptr< Kel::Backtrace const > backtraceOf( int frames ) {
   if( frames < 0 ) {
      return nullptr;
   }
   void* addresses[64];
   for( void*& address : addresses ) {
      address = reinterpret_cast< void* >( &backtraceOf );
   }
   return Kel::Backtrace::fromAddresses( addresses, static_cast< unsigned >( frames ) );
}

// setBacktrace(cls, text, prefix, args, frames): PyErr_SetBacktrace of a RangeException with a
// backtrace of so many frames, -1 for none; args may be None.
PyObject* setBacktrace( PyObject*, PyObject* args ) {
   PyObject* cls = nullptr;
   char const* text = nullptr;
   char const* prefix = nullptr;
   PyObject* clsArgs = nullptr;
   int frames = 0;
   if( !PyArg_ParseTuple( args, "OssOi", &cls, &text, &prefix, &clsArgs, &frames ) ) {
      return nullptr;
   }
   Kel::RangeException exc( text );
   exc.backtraceIs( backtraceOf( frames ) );
   PyErr_SetBacktrace( cls, exc, prefix, clsArgs == Py_None ? nullptr : clsArgs );
   return nullptr;
}

// A _Kel.Backtrace of so many frames; -1 for that of a null pointer.
PyObject* backtrace( PyObject*, PyObject* args ) {
   int frames = 0;
   if( !PyArg_ParseTuple( args, "i", &frames ) ) {
      return nullptr;
   }
   return PyBacktrace_FromBacktrace( backtraceOf( frames ) );
}

constinit PyMethodDef functions[] = {
   { "fail", fail, METH_VARARGS, nullptr },
   { "failWithoutGil", failWithoutGil, METH_VARARGS, nullptr },
   { "setBacktrace", setBacktrace, METH_VARARGS, nullptr },
   { "backtrace", backtrace, METH_VARARGS, nullptr },
   {},
};

} // namespace

extern "C" __attribute__( ( visibility( "default" ) ) ) void initkel_failures() {
   Py_InitModule( "kel_failures", functions );
}
