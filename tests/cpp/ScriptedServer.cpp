#include "ScriptedServer.h"

#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <utility>

namespace {

constexpr timeval deadline = { 60, 0 };

bool isMainThreadAsleep() {
   std::ifstream file( "/proc/self/task/" + std::to_string( getpid() ) + "/stat" );
   std::string text;
   std::getline( file, text );
   return text.find( ") S " ) != std::string::npos;
}

int boundTo( std::string const& path ) {
   sockaddr_un address = {};
   address.sun_family = AF_UNIX;
   path.copy( address.sun_path, sizeof address.sun_path - 1 );
   int const bound = socket( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0 );
   if( bind( bound, reinterpret_cast< sockaddr* >( &address ), sizeof address ) != 0 ) {
      ADD_FAILURE() << "bind to " << path << ": " << std::strerror( errno );
   }
   return bound;
}

int boundToFreePort( int& port ) {
   sockaddr_in address = {};
   address.sin_family = AF_INET;
   address.sin_addr.s_addr = htonl( INADDR_LOOPBACK );
   socklen_t length = sizeof address;
   int const bound = socket( AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0 );
   if( bind( bound, reinterpret_cast< sockaddr* >( &address ), length ) != 0 ) {
      ADD_FAILURE() << "bind: " << std::strerror( errno );
   }
   getsockname( bound, reinterpret_cast< sockaddr* >( &address ), &length );
   port = ntohs( address.sin_port );
   return bound;
}

int bound( std::string const& path, int& port ) {
   return path.empty() ? boundToFreePort( port ) : boundTo( path );
}

int listening( int socket ) {
   listen( socket, 10 );
   return socket;
}

std::uint32_t bigEndian( std::string_view bytes ) {
   std::uint32_t number = 0;
   for( char const c : bytes ) {
      number = number << 8 | static_cast< unsigned char >( c );
   }
   return number;
}

} // namespace

Peer::Peer( int descriptor ) : descriptor_( descriptor ) {
   setsockopt( descriptor_, SOL_SOCKET, SO_RCVTIMEO, &deadline, sizeof deadline );
   int const on = 1; // each byte of sendByteByByte travels by itself; a unix socket refuses it
   setsockopt( descriptor_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on );
}

std::string Peer::read( std::size_t bytes ) {
   if( bytes == 0 ) {
      return "";
   }
   std::string text( bytes, '\0' );
   ssize_t const got = recv( descriptor_, text.data(), bytes, MSG_WAITALL );
   if( got < 0 ) {
      ADD_FAILURE() << "the server's recv: " << std::strerror( errno );
   }
   text.resize( got > 0 ? static_cast< std::size_t >( got ) : 0 );
   return text;
}

std::string Peer::greet( std::string_view answer ) {
   std::string greeting = read( 2 );
   send( answer );
   return greeting;
}

std::string Peer::request() {
   std::string const head = read( 6 );
   return head.size() < 6 ? head : head + read( bigEndian( head.substr( 2 ) ) );
}

void Peer::send( std::string_view bytes ) {
   ssize_t const sent = ::send( descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL );
   EXPECT_EQ( sent, static_cast< ssize_t >( bytes.size() ) ) << std::strerror( errno );
}

void Peer::sendByteByByte( std::string_view bytes ) {
   for( char const& c : bytes ) {
      send( { &c, 1 } );
      std::this_thread::yield();
   }
}

// A read that has taken all there is looks once more before it ends.
void Peer::waitUntilRead() const {
   for( int unread = 1; ioctl( descriptor_, SIOCOUTQ, &unread ) == 0 && unread > 0; ) {
      std::this_thread::yield();
   }
   while( !isMainThreadAsleep() ) {
      std::this_thread::yield();
   }
}

void Peer::close() {
   if( descriptor_ >= 0 ) {
      ::close( std::exchange( descriptor_, -1 ) );
   }
}

// A unix socket resets if it is closed with bytes unread, a TCP socket if it does not linger.
void Peer::reset() {
   linger const now = { 1, 0 };
   setsockopt( descriptor_, SOL_SOCKET, SO_LINGER, &now, sizeof now );
   close();
}

std::string frame( std::uint32_t length, std::string_view rest ) {
   std::string bytes;
   for( int shift = 24; shift >= 0; shift -= 8 ) {
      bytes += static_cast< char >( length >> shift & 0xff );
   }
   return bytes.append( rest );
}

std::string reply( std::string_view status, std::string_view payload ) {
   return frame( static_cast< std::uint32_t >( status.size() + payload.size() ),
      std::string( status ).append( payload ) );
}

DeafServer::DeafServer( std::string const& path ) : socket_( bound( path, port_ ) ) {}

DeafServer::~DeafServer() {
   close( socket_ );
}

ScriptedServer::ScriptedServer( std::string const& path, std::vector< Session > sessions )
   : listener_( listening( bound( path, port_ ) ) ),
     ending_( eventfd( 0, EFD_CLOEXEC ) ),
     thread_( [this, sessions = std::move( sessions )] { serve( sessions ); } ) {}

ScriptedServer::~ScriptedServer() {
   eventfd_write( ending_, 1 );
   thread_.join();
   close( listener_ );
   close( ending_ );
}

int ScriptedServer::accepted() const {
   pollfd ready[] = { { listener_, POLLIN, 0 }, { ending_, POLLIN, 0 } };
   poll( ready, 2, -1 );
   return ready[0].revents ? accept4( listener_, nullptr, nullptr, SOCK_CLOEXEC ) : -1;
}

void ScriptedServer::serve( std::vector< Session > const& sessions ) {
   std::size_t begun = 0;
   for( Session const& session : sessions ) {
      int const descriptor = accepted();
      if( descriptor < 0 ) {
         ADD_FAILURE() << "only " << begun << " clients of " << sessions.size() << " came";
         return;
      }
      Peer peer( descriptor );
      if( ++begun == sessions.size() ) {
         shutdown( listener_, SHUT_RDWR );
      }
      session( peer );
   }
}
