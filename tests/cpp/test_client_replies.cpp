// What a client makes of the bytes of a reply, also where they are cut or lie.
#include "ClientTest.h"

#include <sys/ioctl.h>

#include <climits>

namespace {

using Kel::RpcConnectionException;
using Kel::RpcException;

constexpr char tooSmall[] = "Buffer for PyClient result was too small.  "
                            "The original exception follows:\n";

class ClientReplies : public ClientTest {
 protected:
   // Connects to a server that sends the bytes and then, unless it closes, waits.
   void sent( std::string const& bytes, bool closes = false ) {
      client_ = nullptr;
      server_ = nullptr;
      std::filesystem::remove( socketPath() );
      server_ = std::make_unique< ScriptedServer >( socketPath(), Sessions{ [=]( Peer& peer ) {
         peer.greet();
         peer.send( bytes );
         if( !closes ) {
            EXPECT_TRUE( peer.atEnd() );
         }
      } } );
      client_ = client( socketName(), 'x', nullptr );
      while( arrived() < static_cast< int >( bytes.size() ) ) {
         std::this_thread::yield();
      }
   }
   void sentThenClosed( std::string const& bytes ) { sent( bytes, true ); }
   ~ClientReplies() override { client_ = nullptr; }

   // What is there to read.
   int arrived() const {
      int bytes = 0;
      EXPECT_EQ( ioctl( client_->sock_, FIONREAD, &bytes ), 0 );
      return bytes;
   }

   // Reads a reply into a buffer of that size, behind which nothing may be written.
   int result( int size ) {
      memory_.assign( 64, '#' );
      struct Check {
         ~Check() { EXPECT_EQ( memory.substr( room ), std::string( memory.size() - room, '#' ) ); }
         std::string const& memory;
         std::size_t room;
      } const check{ memory_, static_cast< std::size_t >( std::max( size, 0 ) ) };
      return client_->result( memory_.data(), size );
   }
   // The same where it is an exception: its message.
   template< class E >
   std::string failure( int size ) {
      return messageOf< E >( [&] { result( size ); } );
   }
   // The buffer up to its first NUL.
   std::string text() const { return memory_.c_str(); }

