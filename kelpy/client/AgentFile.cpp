#include <kelpy/client/AgentFile.h>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include <kel/Exception.h>
#include <kelpy/client/PyClient.h>
#include <kelpy/client/Sockets.h>

namespace Kel {

namespace {

// An agent's file is at most that long.
constexpr std::size_t maxFileBytes = 128;
// The end of the socket's name stands within that many bytes of its start.
constexpr std::size_t maxNameBytes = 108;

// A file open for reading; its end drops what lock it has.
class OpenFile {
 public:
   // A file that is not there is told by a trace, any other failure is an ErrnoException.
   explicit OpenFile( String const& path )
      : descriptor_( open( path.charPtr(), O_RDONLY | O_CLOEXEC ) ) {
      if( descriptor_ >= 0 ) {
         return;
      }
      if( int const error = errno; error != ENOENT ) {
         throw ErrnoException( error, path );
      }
      KEL_TRACE( _defaultTraceHandle(), trace1 ) << "Failed to open " << path;
   }
   OpenFile( OpenFile const& ) = delete;
   OpenFile& operator=( OpenFile const& ) = delete;
   ~OpenFile() {
      if( descriptor_ >= 0 ) {
         close( descriptor_ );
      }
   }

   explicit operator bool() const { return descriptor_ >= 0; }
   int descriptor() const { return descriptor_; }

 private:
   int const descriptor_;
};

// Fills in what stands behind the line of the process id; `text` goes on with a NUL.
void readContacts( std::string_view text, PyServerContacts* contacts ) {
   std::size_t const firstEnd = text.find( '\n' );
   if( firstEnd == text.npos ) {
      return;
   }
   text.remove_prefix( firstEnd + 1 );
   contacts->port = static_cast< std::int32_t >( std::strtol( text.data(), nullptr, 10 ) );
   std::size_t const secondEnd = text.find( '\n' );
   if( secondEnd == text.npos ) {
      return;
   }
   text.remove_prefix( secondEnd + 1 );
   std::size_t const nameEnd = text.substr( 0, maxNameBytes ).find( '\n' );
   if( nameEnd == text.npos ) {
      KEL_TRACE( _defaultTraceHandle(), trace8 ) << "no valid socket name found for the agent";
      return;
   }
   contacts->socketName = text.substr( 0, nameEnd );
}

// Whether the text is of this process.
bool isOwn( char const* text ) {
   auto const filePid = static_cast< std::int32_t >( std::strtol( text, nullptr, 10 ) );
   std::int32_t const pid = getpid();
   KEL_TRACE( _defaultTraceHandle(), trace8 )
      << "My pid is " << pid << ", pid in agent file is " << filePid;
   if( filePid != pid ) {
      return false;
   }
   KEL_TRACE( _defaultTraceHandle(), trace1 )
      << "Agent pid " << filePid << " matches local pid; entering 'same process' mode";
   return true;
}

} // namespace

String agentDirectory() {
   char const* const directory = std::getenv( "KELC_AGENTS_DIR" );
   return directory ? directory : "/var/run/agents";
}

String agentFilePath( PyClient const& client ) {
   String path = agentDirectory() + "/" + client.agentGroup_ + "." + client.agentName_;
   if( *client.subsystemId_ ) {
      path += ".";
      path += client.subsystemId_;
   }
   return path;
}

// A lock that can be had tells that no agent holds the file. A writer that has not locked its file
// yet holds the directory, as this does while it looks.
void PyClient::serverContacts( String agentFile, PyServerContacts* contacts ) {
   OpenFile const directory( agentDirectory() );
   if( !directory ) {
      return;
   }
   flock( directory.descriptor(), LOCK_EX );
   OpenFile const file( agentFile );
   if( !file ) {
      return;
   }
   if( flock( file.descriptor(), LOCK_EX | LOCK_NB ) == 0 ) {
      unlink( agentFile.charPtr() );
      KEL_TRACE( _defaultTraceHandle(), trace8 ) << "agent file was not flocked";
      return;
   }
   char text[maxFileBytes + 1] = {};
   ssize_t const got = read( file.descriptor(), text, maxFileBytes );
   if( got < 1 ) {
      KEL_TRACE( _defaultTraceHandle(), trace8 ) << "agent file was incomplete";
   } else if( isOwn( text ) ) {
      sameProcess_ = true;
   } else {
      readContacts( { text, static_cast< std::size_t >( got ) }, contacts );
   }
}

} // namespace Kel
