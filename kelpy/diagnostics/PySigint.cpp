#include <kelpy/diagnostics/PySigint.h>

#include <csignal>

#include <kel/Activity.h>

namespace {

using SignalHandler = void ( * )( int );

// Written once, before the handler can run with it.
constinit SignalHandler savedSigint = nullptr;

// Signal context, on any thread.
void sigintHandler( int signum ) {
   Kel::ActivityFacility::activityManagerConfig()->stopOnQuiesceIs( true );
   if( savedSigint ) {
      savedSigint( signum );
   }
}

} // namespace

void chainSigint() {
   savedSigint = std::signal( SIGINT, sigintHandler );
}
