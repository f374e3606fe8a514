// kel-agent: hosts Python, the runtime and a PyServer in one process.
#include "Agent.h"
#include "AgentOptions.h"

int main( int argc, char** argv ) {
   AgentOptions options;
   if( auto const status = parseAgentOptions( argc, argv, options ) ) {
      return *status;
   }
   return runAgent( options );
}
