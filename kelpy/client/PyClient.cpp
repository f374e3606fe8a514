#include <kelpy/client/PyClient.h>

#include <netinet/in.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <utility>

#include <kel/Assert.h>
#include <kel/Exception.h>
#include <kel/System.h>
#include <kelpy/client/AddrInfo.h>
#include <kelpy/client/AgentFile.h>
#include <kelpy/client/Sockets.h>
#include <kelpy/notify/PyObjHandle.h>

namespace Kel {

namespace {

// About 32 seconds.
constexpr unsigned int defaultRetryProfile[] = { 250, 250, 250, 250, 500, 500, 500, 500, 1000, 4000,
   8000, 16000, 0 };

constexpr Seconds firstWarning( 1.5 );
constexpr Seconds furtherWarnings( 5.0 );

// Tells the user who waits for a connection, at the attempts that come late enough.
class Patience {
 public:
   explicit Patience( String const& serverName ) : serverName_( serverName ) {}

   void attemptFailed( unsigned int attempt ) {
      Seconds const now = System::currentTime();
      if( attempt == 0 ) {
         nextWarning_ = now + firstWarning;
      } else if( now >= nextWarning_ ) {
         String const line =
            "[PyServer " + serverName_ + " not responding, still trying -- is it running?]\n";
         std::fputs( line.charPtr(), stderr );
         std::fflush( stderr );
         nextWarning_ = now + furtherWarnings;
      }
   }

