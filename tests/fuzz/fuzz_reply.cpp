// The client's reader of replies, against what each stream has to come to. An input is
//    2 bytes   size of the result buffer, signed, the lower byte first
//    1 byte    most bytes that the kernel hands out at once, 0 for all it has
//    1 byte    1: a signal comes before every other piece; 2: the stream ends by a reset
//    the rest  what the server sends: any number of replies
// The buffer has exactly its size on the heap, for the address sanitizer to watch.
#include <errno.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <thread>

#include <kel/Exception.h>
#include <kelpy/PyClient.h>

#include "Fuzz.h"

namespace {

constexpr std::size_t optionBytes = 4;
constexpr std::string_view tooSmall =
   "Buffer for PyClient result was too small.  The original exception follows:\n";

// How the kernel hands out what was sent.
struct Delivery {
   std::size_t most = 0; // 0 for no limit
   bool interrupted = false;
   bool signalNext = false;
   bool asked = false;
};

constinit Delivery delivery;

} // namespace

// In the place of the C library's.
extern "C" [[gnu::visibility( "default" )]] ssize_t recv(
   int sock, void* buffer, std::size_t length, int flags ) {
   delivery.asked = true;
   delivery.signalNext = delivery.interrupted && !delivery.signalNext;
   if( delivery.signalNext ) {
      errno = EINTR;
      return -1;
   }
   std::size_t const room = delivery.most ? std::min( delivery.most, length ) : length;
   return recvfrom( sock, buffer, room, flags, nullptr, nullptr );
}

namespace {

struct Input {
   int size;
   bool reset;
   std::string_view stream;
};

// What came, or has to come, of one call.
struct Outcome {
   enum Kind { returned, failed, tooLarge, ended, lost };

