#include <kelpy/client/PyClient.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <utility>

#include <kel/Exception.h>
#include <kelpy/client/Sockets.h>

namespace Kel {

namespace {

constexpr std::size_t maxFrameBytes = 4096; // with the NUL that formatting appends
constexpr int replyHeaderBytes = 6;
constexpr int statusBytes = 2;

char const evalHeader[] = "?1";
char const executeHeader[] = "?2";

// A request: the header, the length of the text in four bytes, the text. Built once, as a resend
// sends the very same bytes.
class Frame {
 public:
   Frame( char const* header, char const* command ) {
      std::size_t const length = std::strlen( command );
      if( length + 6 > maxFrameBytes - 1 ) {
         throw RangeException( String( "Remote eval/exec command was too long: " ) + command +
                               ", request cannot exceed 4090 bytes" );
      }
      auto const byte = [length](
                           int shift ) { return static_cast< int >( length >> shift & 0xff ); };
      std::snprintf( bytes_, sizeof bytes_, "%s%c%c%c%c%s", header, byte( 24 ), byte( 16 ),
         byte( 8 ), byte( 0 ), command );
      size_ = static_cast< int >( length ) + 6;
   }

   char const* bytes() const { return bytes_; }
   int size() const { return size_; }

 private:
   char bytes_[maxFrameBytes] = {};
   int size_;
};

// The length of a reply's payload; negative for a length below that of the status, and for one
// whose top bit is set.
int payloadLength( unsigned char const* header ) {
   std::uint32_t n = 0;
   for( int i = 0; i < 4; ++i ) {
      n = n << 8 | header[i];
   }
   std::int64_t const payload = std::int64_t{ static_cast< std::int32_t >( n ) } - statusBytes;
   return static_cast< int >(
      std::max< std::int64_t >( payload, std::numeric_limits< int >::min() ) );
}

// Reads a payload that does not fit to its end and throws. The text holds what was read but for the
// last piece. A buffer without room is not touched.
[[noreturn]] void throwOverflow( int sock, char* buffer, int size, int payload ) {
   char own[256];
   char* const pieces = size > 0 ? buffer : own;
   int const room = size > 0 ? size : static_cast< int >( sizeof own );
   int remaining = std::max( payload, 0 );
   int piece = 0;
   if( size > 1 ) {
      piece = socketRecv( sock, buffer, size - 1, true );
      remaining -= size - 1;
   }
   if( size > 0 ) {
      buffer[piece] = '\0';
   }
   KEL_TRACE( _defaultTraceHandle(), trace1 ) << "Client buffer overflowed!";
   String text = "Buffer for PyClient result was too small.  The original exception follows:\n";
   while( remaining > 0 ) {
      text.merge( pieces, static_cast< std::size_t >( piece ) );
      piece = socketRecv( sock, pieces, std::min( room, remaining ), false );
      if( piece == 0 ) {
         break;
      }
      remaining -= piece;
   }
   throw RpcConnectionException( text );
}

void traceCommand( char const* operation, char const* command ) {
   KEL_TRACE( _defaultTraceHandle(), trace9 ) << "-> " << operation << " '" << command << "'";
}

// The result of a command in this process ends without a NUL.
void traceResult( char const* result, int count ) {
   KEL_TRACE( _defaultTraceHandle(), trace9 )
      << "<- result (" << count << " bytes) - "
      << std::string_view( result, count > 0 ? strnlen( result, std::size_t( count ) ) : 0 );
}

void traceFailure( ErrnoException const& failure ) {
   KEL_TRACE( _defaultTraceHandle(), trace9 ) << "send/result returned " << failure.message() << ' '
                                              << failure.errnoValue() << ' ' << failure.text();
}

bool isLostConnection( int error ) {
   return error == EPIPE || error == ECONNRESET;
}

// One sending of the frame and its reply. A lost connection leaves its text in `failure` and gives
// false; any other failure goes to the caller, and the socket stays open.
bool tried( PyClient& client, Frame const& frame, char* result, int resultSize, int& count,
   String& failure ) {
   try {
      socketSend( client.sock_, frame.bytes(), frame.size(), 0 );
      count = client.result( result, resultSize );
      return true;
   } catch( ErrnoException const& exception ) {
      traceFailure( exception );
      if( !isLostConnection( exception.errnoValue() ) ) {
         KEL_TRACE( _defaultTraceHandle(), trace1 ) << "remoteCmd error " << exception.message();
         throw;
      }
      failure = exception.message();
   } catch( RpcConnectionException const& exception ) {
      KEL_TRACE( _defaultTraceHandle(), trace1 )
         << "send/result returned RpcException " << exception.message();
      failure = exception.message();
   }
   return false;
}

void tellReconnect( PyClient const& client ) {
   KEL_TRACE( _defaultTraceHandle(), trace0 )
      << "Reconnecting to" << client.serverName_ << " / port " << client.port_;
   String const server =
      client.serverName_.empty() ? _fmt( "port %d", client.port_ ) : client.serverName_;
   String const line = "[PyClient reconnecting to " + server + "]\n";
   std::fputs( line.charPtr(), stderr );
   std::fflush( stderr );
}

} // namespace

int PyClient::eval( char const* command, char* result, int resultSize ) {
   traceCommand( "eval", command );
   int const count = doCmd( command, evalHeader, result, resultSize );
   traceResult( result, count );
   return count;
}

int PyClient::execute( char const* command, char* result, int resultSize ) {
   traceCommand( "execute", command );
   int const count = doCmd( command, executeHeader, result, resultSize );
   traceResult( result, count );
   return count;
}

int PyClient::doCmd( char const* command, char const* header, char* result, int resultSize ) {
   return sameProcess_ ? localCmd( command, header, result, resultSize )
                       : remoteCmd( command, header, result, resultSize );
}

// Nothing keeps the server from running a command twice that is sent twice.
int PyClient::remoteCmd( char const* command, char const* header, char* result, int resultSize ) {
   Frame const frame( header, command );
   for( int attempts = 2;; attempts = 1 ) {
      int count = 0;
      String failure;
      if( tried( *this, frame, result, resultSize, count, failure ) ) {
         return count;
      }
      if( sock_ >= 0 ) {
         close( std::exchange( sock_, -1 ) );
      }
      if( attempts == 1 || noReconnect_ ) {
         KEL_TRACE( _defaultTraceHandle(), trace0 ) << "Failed to communicate with server";
         throw RpcConnectionException(
            "Cannot talk to server " + serverName_ + ", unrecoverable server failure:" + failure );
      }
      tellReconnect( *this );
      connect();
   }
}

int PyClient::result( char* buffer, int size ) {
   unsigned char header[replyHeaderBytes] = {};
   if( socketRecv( sock_, reinterpret_cast< char* >( header ), sizeof header, true ) == 0 ) {
      throw RpcConnectionException( "Peer of PyClient shut down the socket" );
   }
   bool const succeeded = header[4] == 'O' && header[5] == 'K';
   int const payload = payloadLength( header );
   if( payload >= size ) {
      throwOverflow( sock_, buffer, size, payload );
   }
   int const received = payload > 0 ? socketRecv( sock_, buffer, payload, true ) : 0;
   if( size > 0 ) {
      buffer[received] = '\0';
   }
   if( succeeded ) {
      return payload;
   }
   KEL_TRACE( _defaultTraceHandle(), trace1 ) << "Server threw some exception";
   throw RpcException( String( buffer, static_cast< std::size_t >( received ) ) );
}

} // namespace Kel
