#include <kelpy/core/PyRef.h>

#include "PythonError.h"

#include <kelpy/core/PyPendingError.h>

namespace {

// The pending error, pending no more.
struct TakenError {
   TakenError() {
      PyObject* parts[3] = {};
      PyErr_Fetch( &parts[0], &parts[1], &parts[2] );
      PyErr_NormalizeException( &parts[0], &parts[1], &parts[2] );
      type = PyRef::steal( parts[0] );
      value = PyRef::steal( parts[1] );
      traceback = PyRef::steal( parts[2] );
   }

   PyRef type;
   PyRef value;
   PyRef traceback;
};

PyObject* stream( char const* name ) {
   return PySys_GetObject( const_cast< char* >( name ) );
}

void writeLineToStderr( PyObject* object ) {
   if( PyObject* const out = stream( "stderr" ) ) {
      PyFile_WriteObject( object, out, Py_PRINT_RAW );
      PyErr_Clear();
   }
   PySys_WriteStderr( "\n" );
}

int statusOfSystemExit() {
   TakenError const error;
   PyRef const code = PyRef::steal( PyObject_GetAttrString( error.value.get(), "code" ) );
   PyErr_Clear();
   if( !code || code.get() == Py_None ) {
      return 0;
   }
   if( PyInt_Check( code.get() ) ) {
      return static_cast< int >( PyInt_AS_LONG( code.get() ) );
   }
   flushOutput();
   writeLineToStderr( code.get() );
   return 1;
}

} // namespace

int statusOfPythonError() {
   if( PyErr_ExceptionMatches( PyExc_SystemExit ) ) {
      return statusOfSystemExit();
   }
   PyErr_Print();
   flushOutput();
   return 1;
}

std::string textOfPythonError() {
   TakenError const error;
   PyRef const text = PyRef::steal( error.value ? PyObject_Str( error.value.get() ) : nullptr );
   char const* const bytes = text ? PyString_AsString( text.get() ) : nullptr;
   std::string const words = bytes ? bytes : "";
   PyErr_Clear();
   return words.empty() ? reinterpret_cast< PyTypeObject* >( error.type.get() )->tp_name : words;
}

void flushOutput() {
   PendingErrorAnchor const pending;
   for( char const* name : { "stderr", "stdout" } ) {
      if( PyObject* const out = stream( name ) ) {
         PyRef::steal( PyObject_CallMethod( out, const_cast< char* >( "flush" ), nullptr ) );
         PyErr_Clear();
      }
   }
}