   Kind kind;
   std::int64_t count = 0;   // if it returned
   std::string_view payload; // that came
   std::size_t consumed = 0;
};

void greetOneClient( int listener ) {
   int const sock = accept( listener, nullptr, nullptr );
   char greeting[2];
   expect( sock >= 0 && read( sock, greeting, sizeof greeting ) == sizeof greeting &&
              write( sock, "Kel1", 4 ) == 4,
      "no client came" );
   close( sock );
   close( listener );
}

// Connected once, by a greeting; each input then gives it a socket of its own.
Kel::Ptr< Kel::PyClient > newClient() {
   std::string const path = makeFolder() + "/socket";
   sockaddr_un address = {};
   address.sun_family = AF_UNIX;
   path.copy( address.sun_path, sizeof address.sun_path );
   int const listener = socket( AF_UNIX, SOCK_STREAM, 0 );
   expect( bind( listener, reinterpret_cast< sockaddr* >( &address ), sizeof address ) == 0 &&
              listen( listener, 1 ) == 0,
      "no socket to listen on" );
   std::thread server( greetOneClient, listener );
   Kel::Ptr< Kel::PyClient > const client = new Kel::PyClient( path, 'K', nullptr );
   server.join();
   removeFolder();
   close( client->sock_ );
   client->sock_ = -1;
   return client;
}

Kel::PyClient& client() {
   static Kel::Ptr< Kel::PyClient > const it = newClient();
   return *it;
}

// The client's end of a connection whose server has sent all and is gone.
int connectionWith( Input const& input ) {
   int ends[2];
   expect( socketpair( AF_UNIX, SOCK_STREAM, 0, ends ) == 0, "no pair of sockets" );
   if( input.reset ) {
      // Who closes with something unread resets the connection.
      expect( write( ends[0], "", 1 ) == 1, "cannot send" );
   }
   if( !input.stream.empty() ) {
      ssize_t const sent = write( ends[1], input.stream.data(), input.stream.size() );
      expect( sent == ssize_t( input.stream.size() ), "cannot send" );
   }
   close( ends[1] );
   return ends[0];
}

std::int64_t announced( std::string_view header ) {
   std::uint32_t n = 0;
   for( char const byte : header.substr( 0, 4 ) ) {
      n = n << 8 | static_cast< std::uint8_t >( byte );
   }
   return std::int64_t{ static_cast< std::int32_t >( n ) } - 2;
}

Outcome expected( std::string_view stream, Input const& input ) {
   bool const whole = stream.size() >= 6;
   if( !whole && input.reset ) {
      return { .kind = Outcome::lost };
   }
   if( stream.empty() ) {
      return { .kind = Outcome::ended };
   }
   std::string header( stream.substr( 0, 6 ) );
   header.resize( 6, '\0' );
   std::int64_t const length = announced( header );
   auto const payload = stream.substr( whole ? 6 : stream.size() )
                           .substr( 0, std::size_t( std::max< std::int64_t >( length, 0 ) ) );
   if( input.reset && std::int64_t( payload.size() ) < length ) {
      return { .kind = Outcome::lost };
   }
   Outcome::Kind const kind = length >= input.size         ? Outcome::tooLarge
                              : header.substr( 4 ) == "OK" ? Outcome::returned
                                                           : Outcome::failed;
   return { kind, length, payload, std::min< std::size_t >( 6, stream.size() ) + payload.size() };
}

// A reader that takes a payload of just the buffer's size.
int plantedResult( char* buffer, int size, Outcome const& right ) {
   if( right.kind == Outcome::tooLarge && right.count == size ) {
      return client().result( buffer, size + 1 );
   }
   return client().result( buffer, size );
}

void checkBuffer( char const* buffer, int size, std::string_view payload ) {
   if( size > 0 ) {
      expect( std::equal( payload.begin(), payload.end(), buffer ), "other bytes in the buffer" );
      expect( buffer[payload.size()] == '\0', "no NUL behind the result" );
   }
}

void checkOverflowText( std::string_view text, Input const& input, Outcome const& right ) {
   expect( text.starts_with( tooSmall ), "another text for a result that does not fit" );
   text.remove_prefix( tooSmall.size() );
   expect( right.payload.starts_with( text ), "the text holds what is not of the payload" );
   auto const first = static_cast< std::size_t >( std::max( input.size - 1, 0 ) );
   expect( text.size() >= std::min( first, right.payload.size() ), "a text without its beginning" );
   // The piece that ends the frame stays out.
   bool const complete =
      std::int64_t( right.payload.size() ) == std::max< std::int64_t >( right.count, 0 );
   expect(
      !complete || text.empty() || text.size() < right.payload.size(), "the last piece in it" );
}

// One call; an exception of any other kind ends the process.
void readOne( Input const& input, Outcome const& right ) {
   auto const bytes = static_cast< std::size_t >( std::max( input.size, 1 ) );
   std::unique_ptr< char[] > const memory( new char[bytes] );
   // A buffer without room is the place behind the memory.
   char* const buffer = memory.get() + ( input.size > 0 ? 0 : 1 );
   try {
      int const count = planted() ? plantedResult( buffer, input.size, right )
                                  : client().result( buffer, input.size );
      expect( right.kind == Outcome::returned, "a return of what is no result" );
      expect( count == right.count || ( count < 0 && right.count < INT32_MIN ), "another count" );
      checkBuffer( buffer, input.size, right.payload );
   } catch( Kel::RpcConnectionException const& exception ) {
      if( right.kind == Outcome::tooLarge ) {
         checkOverflowText( exception.message().view(), input, right );
      } else {
         expect( right.kind == Outcome::ended, "a connection said to be at its end" );
         expect(
            exception.message().view() == "Peer of PyClient shut down the socket", "its text" );
      }
   } catch( Kel::RpcException const& exception ) {
      expect( right.kind == Outcome::failed, "a failure that the server did not tell" );
      expect( exception.message().view() == right.payload, "another text than the server's" );
      checkBuffer( buffer, input.size, right.payload );
   } catch( Kel::ErrnoException const& exception ) {
      expect( right.kind == Outcome::lost, "a connection said to be lost" );
      expect( exception.errnoValue() == ECONNRESET, "another errno" );
   }
}

Input inputOf( std::string_view text ) {
   auto const byte = [text]( std::size_t i ) { return static_cast< std::uint8_t >( text[i] ); };
   delivery = { .most = byte( 2 ), .interrupted = ( byte( 3 ) & 1 ) != 0 };
   return { static_cast< std::int16_t >( byte( 0 ) | byte( 1 ) << 8 ), ( byte( 3 ) & 2 ) != 0,
      text.substr( optionBytes ) };
}

} // namespace

extern "C" int LLVMFuzzerInitialize( int*, char*** ) {
   startFuzzer();
   return 0;
}

extern "C" int LLVMFuzzerTestOneInput( std::uint8_t const* data, std::size_t size ) {
   if( size < optionBytes ) {
      return 0;
   }
   Kel::PyClient& reader = client();
   Input const input = inputOf( textOf( data, size ) );
   reader.sock_ = connectionWith( input );
   std::string_view left = input.stream;
   for( bool more = true; more; ) {
      Outcome const right = expected( left, input );
      readOne( input, right );
      more = right.kind != Outcome::lost && right.kind != Outcome::ended;
      left.remove_prefix( right.consumed );
   }
   expect( delivery.asked, "the kernel was not asked here" );
   close( reader.sock_ );
   reader.sock_ = -1;
   return 0;
}
