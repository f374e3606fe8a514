#include "Target.h"

std::string Target::display() const {
   if( socket ) {
      return "socket " + *socket;
   }
   if( port ) {
      return "port " + std::to_string( *port );
   }
   return agent.display();
}
