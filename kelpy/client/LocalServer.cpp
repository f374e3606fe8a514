// Commands for this very process. Python's error is cleared before each throw, and its texts reach
// the trace only.
#include <kelpy/notify/PyObjHandle.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include <kel/Assert.h>
#include <kel/Exception.h>
#include <kelpy/client/PyClient.h>
#include <kelpy/client/Sockets.h>
#include <kelpy/core/PyLock.h>
#include <kelpy/core/PyRef.h>

namespace Kel {

namespace {

// A handle on a new reference, or on nothing for null.
Ptr< PyObjHandle > held( PyObject* object ) {
   PyRef reference = PyRef::steal( object );
   auto handle = PyObjHandle::PyObjHandleIs( reference.get(), true );
   static_cast< void >( reference.release() );
   return handle;
}

// The text of the object; `out` stays as it is for null, and where Python fails to make one.
void PyObjToString( PyObject* object, String* out ) {
   if( !object ) {
      return;
   }
   PyRef const text = PyRef::steal( PyObject_Str( object ) );
   if( text && PyString_Check( text.get() ) ) {
      *out = String( PyString_AS_STRING( text.get() ),
         static_cast< std::size_t >( PyString_GET_SIZE( text.get() ) ) );
   }
}

// Takes the pending error away. Its three objects live on to the end of the process: what a
// traceback holds must not end here, in the midst of a failure.
void GetStringsFromPyErr( String* type, String* value, String* traceback ) {
   PyObject *typeObject = nullptr, *valueObject = nullptr, *tracebackObject = nullptr;
   PyErr_Fetch( &typeObject, &valueObject, &tracebackObject );
   PyObjToString( typeObject, type );
   PyObjToString( valueObject, value );
   PyObjToString( tracebackObject, traceback );
}

[[noreturn]] void failFromPyErr( String const& text ) {
   String type, value, traceback;
   GetStringsFromPyErr( &type, &value, &traceback );
   KEL_TRACE( _defaultTraceHandle(), trace0 )
      << text << ": " << type << ", " << value << ", " << traceback;
   PyErr_Clear();
   throw RpcException( text );
}

// A new reference on the class that `module` offers.
PyRef localServerClass( PyObject* module ) {
   PyObject* const dict = PyModule_Check( module ) ? PyModule_GetDict( module ) : nullptr;
   PyObject* const found = dict ? PyDict_GetItemString( dict, "_LocalServer" ) : nullptr;
   if( !found || !PyType_Check( found ) ) {
      char const text[] = "PyServer._LocalServer is not a type";
      KEL_TRACE( _defaultTraceHandle(), trace0 ) << text;
      throw RpcException( text );
   }
   return PyRef::borrow( found );
}

} // namespace

void PyClient::constructLocalServer() {
   KEL_TRACE( _defaultTraceHandle(), trace1 ) << "Instantiating a PyServer._LocalServer";
   auto const module = held( PyImport_ImportModule( "PyServer" ) );
   if( !module->pyObject() ) {
      failFromPyErr( "Error occurred importing PyServer" );
   }
   PyRef const cls = localServerClass( module->pyObject() );
   localServer_ = held( PyObject_CallObject( cls.get(), nullptr ) );
   if( PyErr_Occurred() ) {
      failFromPyErr( "Error occurred instantiating _LocalServer" );
   }
}

int PyClient::localCmd( char const* command, char const* header, char* result, int resultSize ) {
   KEL_TRACE( _defaultTraceHandle(), trace1 )
      << "Executing command locally (in same address space)";
   GilAnchor const gil;
   if( !localServer_ || !localServer_->pyObject() ) {
      constructLocalServer();
   }
   String const name = std::string_view( header ) == "?1" ? "doEval" : "doExec";
   auto const method = held( PyObject_GetAttrString( localServer_->pyObject(), name.charPtr() ) );
   if( PyErr_Occurred() ) {
      failFromPyErr( name + " attribute not found on _LocalServer instance" );
   }
   auto const text = held( PyString_FromString( command ) );
   auto const value = held( text->pyObject() ? PyObject_CallFunctionObjArgs(
                                                  method->pyObject(), text->pyObject(), nullptr )
                                             : nullptr );
   if( PyErr_Occurred() ) {
      failFromPyErr( "Error calling " + name + " on _LocalServer instance" );
   }
   char* resultStr = nullptr;
   Py_ssize_t length = 0;
   int const r = PyString_AsStringAndSize( value->pyObject(), &resultStr, &length );
   KEL_ASSERT( r >= 0 );
   KEL_ASSERT( resultStr );
   auto const n = std::clamp< Py_ssize_t >( length, 0, std::max( resultSize, 0 ) );
   std::copy_n( resultStr, n, result );
   return static_cast< int >( n );
}

} // namespace Kel
