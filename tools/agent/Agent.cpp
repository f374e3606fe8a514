#include <kelpy/core/PyRef.h>

#include "Agent.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <kel/Exception.h>
#include <kel/Lock.h>
#include <kel/Watchdog.h>

#include "../common/CommandLine.h"
#include "AgentLoop.h"
#include "EndSignals.h"
#include "Interpreter.h"
#include "PythonError.h"
#include "Schemas.h"
#include "Server.h"

namespace {

constexpr int failedStatus = 1;

// Arguments that a server cannot be made of are faults of the command line.
int complainOfPython( std::string const& what ) {
   int const status = PyErr_ExceptionMatches( PyExc_ValueError ) ? usageStatus : failedStatus;
   return complain( "kel-agent", what + ": " + textOfPythonError(), status );
}

// Null with errno.
std::FILE* openScript( std::string const& path ) {
   std::FILE* const file = std::fopen( path.c_str(), "re" );
   struct stat status = {};
   if( file && fstat( fileno( file ), &status ) == 0 && S_ISDIR( status.st_mode ) ) {
      std::fclose( file );
      errno = EISDIR;
      return nullptr;
   }
   return file;
}

// False with a Python error.
bool setTitle( AgentOptions const& options ) {
   PyRef const module = PyRef::steal( PyImport_ImportModule( "_Kel" ) );
   if( !module || !options.title ) {
      return static_cast< bool >( module );
   }
   return static_cast< bool >(
      PyRef::steal( PyObject_CallMethod( module.get(), const_cast< char* >( "setproctitle" ),
         const_cast< char* >( "ss" ), "kel-agent", options.name.display().c_str() ) ) );
}

// Why there is none, in one line; empty if all is well.
std::string startWatchdog( double seconds ) {
   try {
      Kel::LockAnchor const locked( Kel::activityLock() );
      Kel::Watchdog::instance()->secondsIs( Kel::Seconds( seconds ) );
   } catch( Kel::Exception const& exception ) {
      return exception.message().stdString();
   }
   return "";
}

bool isInterruption() {
   return PyErr_ExceptionMatches( PyExc_SystemExit ) ||
          PyErr_ExceptionMatches( PyExc_KeyboardInterrupt );
}

// The script and then the loop. A process that the script has forked, and that comes to the end of
// the script, ends there.
int live( Interpreter& python, AgentOptions const& options, std::FILE* script ) {
   python.scriptIs( options.script );
   if( script && !python.run( script, options.script[0] ) ) {
      return statusOfInterruption();
   }
   return isAgentProcess() ? serveLoop() : 0;
}

int startAndLive( Interpreter& python, AgentOptions const& options, std::FILE* script ) {
   if( !setTitle( options ) || !takeEndSignals() ) {
      return complainOfPython( "cannot start Python" );
   }
   Server server;
   if( !server.start( options ) ) {
      return isInterruption() ? statusOfInterruption()
                              : complainOfPython( "cannot start " + options.name.display() );
   }
   int const status = live( python, options, script );
   // From here on no signal raises anything in the midst of the end.
   if( !letSignalsEndTheLoop() ) {
      PyErr_Clear();
   }
   server.stop();
   return status;
}

} // namespace

int runAgent( AgentOptions const& options ) {
   std::FILE* script = nullptr;
   if( !options.script.empty() && !( script = openScript( options.script[0] ) ) ) {
      return complain( "kel-agent",
         "cannot open script " + options.script[0] + ": " + std::strerror( errno ), usageStatus );
   }
   std::string const modules = modulesFolder();
   if( std::string const fault = loadSchemas( options.schemas, modules ); !fault.empty() ) {
      return complain( "kel-agent", fault, failedStatus );
   }
   if( std::string const fault = startWatchdog( options.watchdog ); !fault.empty() ) {
      return complain( "kel-agent", fault, failedStatus );
   }
   Interpreter python( modules );
   return startAndLive( python, options, script );
}
