// kel_failing: lets the allocations of the module and of the runtime fail. Imported ahead of _Kel,
// it stands between the two libraries and whatever they allocate with: malloc, operator new, and
// the interpreter's functions that make objects. One thread. GIL.
#include <kelpy/core/PyPython.h>

#include <dlfcn.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "GotPatch.h"

namespace {

long armedThread_ = 0; // 0: nothing fails
bool isForEver_ = false;
unsigned long asked_ = 0;
unsigned long failing_ = 0; // the number of the first that fails
unsigned long failed_ = 0;

bool fails() {
   if( !armedThread_ || syscall( SYS_gettid ) != armedThread_ ) {
      return false;
   }
   auto const number = asked_++;
   bool const result = isForEver_ ? number >= failing_ : number == failing_;
   failed_ += result;
   return result;
}

void* failingMalloc( std::size_t size ) {
   return fails() ? ( errno = ENOMEM, nullptr ) : std::malloc( size );
}
void* failingCalloc( std::size_t count, std::size_t size ) {
   return fails() ? ( errno = ENOMEM, nullptr ) : std::calloc( count, size );
}
void* failingRealloc( void* block, std::size_t size ) {
   return fails() ? ( errno = ENOMEM, nullptr ) : std::realloc( block, size );
}
char* failingStrdup( char const* text ) {
   return fails() ? ( errno = ENOMEM, nullptr ) : strdup( text );
}
void* failingNew( std::size_t size ) {
   if( fails() ) {
      throw std::bad_alloc();
   }
   return ::operator new( size );
}

// The interpreter's function, and what it gives when memory has run out.
template< auto function, bool setsError = true >
struct Failing;

template< class Result, class... Args, Result ( *function )( Args... ), bool setsError >
struct Failing< function, setsError > {
   static Result call( Args... args ) {
      if( !fails() ) {
         return function( args... );
      }
      if( setsError ) {
         PyErr_NoMemory();
      }
      if constexpr( std::is_pointer_v< Result > ) {
         return nullptr;
      } else {
         return -1;
      }
   }
};

PyObject* failingFormat( char const* format, ... ) {
   if( fails() ) {
      return PyErr_NoMemory();
   }
   va_list arguments;
   va_start( arguments, format );
   PyObject* const result = PyString_FromFormatV( format, arguments );
   va_end( arguments );
   return result;
}

// What it takes over it has taken over, also where it fails.
PyObject* failingBuild( char const* format, ... ) {
   va_list arguments;
   va_start( arguments, format );
   PyObject* const result = Py_VaBuildValue( format, arguments );
   va_end( arguments );
   if( fails() ) {
      Py_XDECREF( result );
      return PyErr_NoMemory();
   }
   return result;
}

// Instances come through their type.
int failingReady( PyTypeObject* type ) {
   int const result = PyType_Ready( type );
   if( result == 0 && type->tp_alloc == PyType_GenericAlloc ) {
      type->tp_alloc = Failing< PyType_GenericAlloc >::call;
   }
   return result;
}

struct Replacement {
   char const* name;
   void* by;
};

template< auto function, bool setsError = true >
void* failing() {
   return reinterpret_cast< void* >( Failing< function, setsError >::call );
}

Replacement const replacements[] = {
   { "malloc", reinterpret_cast< void* >( failingMalloc ) },
   { "calloc", reinterpret_cast< void* >( failingCalloc ) },
   { "realloc", reinterpret_cast< void* >( failingRealloc ) },
   { "strdup", reinterpret_cast< void* >( failingStrdup ) },
   { "_Znwm", reinterpret_cast< void* >( failingNew ) },
   { "PyType_Ready", reinterpret_cast< void* >( failingReady ) },
   { "PyString_FromFormat", reinterpret_cast< void* >( failingFormat ) },
   { "_Py_BuildValue_SizeT", reinterpret_cast< void* >( failingBuild ) },
   { "PyMem_Malloc", failing< PyMem_Malloc, false >() },
   { "_PyObject_New", failing< _PyObject_New >() },
   { "PyCFunction_NewEx", failing< PyCFunction_NewEx >() },
   { "PyDict_New", failing< PyDict_New >() },
   { "PyDict_SetItem", failing< PyDict_SetItem >() },
   { "PyDict_SetItemString", failing< PyDict_SetItemString >() },
   { "PyFloat_FromDouble", failing< PyFloat_FromDouble >() },
   { "PyInt_FromLong", failing< PyInt_FromLong >() },
   { "PyList_New", failing< PyList_New >() },
   { "PyLong_FromLong", failing< PyLong_FromLong >() },
   { "PyLong_FromUnsignedLong", failing< PyLong_FromUnsignedLong >() },
   { "PyLong_FromUnsignedLongLong", failing< PyLong_FromUnsignedLongLong >() },
   { "PyObject_GetIter", failing< PyObject_GetIter >() },
   { "PyObject_Repr", failing< PyObject_Repr >() },
   { "PyObject_Str", failing< PyObject_Str >() },
   { "PySequence_List", failing< PySequence_List >() },
   { "PyString_FromString", failing< PyString_FromString >() },
   { "PyString_FromStringAndSize", failing< PyString_FromStringAndSize >() },
   { "PyString_InternFromString", failing< PyString_InternFromString >() },
   { "PyTuple_New", failing< PyTuple_New >() },
   { "PyUnicodeUCS4_AsUTF8String", failing< PyUnicode_AsUTF8String >() },
   { "PyWeakref_NewRef", failing< PyWeakref_NewRef >() },
};

// arm(number, forEver): that allocation of this thread fails, or each from that one on.
PyObject* arm( PyObject*, PyObject* args ) {
   int forEver = 0;
   if( !PyArg_ParseTuple( args, "ki:arm", &failing_, &forEver ) ) {
      return nullptr;
   }
   isForEver_ = forEver;
   asked_ = failed_ = 0;
   armedThread_ = syscall( SYS_gettid );
   Py_RETURN_NONE;
}

// disarm(): how many were asked for, and how many of them failed.
PyObject* disarm( PyObject*, PyObject* ) {
   armedThread_ = 0;
   return Py_BuildValue( "(kk)", asked_, failed_ );
}

constinit PyMethodDef functions[] = {
   { "arm", arm, METH_VARARGS, "From now on allocations fail." },
   { "disarm", disarm, METH_NOARGS, "(asked for, failed)" },
   {},
};

// A function of a library of ours, which lies beside this one and gets loaded.
void* functionOf( char const* library, char const* function ) {
   Dl_info own;
   dladdr( reinterpret_cast< void* >( arm ), &own );
   std::string path = own.dli_fname;
   path.replace( path.rfind( '/' ) + 1, std::string::npos, library );
   void* const handle = dlopen( path.c_str(), RTLD_NOW );
   return handle ? dlsym( handle, function ) : nullptr;
}

} // namespace

extern "C" __attribute__( ( visibility( "default" ) ) ) void initkel_failing() {
   LoadedLibrary const module( functionOf( "libKelPy.so", "init_Kel" ) );
   LoadedLibrary const runtime( functionOf( "libkel.so.1", "_ZN3Kel8typeNodeEPKc" ) );
   unsigned replaced = 0;
   for( auto const [name, by] : replacements ) {
      replaced += module.replace( name, by ) + runtime.replace( name, by );
   }
   if( replaced < std::size( replacements ) ) {
      PyErr_SetString( PyExc_ImportError, "the libraries allocate in another way" );
      return;
   }
   Py_InitModule( "kel_failing", functions );
}