 private:
   String const& serverName_;
   Seconds nextWarning_{ -std::numeric_limits< double >::infinity() };
};

void sleepFor( unsigned int milliseconds ) {
   timespec left = {};
   left.tv_sec = milliseconds / 1000;
   left.tv_nsec = milliseconds % 1000 * 1000000L;
   while( nanosleep( &left, &left ) != 0 && errno == EINTR ) {
   }
}

bool isUnknown( PyServerContacts const& contacts ) {
   return contacts.port == -1 && contacts.socketName.empty();
}

// Both ways, so that the server sees the end even if a forked child has the descriptor too.
void shutSocket( PyClient& client ) {
   if( client.sock_ >= 0 ) {
      shutdown( client.sock_, SHUT_RDWR );
      close( std::exchange( client.sock_, -1 ) );
   }
}

void connectToSocket( PyClient& client, String const& name ) {
   sockaddr_un address = {};
   address.sun_family = AF_UNIX;
   KEL_ASSERT( name.length() <= sizeof address.sun_path );
   std::memcpy( address.sun_path, name.charPtr(), name.length() );
   client.sock_ = socket( AF_UNIX, SOCK_STREAM, 0 );
   auto const length = static_cast< unsigned int >( offsetof( sockaddr_un, sun_path ) );
   socketConnect( client.sock_, reinterpret_cast< sockaddr* >( &address ), length + name.length() );
}

void connectToPort( PyClient& client, int port ) {
   addrinfo hints = {};
   hints.ai_family = AF_INET;
   hints.ai_socktype = SOCK_STREAM;
   addrinfo* found = nullptr;
   if( getaddrinfo( "127.0.0.1", nullptr, &hints, &found ) != 0 ) {
      throw RpcConnectionException( "Unable to getaddrinfo for 127.0.0.1" );
   }
   AddrInfo const list( found );
   sockaddr_in address = {};
   std::memcpy( &address, list.get()->ai_addr, sizeof address );
   address.sin_port = htons( static_cast< std::uint16_t >( port ) );
   client.sock_ = socket( AF_INET, SOCK_STREAM, 0 );
   socketConnect( client.sock_, reinterpret_cast< sockaddr* >( &address ) );
}

// Nothing is made of the reply: who closes here is noticed by the first command.
void greet( PyClient const& client ) {
   char const greeting[] = { client.greetingByte_, 'R' };
   char reply[4];
   socketSend( client.sock_, greeting, sizeof greeting, 0 );
   socketRecv( client.sock_, reply, sizeof reply, true );
}

// One pass of the retry loop: whether there is a connection, or none is necessary.
bool attempt( PyClient& client, String const& agentFile ) {
   PyServerContacts contacts{ client.port_ ? client.port_ : -1, client.socketName_ };
   if( isUnknown( contacts ) ) {
      client.serverContacts( agentFile, &contacts );
   }
   if( client.sameProcess_ ) {
      client.connected_ = true;
      KEL_TRACE( _defaultTraceHandle(), trace8 )
         << "No connection necessary when destination is this process";
      return true;
   }
   if( isUnknown( contacts ) ) {
      KEL_TRACE( _defaultTraceHandle(), trace0 )
         << "PyServer " << client.serverName_ << " was not in the agent directory";
      return false;
   }
   try {
      client.connect( &contacts );
   } catch( ErrnoException const& failure ) {
      if( failure.errnoValue() != ECONNREFUSED ) {
         throw;
      }
      bool const bySocket = !contacts.socketName.empty();
      KEL_TRACE( _defaultTraceHandle(), trace0 )
         << "PyServer " << client.serverName_ << " was not listening on "
         << ( bySocket ? "socket " + contacts.socketName : _fmt( "port %d", contacts.port ) );
      return false;
   }
   client.connected_ = true;
   KEL_TRACE( _defaultTraceHandle(), trace1 )
      << "Connected" << ( client.serverName_.empty() ? "" : " to " ) << client.serverName_;
   return true;
}

// Afterwards the client never reconnects by itself; while the command runs, that keeps remoteCmd()
// and connect() from calling one another.
void runInitCommand( PyClient& client ) {
   if( client.initCommand_.empty() ) {
      return;
   }
   bool const noReconnect = std::exchange( client.noReconnect_, true );
   char dropped[256];
   try {
      client.execute( client.initCommand_.charPtr(), dropped, sizeof dropped );
   } catch( Exception const& ) {
      client.noReconnect_ = noReconnect;
      throw;
   }
}

// For a constructor, whose failure no destructor follows: a connection that stands by then goes.
void connectFirst( PyClient& client ) {
   try {
      client.connect();
   } catch( ... ) {
      if( client.connected_ ) {
         shutSocket( client );
      }
      throw;
   }
}

char const* subsystemIdOrDefault( char const* subsystemId ) {
   char const* const chosen = subsystemId ? subsystemId : std::getenv( "SUBSYSTEMID" );
   return chosen ? chosen : "";
}

} // namespace

constinit unsigned int const* PyClient::retryProfile_ = defaultRetryProfile;

PyClient::PyClient( String socketName, char greetingByte, char const* initCommand )
   : socketName_( std::move( socketName ) ),
     initCommand_( initCommand ),
     greetingByte_( greetingByte ) {
   connectFirst( *this );
}

PyClient::PyClient( int port, char greetingByte, char const* initCommand )
   : port_( port ), initCommand_( initCommand ), greetingByte_( greetingByte ) {
   connectFirst( *this );
}

PyClient::PyClient( String agentGroup, String agentName, char greetingByte, char const* subsystemId,
   char const* initCommand )
   : agentGroup_( std::move( agentGroup ) ),
     agentName_( std::move( agentName ) ),
     subsystemId_( subsystemIdOrDefault( subsystemId ) ),
     serverName_( agentGroup_ + "." + agentName_ ),
     initCommand_( initCommand ),
     greetingByte_( greetingByte ) {
   if( *subsystemId_ ) {
      serverName_ += ".";
      serverName_ += subsystemId_;
   }
   connectFirst( *this );
}

PyClient::~PyClient() {
   shutSocket( *this );
}

void PyClient::retryProfileIs( unsigned int const* profile ) {
   retryProfile_ = profile;
}

// The contacts are fetched at each attempt, so that an agent is found that starts late or again.
void PyClient::connect() {
   bool const byAgent = port_ == 0 && socketName_.empty();
   String const agentFile = byAgent ? agentFilePath( *this ) : String();
   unsigned int const* const profile = retryProfile_;
   Patience patience( serverName_ );
   connected_ = false;
   for( unsigned int i = 0; !attempt( *this, agentFile ); ++i ) {
      if( profile[i] == 0 ) {
         throw RpcConnectionException( "Unable to connect to " + serverName_ );
      }
      patience.attemptFailed( i );
      sleepFor( profile[i] );
   }
   runInitCommand( *this );
}

int PyClient::connect( PyServerContacts* contacts ) {
   bool const bySocket = !contacts->socketName.empty();
   String const target =
      bySocket ? "socket " + contacts->socketName : _fmt( "port %d", contacts->port );
   KEL_TRACE( _defaultTraceHandle(), trace1 ) << "Trying to connect to " << target;
   try {
      if( bySocket ) {
         connectToSocket( *this, contacts->socketName );
      } else {
         connectToPort( *this, contacts->port );
      }
      greet( *this );
   } catch( ErrnoException const& failure ) {
      if( failure.errnoValue() != ECONNREFUSED ) {
         shutSocket( *this );
      }
      throw;
   }
   KEL_TRACE( _defaultTraceHandle(), trace1 ) << "Connected to " << target;
   return sock_;
}

} // namespace Kel
