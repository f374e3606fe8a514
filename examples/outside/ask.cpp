// Asks the agent of agent.py what the kitchen's heater wants: a program without Python of its own.
#include <kelpy/PyClient.h>

#include <csignal>
#include <cstdio>

#include <kel/Exception.h>

int main() {
   std::signal( SIGPIPE, SIG_IGN );
   try {
      Kel::Ptr< Kel::PyClient > heating(
         new Kel::PyClient( "home", "heating", 'a', nullptr, nullptr ) );
      char wanted[32];
      heating->eval( "rooms[ 'kitchen' ].wanted", wanted, sizeof wanted );
      std::printf( "the kitchen wants %s degrees\n", wanted );
   } catch( Kel::Exception const& failure ) {
      std::fprintf( stderr, "%s\n", failure.message().charPtr() );
      return 1;
   }
}
