#include <kelpy/core/PyRef.h>

#include "EndSignals.h"

#include <csignal>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include <kel/Activity.h>

#include "PythonError.h"
#include "Watcher.h"

namespace {

struct EndSignal {
   int number;
   struct sigaction before; // what the handler in C stands before: Python's, perhaps behind _Kel's
   PyObject* inPython;      // Python's handler while the script sets none; kept for good
};

constinit EndSignal endSignals[] = { { SIGINT, {}, nullptr }, { SIGTERM, {}, nullptr } };
constinit pid_t agentProcess = 0;
constinit int watcherPipe = -1;
constinit std::atomic< bool > scriptRuns = true;
constinit std::atomic< bool > endIsAsked = false;

EndSignal const& endSignal( int number ) {
   return endSignals[number == endSignals[0].number ? 0 : 1];
}

// Signal context.
void askForEnd( int number ) {
   int const kept = errno;
   endIsAsked = true;
   Kel::ActivityFacility::activityManagerConfig()->stopOnQuiesceIs( true );
   char const byte = static_cast< char >( number );
   [[maybe_unused]] ssize_t const written = write( watcherPipe, &byte, 1 );
   errno = kept;
}

// Signal context. A forked process has the handler until it calls exec: SIGTERM ends it as it would
// without one, SIGINT does what it does in Python.
void onEndSignal( int number ) {
   bool const forked = !isAgentProcess();
   if( !forked ) {
      askForEnd( number );
   } else if( number == SIGTERM ) {
      std::signal( SIGTERM, SIG_DFL );
      std::raise( SIGTERM );
      return;
   }
   if( forked || scriptRuns ) {
      endSignal( number ).before.sa_handler( number );
   }
}

// Python's handler of SIGTERM, and once the script is done of SIGINT too.
PyObject* onEndSignalInPython( PyObject*, PyObject* args ) {
   int number = 0;
   PyObject* frame = nullptr;
   if( !PyArg_ParseTuple( args, "iO:endSignal", &number, &frame ) ) {
      return nullptr;
   }
   if( isAgentProcess() && !scriptRuns ) {
      askForEnd( number );
      Py_RETURN_NONE;
   }
   PyErr_SetNone( number == SIGINT ? PyExc_KeyboardInterrupt : PyExc_SystemExit );
   return nullptr;
}

constinit PyMethodDef handlerDef = { "endSignal", onEndSignalInPython, METH_VARARGS,
   "Ends the agent." };

// signal.NAME( number ) or signal.NAME( number, handler ); null with a Python error.
PyRef callSignal( char const* name, int number, PyObject* handler = nullptr ) {
   PyRef const module = PyRef::steal( PyImport_ImportModule( "signal" ) );
   if( !module ) {
      return {};
   }
   return PyRef::steal( PyObject_CallMethod( module.get(), const_cast< char* >( name ),
      const_cast< char* >( handler ? "iO" : "i" ), number, handler ) );
}

} // namespace

bool takeEndSignals() {
   agentProcess = getpid();
   watcherPipe = startWatcher();
   if( watcherPipe < 0 ) {
      PyErr_SetFromErrno( PyExc_OSError );
      return false;
   }
   PySignal_SetWakeupFd( watcherPipe );
   auto& [interrupt, terminate] = endSignals;
   interrupt.inPython = callSignal( "getsignal", SIGINT ).release();
   terminate.inPython = PyCFunction_New( &handlerDef, nullptr );
   if( !interrupt.inPython || !terminate.inPython ||
       !callSignal( "signal", SIGTERM, terminate.inPython ) ) {
      return false;
   }
   // No SA_RESTART: a script that waits in a system call is interrupted there.
   struct sigaction action = {};
   action.sa_handler = onEndSignal;
   for( EndSignal& signal : endSignals ) {
      sigaction( signal.number, nullptr, &signal.before );
      sigaction( signal.number, &action, nullptr );
   }
   return true;
}

bool letSignalsEndTheLoop() {
   scriptRuns = false;
   struct sigaction action = {};
   action.sa_handler = onEndSignal;
   action.sa_flags = SA_RESTART; // a reactor at work had better not see them
   for( EndSignal const& signal : endSignals ) {
      PyRef const now = callSignal( "getsignal", signal.number );
      if( now.get() == signal.inPython ) {
         if( !callSignal( "signal", signal.number, endSignal( SIGTERM ).inPython ) ) {
            return false;
         }
         sigaction( signal.number, &action, nullptr );
      }
   }
   return PyErr_CheckSignals() == 0;
}

int statusOfInterruption() {
   if( endIsAsked && PyErr_ExceptionMatches( PyExc_KeyboardInterrupt ) ) {
      PyErr_Clear();
      return 0;
   }
   return statusOfPythonError();
}

bool isAgentProcess() {
   return getpid() == agentProcess;
}
