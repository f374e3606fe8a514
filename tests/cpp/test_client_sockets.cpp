// The blocking calls under the agent client.
#include "ClientTest.h"
#include "SystemCalls.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include <kelpy/client/AddrInfo.h>

namespace {

// Both ends of a connection.
class Pair {
 public:
   Pair() { EXPECT_EQ( socketpair( AF_UNIX, SOCK_STREAM, 0, ends_ ), 0 ); }
   Pair( Pair const& ) = delete;
   Pair& operator=( Pair const& ) = delete;
   ~Pair() {
      close( ends_[0] );
      closeFar();
   }

   int near() const { return ends_[0]; }
   int far() const { return ends_[1]; }
   void closeFar() {
      if( ends_[1] >= 0 ) {
         close( std::exchange( ends_[1], -1 ) );
      }
   }
   void fromFar( std::string const& text ) {
      EXPECT_EQ( write( ends_[1], text.data(), text.size() ), ssize_t( text.size() ) );
   }

 private:
   int ends_[2];
};

class ClientSockets : public ClientTest {
 protected:
   Pair pair_;
   char buffer_[16] = {};
   SystemCalls calls_;

   int receive( int length, bool waitAll ) {
      return socketRecv( pair_.near(), buffer_, length, waitAll );
   }
};

sockaddr_in loopback( int port ) {
   sockaddr_in address = {};
   address.sin_family = AF_INET;
   address.sin_addr.s_addr = htonl( INADDR_LOOPBACK );
   address.sin_port = htons( static_cast< std::uint16_t >( port ) );
   return address;
}

class Socket {
 public:
   Socket() : descriptor_( socket( AF_INET, SOCK_STREAM, 0 ) ) {}
   Socket( Socket const& ) = delete;
   Socket& operator=( Socket const& ) = delete;
   ~Socket() { close( descriptor_ ); }

   int connectTo( int port ) const {
      sockaddr_in address = loopback( port );
      return socketConnect( descriptor_, reinterpret_cast< sockaddr* >( &address ) );
   }
   int descriptor() const { return descriptor_; }

