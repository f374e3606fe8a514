#include <kelpy/client/Sockets.h>

#include <netinet/in.h>

#include <algorithm>
#include <cerrno>

#include <kel/Exception.h>

namespace {

// `error` is the errno of the call, which the trace may change.
[[noreturn]] void fail( char const* call, int error ) {
   KEL_TRACE( _defaultTraceHandle(), Kel::trace8 ) << call << " returned " << error;
   throw Kel::ErrnoException( error );
}

} // namespace

// It is never destroyed, as clients may trace while the process ends.
Kel::TraceHandle& _defaultTraceHandle() {
   static auto* const handle = new Kel::TraceHandle( "PyClient", true );
   return *handle;
}

int socketSend( int sock, void const* data, int length, int flags ) {
   for( ;; ) {
      ssize_t const sent = send( sock, data, static_cast< std::size_t >( length ), flags );
      if( sent >= 0 ) {
         return static_cast< int >( sent );
      }
      if( int const error = errno; error != EINTR ) {
         fail( "send", error );
      }
   }
}

int socketRecv( int sock, char* buffer, int length, bool waitAll ) {
   int stored = 0;
   do {
      auto const room = static_cast< std::size_t >( std::max( length - stored, 0 ) );
      ssize_t const got = recv( sock, buffer + stored, room, 0 );
      if( got == 0 ) {
         return stored;
      }
      if( got > 0 ) {
         stored += static_cast< int >( got );
      } else if( int const error = errno; error != EINTR ) {
         fail( "socketRecv", error );
      }
   } while( stored == 0 || ( waitAll && stored < length ) );
   return stored;
}

int socketConnect( int sock, sockaddr* address, unsigned int addressLength ) {
   while( connect( sock, address, addressLength ) != 0 ) {
      if( int const error = errno; error != EINTR ) {
         fail( "socketConnect", error );
      }
   }
   return 0;
}

int socketConnect( int sock, sockaddr* address ) {
   return socketConnect( sock, address, sizeof( sockaddr_in ) );
}