   std::unique_ptr< ScriptedServer > server_;
   Client client_;
   std::string memory_;
};

TEST_F( ClientReplies, aPayloadOfOneByteLessThanTheBufferFits ) {
   sent( reply( "OK", "012345678" ) );
   EXPECT_EQ( result( 10 ), 9 );
   EXPECT_EQ( memory_.substr( 0, 11 ), std::string( "012345678\0#", 11 ) );
}

TEST_F( ClientReplies, aPayloadAsLongAsTheBufferDoesNotFitAndItsLastByteIsLost ) {
   sent( reply( "OK", "0123456789" ) );
   EXPECT_EQ( failure< RpcConnectionException >( 10 ), std::string( tooSmall ) + "012345678" );
   EXPECT_EQ( arrived(), 0 );
   EXPECT_EQ( trace_.lines().back(), "1 Client buffer overflowed!" );
}

TEST_F( ClientReplies, theExceptionOfAnOverflowHoldsAllButTheLastPiece ) {
   std::string const payload = "0123456789abcdefghijklmnopqrstuvwxyz";
   sent( reply( "ER", payload ) );
   // Pieces of 9, 10, 10 and 7.
   EXPECT_EQ( failure< RpcConnectionException >( 10 ), tooSmall + payload.substr( 0, 29 ) );
}

TEST_F( ClientReplies, theRestThatComesAtOnceIsNotInTheException ) {
   sent( reply( "OK", "0123456789abcdef" ) );
   EXPECT_EQ( failure< RpcConnectionException >( 10 ), std::string( tooSmall ) + "012345678" );
}

TEST_F( ClientReplies, thatDoNotFitAreReadToTheirEndAndNoFurther ) {
   sent( reply( "OK", "0123456789abcdef" ) + reply( "OK", "next" ) );
   EXPECT_THROW( result( 10 ), RpcConnectionException );
   EXPECT_EQ( result( 10 ), 4 );
   EXPECT_EQ( text(), "next" );
}

TEST_F( ClientReplies, thatDoNotFitMayHoldNulBytes ) {
   sent( reply( "OK", std::string( "a\0b\0cdefg", 9 ) ) );
   EXPECT_EQ( failure< RpcConnectionException >( 4 ), tooSmall + std::string( "a\0b\0cde", 7 ) );
}

TEST_F( ClientReplies, thatDoNotFitAndBreakOffAreTakenAsFarAsTheyCame ) {
   sentThenClosed( frame( 42, "OK0123456789abcde" ) );
   EXPECT_EQ(
      failure< RpcConnectionException >( 10 ), std::string( tooSmall ) + "0123456789abcde" );
   sentThenClosed( frame( 42, "OK0123" ) );
   EXPECT_EQ( failure< RpcConnectionException >( 10 ), std::string( tooSmall ) + "0123" );
   sentThenClosed( frame( 42, "OK" ) );
   EXPECT_EQ( failure< RpcConnectionException >( 10 ), tooSmall );
}

TEST_F( ClientReplies, ofAnyAnnouncedLengthAreTakenAsFarAsTheyCame ) {
   for( std::uint32_t const length : { 0x7fffffffu, 0x10000u, 0x01000000u } ) {
      sentThenClosed( frame( length, "OK0123456789" ) );
      EXPECT_EQ( failure< RpcConnectionException >( 4 ), std::string( tooSmall ) + "0123456789" );
   }
}

TEST_F( ClientReplies, areReadByteByByte ) {
   server_ = std::make_unique< ScriptedServer >( "", Sessions{ []( Peer& peer ) {
      peer.greet();
      peer.sendByteByByte( reply( "OK", "12345" ) + reply( "ER", "678" ) );
      peer.sendByteByByte( reply( "OK", "0123456789" ) );
      EXPECT_TRUE( peer.atEnd() );
   } } );
   client_ = client( server_->port(), 'x', nullptr );
   EXPECT_EQ( result( 10 ), 5 );
   EXPECT_EQ( text(), "12345" );
   EXPECT_EQ( failure< RpcException >( 10 ), "678" );
   // How the bytes gather is the system's business, but the last one is never there.
   std::string const message = failure< RpcConnectionException >( 6 );
   EXPECT_TRUE( ( tooSmall + std::string( "012345678" ) ).starts_with( message ) );
   EXPECT_TRUE( message.starts_with( tooSmall + std::string( "01234" ) ) );
}

TEST_F( ClientReplies, thatDoNotFitAreTakenInThePiecesInWhichTheyCome ) {
   std::string const payload = "0123456789abcdefghijklmno";
   server_ = std::make_unique< ScriptedServer >( socketPath(), Sessions{ [&payload]( Peer& peer ) {
      peer.greet();
      std::string const bytes = reply( "OK", payload );
      peer.send( bytes.substr( 0, 6 + 9 + 5 ) );
      peer.waitUntilRead();
      peer.send( bytes.substr( 6 + 9 + 5 ) );
      EXPECT_TRUE( peer.atEnd() );
   } } );
   client_ = client( socketName(), 'x', nullptr );
   // Pieces of 9, 5, 10 and 1.
   EXPECT_EQ( failure< RpcConnectionException >( 10 ), tooSmall + payload.substr( 0, 24 ) );
}

TEST_F( ClientReplies, aBufferOfOneByteTakesAnEmptyResult ) {
   sent( reply( "OK", "" ) + reply( "OK", "abc" ) );
   EXPECT_EQ( result( 1 ), 0 );
   EXPECT_EQ( memory_[0], '\0' );
   EXPECT_EQ( failure< RpcConnectionException >( 1 ), std::string( tooSmall ) + "ab" );
   EXPECT_EQ( arrived(), 0 );
}

TEST_F( ClientReplies, aBufferWithoutRoomIsNeverWritten ) {
   for( int const size : { 0, -1, -7, INT_MIN } ) {
      sent( reply( "OK", "" ) + reply( "OK", "abc" ) + reply( "OK", std::string( 300, 'x' ) ) +
            frame( 0, "OK" ) );
      EXPECT_EQ( failure< RpcConnectionException >( size ), tooSmall );
      EXPECT_EQ( failure< RpcConnectionException >( size ), tooSmall );
      EXPECT_EQ( failure< RpcConnectionException >( size ), tooSmall + std::string( 256, 'x' ) );
      if( size == INT_MIN || size < -1 ) {
         EXPECT_EQ( failure< RpcConnectionException >( size ), tooSmall );
      } else {
         EXPECT_EQ( result( size ), -2 );
      }
      EXPECT_EQ( arrived(), 0 );
   }
   sent( frame( 1, "ER" ) );
   EXPECT_EQ( messageOf< RpcException >( [this] { client_->result( nullptr, 0 ); } ), "" );
}

TEST_F( ClientReplies, ofALengthBelowThatOfTheStatusAreEmptyAndNegative ) {
   sent( frame( 0, "OK" ) + frame( 1, "OK" ) + frame( 2, "OK" ) + frame( 0, "ER" ) );
   for( int const expected : { -2, -1, 0 } ) {
      EXPECT_EQ( result( 10 ), expected );
      EXPECT_EQ( memory_[0], '\0' );
   }
   EXPECT_EQ( failure< RpcException >( 10 ), "" );
   EXPECT_EQ( memory_[0], '\0' );
}

TEST_F( ClientReplies, ofALengthWithTheTopBitAreNegativeAndTheirPayloadStays ) {
   struct {
      std::uint32_t length;
      int result;
   } const cases[] = { { 0x80000000u, INT_MIN }, { 0x80000001u, INT_MIN }, { 0x80000002u, INT_MIN },
      { 0x80000003u, INT_MIN + 1 }, { 0xffffffffu, -3 }, { 0xfffffffeu, -4 } };
   for( auto const& each : cases ) {
      sent( frame( each.length, "OK" ) + reply( "OK", "rest" ) );
      EXPECT_EQ( result( 10 ), each.result );
      EXPECT_EQ( memory_[0], '\0' );
      EXPECT_EQ( result( 10 ), 4 );
      EXPECT_EQ( text(), "rest" );
   }
   sent( frame( 0x80000000u, "ER" ) );
   EXPECT_EQ( failure< RpcException >( 10 ), "" );
}

TEST_F( ClientReplies, thatEndBeforeTheyBeginAreALostConnection ) {
   sentThenClosed( "" );
   EXPECT_EQ( failure< RpcConnectionException >( 10 ), "Peer of PyClient shut down the socket" );
}

TEST_F( ClientReplies, whoseHeaderIsCutGoOnWithZeros ) {
   std::string const whole = reply( "OK", "abc" );
   for( std::size_t bytes = 1; bytes < 6; ++bytes ) {
      sentThenClosed( whole.substr( 0, bytes ) );
      EXPECT_EQ( failure< RpcException >( 10 ), "" ) << bytes;
      EXPECT_EQ( memory_[0], '\0' );
      EXPECT_GE( client_->sock_, 0 );
   }
}

TEST_F( ClientReplies, whosePayloadIsCutGiveTheLengthThatWasAnnounced ) {
   std::string const whole = reply( "OK", "abc" );
   for( std::size_t bytes = 6; bytes < whole.size(); ++bytes ) {
      sentThenClosed( whole.substr( 0, bytes ) );
      EXPECT_EQ( result( 10 ), 3 );
      EXPECT_EQ( text(), std::string( "abc" ).substr( 0, bytes - 6 ) );
   }
   sentThenClosed( frame( 5, "ERab" ) );
   EXPECT_EQ( failure< RpcException >( 10 ), "ab" );
}

TEST_F( ClientReplies, theTraceShowsNoMoreThanCame ) {
   server_ = std::make_unique< ScriptedServer >( socketPath(), Sessions{ []( Peer& peer ) {
      peer.greet();
      peer.request();
      peer.send( frame( 9, "OKab" ) );
   } } );
   client_ = client( socketName(), 'x', nullptr );
   char result[16];
   EXPECT_EQ( client_->eval( "x", result, sizeof result ), 7 );
   EXPECT_EQ( trace_.lines().back(), "9 <- result (7 bytes) - ab" );
}

TEST_F( ClientReplies, theTraceOfANegativeResultShowsNothingOfTheBuffer ) {
   server_ = std::make_unique< ScriptedServer >( socketPath(), Sessions{ []( Peer& peer ) {
      peer.greet();
      peer.request();
      peer.send( frame( 1, "OK" ) );
      EXPECT_TRUE( peer.atEnd() );
   } } );
   client_ = client( socketName(), 'x', nullptr );
   EXPECT_EQ( client_->eval( "x", nullptr, 0 ), -1 );
   EXPECT_EQ( trace_.lines().back(), "9 <- result (-1 bytes) - " );
}

TEST_F( ClientReplies, thatAreResetInTheMiddleAreAnExceptionOfTheErrno ) {
   server_ = std::make_unique< ScriptedServer >( "", Sessions{ []( Peer& peer ) {
      peer.greet();
      peer.request();
      peer.send( frame( 9, "OKab" ) );
      peer.read( 1 );
      peer.reset();
   } } );
   client_ = client( server_->port(), 'x', nullptr );
   // The reset comes once the first bytes are read.
   socketSend( client_->sock_, "?1\0\0\0\0", 6, 0 );
   char head[6];
   ASSERT_EQ( recv( client_->sock_, head, sizeof head, MSG_WAITALL | MSG_PEEK ), 6 );
   socketSend( client_->sock_, "x", 1, 0 );
   auto const error = thrown< Kel::ErrnoException >( [this] { result( 10 ); } );
   EXPECT_EQ( error.errnoValue(), ECONNRESET );
}

} // namespace
