#include "Server.h"

#include "PythonError.h"
#include "Watcher.h"

namespace {

PyRef textOrNone( std::optional< std::string > const& text ) {
   return text ? PyRef::steal( PyString_FromString( text->c_str() ) ) : PyRef::borrow( Py_None );
}

PyRef numberOrNone( std::optional< int > number ) {
   return number ? PyRef::steal( PyInt_FromLong( *number ) ) : PyRef::borrow( Py_None );
}

PyRef keywords( AgentOptions const& options ) {
   return PyRef::steal( Py_BuildValue( "{s:s,s:s,s:N,s:N,s:N}", "group", options.name.group.c_str(),
      "name", options.name.name.c_str(), "subsystemId",
      textOrNone( options.name.subsystem ).release(), "socketName",
      textOrNone( options.socket ).release(), "port", numberOrNone( options.port ).release() ) );
}

PyRef call( PyObject* object, char const* method ) {
   return PyRef::steal( PyObject_CallMethod( object, const_cast< char* >( method ), nullptr ) );
}

// Empty if there is none.
std::string attribute( PyObject* object, char const* name ) {
   PyRef const value = PyRef::steal( PyObject_GetAttrString( object, name ) );
   char const* const text =
      value && PyString_Check( value.get() ) ? PyString_AsString( value.get() ) : "";
   PyErr_Clear();
   return text;
}

} // namespace

bool Server::start( AgentOptions const& options ) {
   PyRef const module = PyRef::steal( PyImport_ImportModule( "PyServer" ) );
   PyRef const type =
      PyRef::steal( module ? PyObject_GetAttrString( module.get(), "PyServer" ) : nullptr );
   PyRef const arguments = PyRef::steal( PyTuple_New( 0 ) );
   PyRef const named = keywords( options );
   if( !type || !arguments || !named ) {
      return false;
   }
   object_ = PyRef::steal( PyObject_Call( type.get(), arguments.get(), named.get() ) );
   if( !object_ || !call( object_.get(), "start" ) ) {
      return false;
   }
   leavingsAre( attribute( object_.get(), "agentFile" ), attribute( object_.get(), "socketName" ) );
   return true;
}

void Server::stop() {
   if( object_ && !call( object_.get(), "stop" ) ) {
      PyErr_Print();
   }
   object_ = PyRef();
}
