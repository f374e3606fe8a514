#include "AgentName.h"

#include <algorithm>
#include <cstdlib>

namespace {

bool isUnfit( char c ) {
   auto const byte = static_cast< unsigned char >( c );
   return byte < ' ' || byte == 0x7f || byte == '/';
}

bool isUnfitOrDot( char c ) {
   return c == '.' || isUnfit( c );
}

template< class Unfit >
std::string faultOfPart( char const* what, std::string const& part, Unfit unfit ) {
   if( part.empty() ) {
      return std::string( "the " ) + what + " of an agent must not be empty";
   }
   auto const found = std::find_if( part.begin(), part.end(), unfit );
   if( found == part.end() ) {
      return "";
   }
   std::string const shown = isUnfit( *found ) && *found != '/'
                                ? std::string( "control characters" )
                                : std::string( "\"" ) + *found + "\"";
   return std::string( "the " ) + what + " of an agent must not hold " + shown;
}

} // namespace

std::string AgentName::display() const {
   bool const hasSubsystem = subsystem && !subsystem->empty();
   return group + "." + name + ( hasSubsystem ? "." + *subsystem : "" );
}

AgentName agentNameOf( std::string const& text ) {
   AgentName result;
   std::size_t const first = text.find( '.' );
   result.group = text.substr( 0, first );
   if( first == text.npos ) {
      return result;
   }
   std::size_t const second = text.find( '.', first + 1 );
   result.name = text.substr( first + 1, second - first - 1 );
   if( second != text.npos ) {
      result.subsystem = text.substr( second + 1 );
   }
   return result;
}

std::string faultOf( AgentName const& name ) {
   for( auto const& fault : { faultOfPart( "group", name.group, isUnfitOrDot ),
           faultOfPart( "name", name.name, isUnfitOrDot ) } ) {
      if( !fault.empty() ) {
         return fault;
      }
   }
   bool const hasSubsystem = name.subsystem && !name.subsystem->empty();
   return hasSubsystem ? faultOfPart( "subsystem", *name.subsystem, isUnfit ) : "";
}

std::string agentFolder() {
   char const* const folder = std::getenv( "KELC_AGENTS_DIR" );
   return folder ? folder : "/var/run/agents";
}
