#include "Leavings.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdlib>

#include "../common/Descriptor.h"

namespace {

// Readers of the folder hold its lock for a moment only. Whoever holds it longer is not waited for.
void lockShortly( int folder ) {
   constexpr int tries = 100;
   for( int i = 0; i < tries && flock( folder, LOCK_EX | LOCK_NB ) != 0; ++i ) {
      usleep( 5000 );
   }
}

bool namesThisProcess( std::string const& agentFile ) {
   Descriptor const file( open( agentFile.c_str(), O_RDONLY | O_CLOEXEC ) );
   char text[128] = {};
   ssize_t const length = read( file.get(), text, sizeof( text ) - 1 );
   return length > 0 && std::strtol( text, nullptr, 10 ) == getpid();
}

} // namespace

void Leavings::remove() const {
   std::string const place = agentFile.substr( 0, agentFile.rfind( '/' ) + 1 );
   Descriptor const folder( open( place.c_str(), O_RDONLY | O_CLOEXEC ) );
   lockShortly( folder.get() );
   if( namesThisProcess( agentFile ) ) {
      unlink( socket.c_str() );
      unlink( agentFile.c_str() );
   }
}