 private:
   int const descriptor_;
};

TEST_F( ClientSockets, receivingFromAPeerThatHasClosedGivesZeroAtOnce ) {
   pair_.closeFar();
   EXPECT_EQ( receive( 6, true ), 0 );
   EXPECT_EQ( receive( 6, false ), 0 );
   EXPECT_EQ( trace_.lines(), Lines() );
}

TEST_F( ClientSockets, waitingForAllGivesWhatCameBeforeTheEndOfTheStream ) {
   pair_.fromFar( "abc" );
   pair_.closeFar();
   EXPECT_EQ( receive( 6, true ), 3 );
   EXPECT_STREQ( buffer_, "abc" );
}

TEST_F( ClientSockets, waitingForAllCollectsPiecesUpToTheLengthAndNoFurther ) {
   std::thread sender( [this] {
      for( char const* piece : { "a", "bc", "defgh" } ) {
         pair_.fromFar( piece );
         std::this_thread::yield();
      }
   } );
   EXPECT_EQ( receive( 6, true ), 6 );
   EXPECT_STREQ( buffer_, "abcdef" );
   sender.join();
   EXPECT_EQ( receive( 6, false ), 2 );
}

TEST_F( ClientSockets, notWaitingForAllGivesTheFirstPiece ) {
   pair_.fromFar( "ab" );
   EXPECT_EQ( receive( 6, false ), 2 );
   EXPECT_STREQ( buffer_, "ab" );
}

TEST_F( ClientSockets, anInterruptedReceiveGoesOnBehindWhatIsThere ) {
   calls_.recv = { EINTR, EINTR, 0, EINTR };
   pair_.fromFar( "abc" );
   std::thread sender( [this] { pair_.fromFar( "def" ); } );
   EXPECT_EQ( receive( 6, true ), 6 );
   EXPECT_STREQ( buffer_, "abcdef" );
   sender.join();
   calls_.recv = { EINTR };
   pair_.fromFar( "xy" );
   EXPECT_EQ( receive( 6, false ), 2 );
   EXPECT_EQ( trace_.lines(), Lines() );
}

TEST_F( ClientSockets, aBufferOfNegativeLengthIsNotWritten ) {
   pair_.fromFar( "abc" );
   EXPECT_EQ( receive( -1, true ), 0 );
   EXPECT_STREQ( buffer_, "" );
}

TEST_F( ClientSockets, aFailedReceiveIsAnExceptionOfTheErrnoAlone ) {
   calls_.recv = { ECONNRESET };
   auto const failure = thrown< Kel::ErrnoException >( [this] { receive( 6, true ); } );
   EXPECT_EQ( failure.errnoValue(), ECONNRESET );
   EXPECT_EQ( failure.text(), "" );
   EXPECT_EQ( failure.message(), "Connection reset by peer" );
   EXPECT_EQ( trace_.lines(), Lines{ "8 socketRecv returned 104" } );
}

TEST_F( ClientSockets, aFailureBehindTheFirstPieceIsAFailure ) {
   calls_.recv = { 0, EIO };
   pair_.fromFar( "abc" );
   EXPECT_THROW( receive( 6, true ), Kel::ErrnoException );
}

TEST_F( ClientSockets, sendingTellsWhatOneSendAccepted ) {
   EXPECT_EQ( socketSend( pair_.near(), "abcdef", 4, 0 ), 4 );
   EXPECT_EQ( recv( pair_.far(), buffer_, sizeof buffer_, 0 ), 4 );
   EXPECT_STREQ( buffer_, "abcd" );
   std::string const much( 10'000'000, 'x' );
   int const accepted =
      socketSend( pair_.near(), much.data(), static_cast< int >( much.size() ), MSG_DONTWAIT );
   EXPECT_GT( accepted, 0 );
   EXPECT_LT( accepted, static_cast< int >( much.size() ) );
}

TEST_F( ClientSockets, anInterruptedSendStartsAgain ) {
   calls_.send = { EINTR, EINTR };
   EXPECT_EQ( socketSend( pair_.near(), "abc", 3, 0 ), 3 );
   EXPECT_EQ( recv( pair_.far(), buffer_, sizeof buffer_, 0 ), 3 );
   EXPECT_STREQ( buffer_, "abc" );
   EXPECT_EQ( trace_.lines(), Lines() );
}

TEST_F( ClientSockets, aFailedSendIsAnExceptionOfTheErrnoAlone ) {
   pair_.closeFar();
   auto const failure =
      thrown< Kel::ErrnoException >( [this] { socketSend( pair_.near(), "abc", 3, 0 ); } );
   EXPECT_EQ( failure.errnoValue(), EPIPE );
   EXPECT_EQ( failure.message(), "Broken pipe" );
   EXPECT_EQ( trace_.lines(), Lines{ "8 send returned 32" } );
}

TEST_F( ClientSockets, connectingGivesZero ) {
   ScriptedServer const server( "", { []( Peer& peer ) { EXPECT_TRUE( peer.atEnd() ); } } );
   EXPECT_EQ( Socket().connectTo( server.port() ), 0 );
   EXPECT_EQ( trace_.lines(), Lines() );
}

TEST_F( ClientSockets, aRefusedConnectIsAnExceptionOfTheErrnoAlone ) {
   DeafServer const server( "" );
   auto const failure =
      thrown< Kel::ErrnoException >( [&server] { Socket().connectTo( server.port() ); } );
   EXPECT_EQ( failure.errnoValue(), ECONNREFUSED );
   EXPECT_EQ( failure.text(), "" );
   EXPECT_EQ( trace_.lines(), Lines{ "8 socketConnect returned 111" } );
}

TEST_F( ClientSockets, anInterruptedConnectIsRepeated ) {
   ScriptedServer const server( "", { []( Peer& peer ) { EXPECT_TRUE( peer.atEnd() ); } } );
   calls_.connect = { EINTR, EINTR };
   EXPECT_EQ( Socket().connectTo( server.port() ), 0 );
   EXPECT_EQ( trace_.lines(), Lines() );
}

TEST_F( ClientSockets, whatARepeatedConnectMeetsIsAFailureLikeAnyOther ) {
   calls_.connect = { EINTR, EALREADY };
   auto const failure = thrown< Kel::ErrnoException >( [] { Socket().connectTo( 1 ); } );
   EXPECT_EQ( failure.errnoValue(), EALREADY );
   EXPECT_EQ( trace_.lines(), Lines{ "8 socketConnect returned 114" } );
}

TEST_F( ClientSockets, aConnectionThatStandsBehindAnInterruptedConnectIsAFailure ) {
   ScriptedServer const server( "", { []( Peer& peer ) { EXPECT_TRUE( peer.atEnd() ); } } );
   calls_.connectIsInterruptedLate = true;
   auto const failure =
      thrown< Kel::ErrnoException >( [&server] { Socket().connectTo( server.port() ); } );
   EXPECT_EQ( failure.errnoValue(), EISCONN );
}

TEST_F( ClientSockets, shareOneTraceHandle ) {
   EXPECT_EQ( &_defaultTraceHandle(), &_defaultTraceHandle() );
   EXPECT_STREQ( _defaultTraceHandle().name(), "PyClient" );
}

TEST_F( ClientSockets, aListOfAddressesMayBeMissing ) {
   Kel::AddrInfo const none( nullptr );
   EXPECT_EQ( none.get(), nullptr );
   EXPECT_TRUE( std::has_virtual_destructor_v< Kel::AddrInfo > );
}

} // namespace
