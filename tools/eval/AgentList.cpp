#include "AgentList.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "../common/AgentName.h"
#include "../common/Descriptor.h"
#include "Failure.h"

namespace {

using Row = std::array< std::string, 4 >; // name, pid, port, socket

// Everybody holds it for moments only; false if somebody does not.
bool lockSoon( int folder ) {
   constexpr int tries = 500;
   for( int i = 0; i < tries; ++i ) {
      if( flock( folder, LOCK_EX | LOCK_NB ) == 0 ) {
         return true;
      }
      usleep( 10'000 );
   }
   return false;
}

// The file of a live agent is locked. The trial lock harms nobody, since the folder is locked too.
bool isHeld( int file ) {
   return flock( file, LOCK_SH | LOCK_NB ) != 0 && errno == EWOULDBLOCK;
}

// What a terminal shows as it stands.
std::string shown( std::string text ) {
   std::replace_if(
      text.begin(), text.end(),
      []( char c ) { return static_cast< unsigned char >( c ) < ' ' || c == 0x7f; }, '?' );
   return text;
}

// The three lines, as far as they are there.
Row rowOf( std::string const& name, std::string const& text ) {
   Row row = { shown( name ) };
   std::size_t start = 0;
   for( std::size_t column = 1; column < row.size(); ++column ) {
      std::size_t const end = text.find( '\n', start );
      if( end == text.npos ) {
         break;
      }
      row[column] = shown( text.substr( start, end - start ) );
      start = end + 1;
   }
   return row;
}

// Adds the row of the agent whose file this is, if it lives.
void look( int folder, char const* name, std::vector< Row >& rows ) {
   Descriptor const file(
      openat( folder, name, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY ) );
   struct stat status = {};
   if( !file || fstat( file.get(), &status ) != 0 || !S_ISREG( status.st_mode ) ||
       !isHeld( file.get() ) ) {
      return;
   }
   char text[128];
   ssize_t const length = read( file.get(), text, sizeof( text ) );
   rows.push_back( rowOf( name, std::string( text, std::max< ssize_t >( length, 0 ) ) ) );
}

std::vector< Row > liveAgents( int folder ) {
   std::vector< Row > rows;
   std::unique_ptr< DIR, int ( * )( DIR* ) > const entries( fdopendir( dup( folder ) ), closedir );
   while( dirent const* const entry = entries ? readdir( entries.get() ) : nullptr ) {
      char const* const dot = std::strchr( entry->d_name, '.' );
      if( dot && dot != entry->d_name && dot[1] ) {
         look( folder, entry->d_name, rows );
      }
   }
   std::sort( rows.begin(), rows.end() );
   return rows;
}

void print( std::vector< Row > const& rows ) {
   std::array< std::size_t, 4 > widths = {};
   for( Row const& row : rows ) {
      for( std::size_t i = 0; i < row.size(); ++i ) {
         widths[i] = std::max( widths[i], row[i].size() );
      }
   }
   for( auto const& [name, pid, port, socket] : rows ) {
      std::printf( "%-*s  %*s  %*s  %s\n", static_cast< int >( widths[0] ), name.c_str(),
         static_cast< int >( widths[1] ), pid.c_str(), static_cast< int >( widths[2] ),
         port.c_str(), socket.c_str() );
   }
}

} // namespace

int listAgents() {
   std::string const path = agentFolder();
   Descriptor const folder( open( path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC ) );
   std::vector< Row > rows;
   if( folder ) {
      if( !lockSoon( folder.get() ) ) {
         throw Failure( Failure::unreachable, "the folder of agents, " + path + ", stays locked" );
      }
      rows = liveAgents( folder.get() );
   } else if( errno != ENOENT ) {
      throw Failure( Failure::unreachable, "cannot open " + path + ": " + std::strerror( errno ) );
   }
   rows.insert( rows.begin(), { "AGENT", "PID", "PORT", "SOCKET" } );
   print( rows );
   return std::fflush( stdout ) == 0 ? 0 : Failure::undelivered;
}
