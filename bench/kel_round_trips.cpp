// Round trips between two processes over a unix stream socket: commands of Kel::PyClient to an
// agent, and bare ping-pong with the bytes of the smallest command and its reply.
#include <Python.h>

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <kel/Exception.h>
#include <kelpy/PyClient.h>

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince( Clock::time_point start ) {
   return std::chrono::duration< double >( Clock::now() - start ).count();
}

constexpr int requestBytes = 7; // header, length, "1"
constexpr int replyBytes = 7;   // length, status, "1"

// Answers each request until the other end closes.
void echo( int sock ) {
   char bytes[requestBytes] = {};
   while( recv( sock, bytes, requestBytes, MSG_WAITALL ) == requestBytes &&
          send( sock, bytes, replyBytes, 0 ) == replyBytes ) {
   }
   _exit( 0 );
}

double pingPong( int sock, int count ) {
   char bytes[requestBytes] = {};
   auto const start = Clock::now();
   for( int i = 0; i < count; ++i ) {
      if( send( sock, bytes, requestBytes, 0 ) != requestBytes ||
          recv( sock, bytes, replyBytes, MSG_WAITALL ) != replyBytes ) {
         return -1;
      }
   }
   return secondsSince( start );
}

PyObject* pings( PyObject*, PyObject* args ) {
   int count;
   int ends[2];
   if( !PyArg_ParseTuple( args, "i:pings", &count ) ) {
      return nullptr;
   }
   if( socketpair( AF_UNIX, SOCK_STREAM, 0, ends ) != 0 ) {
      return PyErr_SetFromErrno( PyExc_OSError );
   }
   pid_t const child = fork();
   if( child == 0 ) {
      close( ends[0] );
      echo( ends[1] );
   }
   close( ends[1] );
   double const seconds = child > 0 ? pingPong( ends[0], count ) : -1;
   close( ends[0] );
   if( child > 0 ) {
      waitpid( child, nullptr, 0 );
   }
   return seconds < 0 ? PyErr_SetFromErrno( PyExc_OSError ) : PyFloat_FromDouble( seconds );
}

void evalOften( Kel::PyClient& client, int count ) {
   char result[64];
   for( int i = 0; i < count; ++i ) {
      client.eval( "1", result, sizeof result );
   }
}

// All clients at once, each on a thread of its own.
double evalsOfClients( char const* socketName, int count, int clients ) {
   std::vector< Kel::Ptr< Kel::PyClient > > connected;
   for( int i = 0; i < clients; ++i ) {
      connected.emplace_back( new Kel::PyClient( Kel::String( socketName ), 'b', nullptr ) );
   }
   std::vector< std::thread > threads;
   auto const start = Clock::now();
   for( auto const& client : connected ) {
      threads.emplace_back( [&client, count] { evalOften( *client, count ); } );
   }
   for( auto& thread : threads ) {
      thread.join();
   }
   return secondsSince( start );
}

PyObject* evals( PyObject*, PyObject* args ) {
   char const* socketName;
   int count, clients;
   if( !PyArg_ParseTuple( args, "sii:evals", &socketName, &count, &clients ) ) {
      return nullptr;
   }
   PyThreadState* const state = PyEval_SaveThread();
   double seconds = -1;
   std::string failure;
   try {
      seconds = evalsOfClients( socketName, count, clients );
   } catch( Kel::Exception const& exception ) {
      failure = exception.message().charPtr();
   }
   PyEval_RestoreThread( state );
   if( seconds < 0 ) {
      PyErr_SetString( PyExc_RuntimeError, failure.c_str() );
      return nullptr;
   }
   return PyFloat_FromDouble( seconds );
}

PyMethodDef functions[] = {
   { "pings", pings, METH_VARARGS, "pings( count ): seconds of bare round trips." },
   { "evals", evals, METH_VARARGS,
      "evals( socketName, count, clients ): seconds of `count` commands by each client." },
   { nullptr, nullptr, 0, nullptr },
};

} // namespace

extern "C" __attribute__( ( visibility( "default" ) ) ) void initkel_round_trips() {
   PyEval_InitThreads();
   Py_InitModule( "kel_round_trips", functions );
}
