// kel_client: the class Client, a client of an agent, for tests against servers of all kinds. The
// GIL stays held while a client blocks, so that a server has to be another process.
#include <kelpy/core/PyPython.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <kel/Exception.h>
#include <kelpy/PyClient.h>
#include <kelpy/core/PyFailure.h>
#include <kelpy/core/PyRef.h>

namespace {

struct Client {
   PyObject_HEAD
   struct Held {
      std::string subsystemId; // outlives the client, which keeps the pointer
      Kel::Ptr< Kel::PyClient > client;
   } * held;
};

// Null, with an error raised, if the client could not be made.
Kel::PyClient* clientOf( PyObject* self ) {
   auto const* const held = reinterpret_cast< Client* >( self )->held;
   if( !held || !held->client ) {
      PyErr_SetString( PyExc_ValueError, "this client was not made" );
      return nullptr;
   }
   return held->client.get();
}

// The result of the body, with the exceptions of the runtime raised in Python.
template< class Body >
PyObject* guarded( PyObject* self, Body body ) noexcept {
   Kel::PyClient* const client = clientOf( self );
   if( !client ) {
      return nullptr;
   }
   try {
      return body( *client );
   } catch( ... ) {
      Kel::translateCppExceptionToPython( "" );
      return nullptr;
   }
}

// Client(group=, name=, socket=, port=, greeting="x", subsystem=, init=): by group and name, by
// socket or by port.
int Client_init( PyObject* self, PyObject* args, PyObject* keywords ) {
   static char const* const names[] = { "group", "name", "socket", "port", "greeting", "subsystem",
      "init", nullptr };
   char const *group = nullptr, *name = nullptr, *socket = nullptr, *subsystem = nullptr,
              *init = nullptr;
   int port = 0;
   char greeting = 'x';
   if( !PyArg_ParseTupleAndKeywords( args, keywords, "|zzziczz", const_cast< char** >( names ),
          &group, &name, &socket, &port, &greeting, &subsystem, &init ) ) {
      return -1;
   }
   try {
      auto made = std::make_unique< Client::Held >();
      if( subsystem ) {
         made->subsystemId = subsystem;
         subsystem = made->subsystemId.c_str();
      }
      if( group ) {
         made->client = new Kel::PyClient( group, name, greeting, subsystem, init );
      } else if( socket ) {
         made->client = new Kel::PyClient( socket, greeting, init );
      } else {
         made->client = new Kel::PyClient( port, greeting, init );
      }
      delete std::exchange( reinterpret_cast< Client* >( self )->held, made.release() );
      return 0;
   } catch( ... ) {
      Kel::translateCppExceptionToPython( "" );
      return -1;
   }
}

void Client_dealloc( PyObject* self ) {
   delete reinterpret_cast< Client* >( self )->held;
   Py_TYPE( self )->tp_free( self );
}

// eval(text, size=4096), execute(text, size=4096): the result, as many bytes as came.
template< int ( Kel::PyClient::*operation )( char const*, char*, int ) >
PyObject* Client_command( PyObject* self, PyObject* args ) {
   char const* text = nullptr;
   int size = 4096;
   if( !PyArg_ParseTuple( args, "s|i", &text, &size ) ) {
      return nullptr;
   }
   return guarded( self, [=]( Kel::PyClient& client ) {
      std::vector< char > buffer( static_cast< std::size_t >( std::max( size, 1 ) ) );
      int const count = ( client.*operation )( text, buffer.data(), size );
      return PyString_FromStringAndSize( buffer.data(), std::max( count, 0 ) );
   } );
}

PyObject* Client_connect( PyObject* self, PyObject* ) {
   return guarded( self, []( Kel::PyClient& client ) {
      client.connect();
      return PyRef::borrow( Py_None ).release();
   } );
}

// serverContacts(path): the pair of port and socket name.
PyObject* Client_serverContacts( PyObject* self, PyObject* args ) {
   char const* path = nullptr;
   if( !PyArg_ParseTuple( args, "s", &path ) ) {
      return nullptr;
   }
   return guarded( self, [=]( Kel::PyClient& client ) {
      Kel::PyServerContacts contacts;
      client.serverContacts( path, &contacts );
      return Py_BuildValue( "is", contacts.port, contacts.socketName.charPtr() );
   } );
}

PyObject* asObject( int value ) {
   return PyInt_FromLong( value );
}
PyObject* asObject( bool value ) {
   return PyBool_FromLong( value );
}
PyObject* asObject( Kel::String const& value ) {
   return PyString_FromStringAndSize( value.charPtr(), value.length() );
}

// A data member.
template< auto member >
PyObject* Client_get( PyObject* self, void* ) {
   return guarded( self, []( Kel::PyClient& client ) { return asObject( client.*member ); } );
}

int Client_noReconnect_set( PyObject* self, PyObject* value, void* ) {
   Kel::PyClient* const client = clientOf( self );
   int const truth = client && value ? PyObject_IsTrue( value ) : -1;
   if( truth >= 0 ) {
      client->noReconnect_ = truth;
   }
   return truth < 0 ? -1 : 0;
}

// retryProfileIs(pauses): milliseconds, without the zero at the end.
PyObject* retryProfileIs( PyObject*, PyObject* pauses ) {
   static std::vector< unsigned int > profile;
   std::vector< unsigned int > wanted;
   PyRef const list = PyRef::steal( PySequence_Fast( pauses, "a sequence is wanted" ) );
   for( Py_ssize_t i = 0; list && i < PySequence_Fast_GET_SIZE( list.get() ); ++i ) {
      wanted.push_back(
         static_cast< unsigned int >( PyInt_AsLong( PySequence_Fast_GET_ITEM( list.get(), i ) ) ) );
   }
   if( PyErr_Occurred() ) {
      return nullptr;
   }
   wanted.push_back( 0 );
   profile = std::move( wanted );
   Kel::PyClient::retryProfileIs( profile.data() );
   Py_RETURN_NONE;
}

constinit PyMethodDef Client_methods[] = {
   { "eval", Client_command< &Kel::PyClient::eval >, METH_VARARGS, nullptr },
   { "execute", Client_command< &Kel::PyClient::execute >, METH_VARARGS, nullptr },
   { "connect", Client_connect, METH_NOARGS, nullptr },
   { "serverContacts", Client_serverContacts, METH_VARARGS, nullptr },
   {},
};

// Python 2.7 wants names that it could write to.
template< auto member >
PyGetSetDef readOnly( char const* name ) {
   return { const_cast< char* >( name ), Client_get< member >, nullptr, nullptr, nullptr };
}

PyGetSetDef Client_getset[] = {
   readOnly< &Kel::PyClient::agentGroup_ >( "agentGroup" ),
   readOnly< &Kel::PyClient::agentName_ >( "agentName" ),
   readOnly< &Kel::PyClient::serverName_ >( "serverName" ),
   readOnly< &Kel::PyClient::port_ >( "port" ),
   readOnly< &Kel::PyClient::socketName_ >( "socketName" ),
   readOnly< &Kel::PyClient::initCommand_ >( "initCommand" ),
   readOnly< &Kel::PyClient::sock_ >( "sock" ),
   readOnly< &Kel::PyClient::connected_ >( "connected" ),
   readOnly< &Kel::PyClient::sameProcess_ >( "sameProcess" ),
   { const_cast< char* >( "noReconnect" ), Client_get< &Kel::PyClient::noReconnect_ >,
      Client_noReconnect_set, nullptr, nullptr },
   {},
};

constinit PyTypeObject ClientType = {
   .ob_refcnt = 1,
   .tp_name = "kel_client.Client",
   .tp_basicsize = sizeof( Client ),
   .tp_dealloc = Client_dealloc,
   .tp_flags = Py_TPFLAGS_DEFAULT,
   .tp_methods = Client_methods,
   .tp_getset = Client_getset,
   .tp_init = Client_init,
   .tp_new = PyType_GenericNew,
};

constinit PyMethodDef functions[] = {
   { "retryProfileIs", retryProfileIs, METH_O, nullptr },
   {},
};

} // namespace

extern "C" __attribute__( ( visibility( "default" ) ) ) void initkel_client() {
   PyObject* const module = Py_InitModule( "kel_client", functions );
   if( module && PyType_Ready( &ClientType ) == 0 ) {
      Py_INCREF( &ClientType );
      PyModule_AddObject( module, "Client", reinterpret_cast< PyObject* >( &ClientType ) );
   }
}
