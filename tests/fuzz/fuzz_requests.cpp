// PyServer's handling of a connection, by request_driver.py in an embedded interpreter. Lines of
// PyServer that follow one another guide the engine, as branches do in C++.
#include <Python.h>

#include <frameobject.h>

#include <cstring>

#include "Fuzz.h"

namespace {

constexpr std::size_t counterCount = 1 << 14;

// A section that the engine reads after each input.
[[gnu::section( "__libfuzzer_extra_counters" ),
   gnu::used]] constinit std::uint8_t counters[counterCount] = {};

// A number for a file of PyServer, 0 for any other.
std::size_t fileNumber( PyCodeObject const* code ) {
   char const* const path = PyString_AS_STRING( code->co_filename );
   char const* const slash = std::strrchr( path, '/' );
   std::string_view const name = slash ? slash + 1 : path;
   return name.starts_with( "_PyServer" ) ? std::hash< std::string_view >{}( name ) | 1 : 0;
}

int countLine( PyObject*, PyFrameObject* frame, int what, PyObject* ) {
   static std::size_t before = 0;
   static PyCodeObject const* code = nullptr;
   static std::size_t number = 0; // of the file of `code`
   if( what != PyTrace_LINE ) {
      return 0;
   }
   if( code != frame->f_code ) {
      code = frame->f_code;
      number = fileNumber( code );
   }
   if( number ) {
      std::size_t const place = ( number + static_cast< std::size_t >( frame->f_lineno ) ) * 40503;
      std::uint8_t& counter = counters[( place ^ before >> 1 ) % counterCount];
      counter = counter == 255 ? counter : std::uint8_t( counter + 1 );
      before = place;
   }
   return 0;
}

[[noreturn]] void pythonFault() {
   PyObject *type = nullptr, *value = nullptr, *traceback = nullptr;
   PyErr_Fetch( &type, &value, &traceback );
   PyObject* const text = value ? PyObject_Str( value ) : nullptr;
   std::string const reason = text && PyString_Check( text ) ? PyString_AS_STRING( text ) : "";
   PyErr_Restore( type, value, traceback );
   PyErr_Print();
   fault( reason );
}

// The driver's function; a new reference for the whole process.
PyObject* startPython() {
   Py_DontWriteBytecodeFlag = 1;
   Py_InitializeEx( 0 );
   char path[] = "path";
   for( char const* const folder : { KEL_FUZZ_FOLDER, KEL_FUZZ_MODULES } ) {
      PyObject* const text = PyString_FromString( folder );
      PyList_Insert( PySys_GetObject( path ), 0, text );
      Py_DECREF( text );
   }
   PyObject* const driver = PyImport_ImportModule( "request_driver" );
   PyObject* const run = driver ? PyObject_GetAttrString( driver, "run" ) : nullptr;
   if( !run ) {
      pythonFault();
   }
   PyEval_SetTrace( countLine, nullptr );
   return run;
}

} // namespace

// An interpreter keeps some of its memory to the end.
extern "C" char const* __asan_default_options() {
   return "detect_leaks=0";
}

extern "C" int LLVMFuzzerInitialize( int*, char*** ) {
   startFuzzer();
   return 0;
}

extern "C" int LLVMFuzzerTestOneInput( std::uint8_t const* data, std::size_t size ) {
   static PyObject* const run = startPython();
   PyObject* const input = PyString_FromStringAndSize(
      reinterpret_cast< char const* >( data ), static_cast< Py_ssize_t >( size ) );
   PyObject* const result = PyObject_CallFunctionObjArgs( run, input, nullptr );
   if( !result ) {
      pythonFault();
   }
   Py_DECREF( result );
   Py_DECREF( input );
   return 0;
}
