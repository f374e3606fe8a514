// Commands to a server elsewhere: the frames, the one reconnect, the command that is run first.
#include "ClientTest.h"
#include "SystemCalls.h"

#include <poll.h>

#include <cerrno>

namespace {

using Kel::ErrnoException;
using Kel::RpcConnectionException;
using Kel::RpcException;

using ClientCommands = ClientTest;

// The frame of a command.
std::string request( std::string_view header, std::string_view text ) {
   return std::string( header ) + frame( static_cast< std::uint32_t >( text.size() ), text );
}

// Answers one command with that reply, once it has come as that frame.
ScriptedServer::Session answering( std::string const& expected, std::string const& answer ) {
   return [=]( Peer& peer ) {
      peer.greet();
      EXPECT_EQ( peer.request(), expected );
      peer.send( answer );
      EXPECT_TRUE( peer.atEnd() );
   };
}

// Resets the connection instead of an answer.
ScriptedServer::Session resettingAfter( std::string const& expected ) {
   return [=]( Peer& peer ) {
      peer.greet();
      EXPECT_EQ( peer.request(), expected );
      peer.reset();
   };
}

// What the body makes its client write to standard error.
template< class Body >
std::string saidBy( Body body ) {
   testing::internal::CaptureStderr();
   body();
   return testing::internal::GetCapturedStderr();
}

// Takes the command and closes.
ScriptedServer::Session closingAfter( std::string const& expected ) {
   return [=]( Peer& peer ) {
      peer.greet();
      EXPECT_EQ( peer.request(), expected );
   };
}

std::string const onePlusOne( "?1\0\0\0\003"
                              "1+1",
   9 );

constexpr char reconnecting[] = "[PyClient reconnecting to port 0]\n";
constexpr char tooSmall[] = "Buffer for PyClient result was too small.  "
                            "The original exception follows:\n";
constexpr char peerShut[] =
   "1 send/result returned RpcException Peer of PyClient shut down the socket";

TEST_F( ClientCommands, evalSendsItsFrameAndGivesTheLengthOfTheResult ) {
   ScriptedServer const server(
      socketPath(), { answering( onePlusOne, std::string( "\0\0\0\003OK2", 7 ) ) } );
   auto const made = client( socketName(), 'x', nullptr );
   TraceLog const trace;
   char result[8] = "xxxxxxx";
   EXPECT_EQ( made->eval( "1+1", result, sizeof result ), 1 );
   EXPECT_EQ( std::string( result, sizeof result ), std::string( "2\0xxxxx\0", 8 ) );
   EXPECT_EQ( trace.lines(), ( Lines{ "9 -> eval '1+1'", "9 <- result (1 bytes) - 2" } ) );
}

TEST_F( ClientCommands, executeSendsTheOtherHeader ) {
   ScriptedServer const server( socketPath(),
      { answering( std::string( "?2\0\0\0\005x = 1", 11 ), std::string( "\0\0\0\002OK", 6 ) ) } );
   auto const made = client( socketName(), 'x', nullptr );
   TraceLog const trace;
   char result[8] = "x";
   EXPECT_EQ( made->execute( "x = 1", result, sizeof result ), 0 );
   EXPECT_STREQ( result, "" );
   EXPECT_EQ( trace.lines(), ( Lines{ "9 -> execute 'x = 1'", "9 <- result (0 bytes) - " } ) );
}

TEST_F( ClientCommands, anEmptyTextIsSentAsAHeaderWithoutAny ) {
   ScriptedServer const server(
      socketPath(), { answering( std::string( "?1\0\0\0\0", 6 ), reply( "OK", "" ) ) } );
   char result[8];
   EXPECT_EQ( client( socketName(), 'x', nullptr )->eval( "", result, sizeof result ), 0 );
}

TEST_F( ClientCommands, doCmdAndRemoteCmdSendTheHeaderThatTheyGetAndTraceNothing ) {
   ScriptedServer const server( socketPath(), { []( Peer& peer ) {
      peer.greet();
      EXPECT_EQ( peer.request(), request( "?7", "a" ) );
      peer.send( reply( "OK", "b" ) );
      EXPECT_EQ( peer.request(), request( "??", "c" ) );
      peer.send( reply( "OK", "d" ) );
   } } );
   auto const made = client( socketName(), 'x', nullptr );
   TraceLog const trace;
   char result[8];
   EXPECT_EQ( made->doCmd( "a", "?7", result, sizeof result ), 1 );
   EXPECT_STREQ( result, "b" );
   EXPECT_EQ( made->remoteCmd( "c", "??", result, sizeof result ), 1 );
   EXPECT_STREQ( result, "d" );
   EXPECT_EQ( trace.lines(), Lines() );
}

TEST_F( ClientCommands, theFrameIsAsLongAsTheTextSaysWhateverTheHeader ) {
   ScriptedServer const server( socketPath(), { []( Peer& peer ) {
      peer.greet();
      EXPECT_EQ( peer.read( 9 ), std::string( "?12\0\0\0\003ab", 9 ) );
      peer.send( reply( "OK", "" ) );
      EXPECT_EQ( peer.read( 9 ), std::string( "?\0\0\0\003abc\0", 9 ) );
      peer.send( reply( "OK", "" ) );
      EXPECT_EQ( peer.read( 9 ), std::string( "\0\0\0\003abc\0\0", 9 ) );
      peer.send( reply( "OK", "" ) );
      EXPECT_TRUE( peer.atEnd() );
   } } );
   auto const made = client( socketName(), 'x', nullptr );
   char result[8];
   EXPECT_EQ( made->remoteCmd( "abc", "?12", result, sizeof result ), 0 );
   EXPECT_EQ( made->remoteCmd( "abc", "?", result, sizeof result ), 0 );
   EXPECT_EQ( made->remoteCmd( "abc", "", result, sizeof result ), 0 );
}

TEST_F( ClientCommands, theLongestTextHas4089Bytes ) {
   std::string const longest( 4089, 'x' );
   std::string const sent = request( "?1", longest );
   ASSERT_EQ( sent.size(), 4095u );
   ASSERT_EQ( sent.substr( 2, 4 ), std::string( "\0\0\x0f\xf9", 4 ) );
   ScriptedServer const server( socketPath(), { answering( sent, reply( "OK", "" ) ) } );
   auto const made = client( socketName(), 'x', nullptr );
   char result[8];
   EXPECT_EQ( messageOf< Kel::RangeException >(
                 [&] { made->eval( ( longest + "x" ).c_str(), result, sizeof result ); } ),
      "Remote eval/exec command was too long: " + longest + "x, request cannot exceed 4090 bytes" );
   EXPECT_EQ( made->eval( longest.c_str(), result, sizeof result ), 0 );
}

TEST_F( ClientCommands, aFailedStatusIsAnExceptionThatLeavesTheConnectionInStep ) {
   ScriptedServer const server( socketPath(), { []( Peer& peer ) {
      peer.greet();
      for( char const* status : { "ER", "ok", "OX", "XK", "KO" } ) {
         peer.request();
         peer.send( reply( status, "NameError: x" ) );
      }
      peer.request();
      peer.send( reply( "OK", "fine" ) );
   } } );
   auto const made = client( socketName(), 'x', nullptr );
   TraceLog const trace;
   char result[32];
   for( int i = 0; i < 5; ++i ) {
      EXPECT_EQ( messageOf< RpcException >( [&] { made->eval( "x", result, sizeof result ); } ),
         "NameError: x" );
      EXPECT_STREQ( result, "NameError: x" );
   }
   EXPECT_EQ( trace.lines( 1 ), Lines( 5, "1 Server threw some exception" ) );
   EXPECT_EQ( made->eval( "x", result, sizeof result ), 4 );
   EXPECT_STREQ( result, "fine" );
}

TEST_F( ClientCommands, anOverlongResultInTheMessageKeepsItsNulBytes ) {
   std::string const payload( "a\0b", 3 );
   ScriptedServer const server( socketPath(), { [&payload]( Peer& peer ) {
      peer.greet();
      peer.request();
      peer.send( reply( "ER", payload ) );
   } } );
   auto const made = client( socketName(), 'x', nullptr );
   char result[32];
   EXPECT_EQ(
      messageOf< RpcException >( [&] { made->eval( "x", result, sizeof result ); } ), payload );
}

TEST_F( ClientCommands, aServerThatClosesAfterTheRequestGetsItOnceMore ) {
   ScriptedServer const server(
      socketPath(), { closingAfter( onePlusOne ), answering( onePlusOne, reply( "OK", "2" ) ) } );
   auto const made = client( socketName(), 'x', nullptr );
   TraceLog const trace;
   char result[8];
   auto const said = saidBy( [&] { EXPECT_EQ( made->eval( "1+1", result, sizeof result ), 1 ); } );
   EXPECT_EQ( said, reconnecting );
   EXPECT_STREQ( result, "2" );
   EXPECT_FALSE( made->noReconnect_ );
   EXPECT_EQ( trace.lines(),
      ( Lines{ "9 -> eval '1+1'", peerShut, "0 Reconnecting to / port 0",
         "1 Trying to connect to socket " + socketPath(), "1 Connected to socket " + socketPath(),
         "1 Connected", "9 <- result (1 bytes) - 2" } ) );
}

TEST_F( ClientCommands, eachCommandMayBeSentTwice ) {
   ScriptedServer const server(
      socketPath(), { closingAfter( onePlusOne ),
                       []( Peer& peer ) {
                          peer.greet();
                          peer.request();
                          peer.send( reply( "OK", "2" ) );
                          EXPECT_EQ( peer.request(), request( "?2", "b" ) );
                       },
                       answering( request( "?2", "b" ), reply( "OK", "" ) ) } );
   auto const made = client( socketName(), 'x', nullptr );
   char result[8];
   auto const said = saidBy( [&] {
      EXPECT_EQ( made->eval( "1+1", result, sizeof result ), 1 );
      EXPECT_EQ( made->execute( "b", result, sizeof result ), 0 );
   } );
   EXPECT_EQ( said, std::string( reconnecting ) + reconnecting );
}

TEST_F( ClientCommands, aServerThatClosesTwiceIsGivenUp ) {
   ScriptedServer const server( "", { closingAfter( onePlusOne ), closingAfter( onePlusOne ) } );
   auto const made = client( server.port(), 'x', nullptr );
   TraceLog const trace;
   std::string const port = std::to_string( server.port() );
   char result[8];
   std::string message;
   auto const said = saidBy( [&] {
      message =
         messageOf< RpcConnectionException >( [&] { made->eval( "1+1", result, sizeof result ); } );
   } );
   EXPECT_EQ( message, "Cannot talk to server , unrecoverable server failure:"
                       "Peer of PyClient shut down the socket" );
   EXPECT_EQ( said, "[PyClient reconnecting to port " + port + "]\n" );
   EXPECT_EQ( made->sock_, -1 );
   EXPECT_EQ( trace.lines( 0 ),
      ( Lines{ "0 Reconnecting to / port " + port, "0 Failed to communicate with server" } ) );
}

TEST_F( ClientCommands, theNamesOfAServerStandInItsLines ) {
   ScriptedServer const server(
      socketPath(), { closingAfter( onePlusOne ), closingAfter( onePlusOne ) } );
   AgentFile const file( folder_ / "group.name", agentText( 1, 0, socketPath() ) );
   auto const made = client( "group", "name", 'x', nullptr, nullptr );
   TraceLog const trace;
   char result[8];
   std::string message;
   auto const said = saidBy( [&] {
      message =
         messageOf< RpcConnectionException >( [&] { made->eval( "1+1", result, sizeof result ); } );
   } );
   EXPECT_EQ( message, "Cannot talk to server group.name, unrecoverable server failure:"
                       "Peer of PyClient shut down the socket" );
   EXPECT_EQ( said, "[PyClient reconnecting to group.name]\n" );
   EXPECT_EQ( trace.lines( 0 ),
      ( Lines{ "0 Reconnecting togroup.name / port 0", "0 Failed to communicate with server" } ) );
}

TEST_F( ClientCommands, withNoReconnectAreSentOnce ) {
   ScriptedServer const server( socketPath(), { closingAfter( onePlusOne ) } );
   auto const made = client( socketName(), 'x', nullptr );
   made->noReconnect_ = true;
   char result[8];
   auto const said = saidBy(
      [&] { EXPECT_THROW( made->eval( "1+1", result, sizeof result ), RpcConnectionException ); } );
   EXPECT_EQ( said, "" );
   EXPECT_EQ( made->sock_, -1 );
}

TEST_F( ClientCommands, aServerThatResetsGetsTheRequestOnceMore ) {
   ScriptedServer const server(
      "", { resettingAfter( onePlusOne ), answering( onePlusOne, reply( "OK", "2" ) ) } );
   auto const made = client( server.port(), 'x', nullptr );
   TraceLog const trace;
   char result[8];
   saidBy( [&] { EXPECT_EQ( made->eval( "1+1", result, sizeof result ), 1 ); } );
   EXPECT_EQ( trace.lines( 9 ),
      ( Lines{ "9 -> eval '1+1'", "9 send/result returned Connection reset by peer 104 ",
         "9 <- result (1 bytes) - 2" } ) );
   EXPECT_EQ( trace.lines( 8 ), Lines{ "8 socketRecv returned 104" } );
}

TEST_F( ClientCommands, theMessageOfASecondResetIsTheFailure ) {
   ScriptedServer const server( "", { closingAfter( onePlusOne ), resettingAfter( onePlusOne ) } );
   auto const made = client( server.port(), 'x', nullptr );
   char result[8];
   std::string message;
   saidBy( [&] {
      message =
         messageOf< RpcConnectionException >( [&] { made->eval( "1+1", result, sizeof result ); } );
   } );
   EXPECT_EQ(
      message, "Cannot talk to server , unrecoverable server failure:Connection reset by peer" );
}

TEST_F( ClientCommands, aServerThatWentBetweenCommandsGetsTheNextOneAnew ) {
   ScriptedServer const server( socketPath(),
      { []( Peer& peer ) { peer.greet(); }, answering( onePlusOne, reply( "OK", "2" ) ) } );
   auto const made = client( socketName(), 'x', nullptr );
   pollfd gone = { made->sock_, POLLIN, 0 };
   ASSERT_EQ( poll( &gone, 1, -1 ), 1 );
   TraceLog const trace;
   char result[8];
   saidBy( [&] { EXPECT_EQ( made->eval( "1+1", result, sizeof result ), 1 ); } );
   EXPECT_EQ( trace.lines( 9 )[1], "9 send/result returned Broken pipe 32 " );
}

TEST_F( ClientCommands, anyOtherFailureIsTheCallersAndLeavesTheSocketOpen ) {
   ScriptedServer const server( socketPath(), { answering( onePlusOne, reply( "OK", "2" ) ) } );
   auto const made = client( socketName(), 'x', nullptr );
   SystemCalls calls;
   calls.send = { EIO };
   TraceLog const trace;
   char result[8];
   int const sock = made->sock_;
   auto const failure =
      thrown< ErrnoException >( [&] { made->eval( "1+1", result, sizeof result ); } );
   EXPECT_EQ( failure.errnoValue(), EIO );
   EXPECT_EQ( trace.lines(), ( Lines{ "9 -> eval '1+1'", "8 send returned 5",
                                "9 send/result returned Input/output error 5 ",
                                "1 remoteCmd error Input/output error" } ) );
   EXPECT_EQ( made->sock_, sock );
   EXPECT_EQ( made->eval( "1+1", result, sizeof result ), 1 );
}

TEST_F( ClientCommands, ofAClientThatGaveUpFailUntilItConnectsAnew ) {
   ScriptedServer const server(
      socketPath(), { closingAfter( onePlusOne ), answering( onePlusOne, reply( "OK", "2" ) ) } );
   auto const made = client( socketName(), 'x', nullptr );
   made->noReconnect_ = true;
   char result[8];
   EXPECT_THROW( made->eval( "1+1", result, sizeof result ), RpcConnectionException );
   made->noReconnect_ = false;
   for( int i = 0; i < 2; ++i ) {
      auto const failure =
         thrown< ErrnoException >( [&] { made->eval( "1+1", result, sizeof result ); } );
      EXPECT_EQ( failure.errnoValue(), EBADF );
   }
   made->connect();
   EXPECT_EQ( made->eval( "1+1", result, sizeof result ), 1 );
}

TEST_F( ClientCommands, whoseReconnectIsRefusedGiveItsFailure ) {
   RetryProfile const profile( { 1, 0 } );
   ScriptedServer const server( "", { closingAfter( onePlusOne ) } );
   auto const made = client( server.port(), 'x', nullptr );
   char result[8];
   leftOpen_ = 1; // of two refused attempts; the other one is still the client's
   saidBy( [&] {
      EXPECT_EQ(
         messageOf< RpcConnectionException >( [&] { made->eval( "1+1", result, sizeof result ); } ),
         "Unable to connect to " );
   } );
   EXPECT_FALSE( made->connected_ );
}

TEST_F( ClientCommands, whoseReconnectFailsOtherwiseGiveItsFailure ) {
   ScriptedServer const server( socketPath(), { [this]( Peer& peer ) {
      peer.greet();
      peer.request();
      unlink( socketPath().c_str() );
   } } );
   auto const made = client( socketName(), 'x', nullptr );
   char result[8];
   saidBy( [&] {
      auto const failure =
         thrown< ErrnoException >( [&] { made->eval( "1+1", result, sizeof result ); } );
      EXPECT_EQ( failure.errnoValue(), ENOENT );
   } );
   EXPECT_EQ( made->sock_, -1 );
}

TEST_F( ClientCommands, followAnAgentThatRestartsOnAnotherPort ) {
   ScriptedServer const second( "", { answering( onePlusOne, reply( "OK", "2" ) ) } );
   std::optional< AgentFile > file;
   ScriptedServer const first( "", { [&]( Peer& peer ) {
      peer.greet();
      EXPECT_EQ( peer.request(), onePlusOne );
      file->textIs( agentText( 1, second.port(), "" ) );
   } } );
   file.emplace( folder_ / "group.name", agentText( 1, first.port(), "" ) );
   auto const made = client( "group", "name", 'x', nullptr, nullptr );
   char result[8];
   saidBy( [&] { EXPECT_EQ( made->eval( "1+1", result, sizeof result ), 1 ); } );
   EXPECT_STREQ( result, "2" );
}

TEST_F( ClientCommands, whoseResultDoesNotFitRunTwiceAndFail ) {
   auto const server = [this]( std::string const& answer ) {
      std::filesystem::remove( socketPath() );
      auto const session = answering( onePlusOne, answer );
      return std::make_unique< ScriptedServer >( socketPath(), Sessions{ session, session } );
   };
   char result[10];
   for( char const* status : { "OK", "ER" } ) {
      auto const running = server( reply( status, "0123456789" ) );
      auto const made = client( socketName(), 'x', nullptr );
      std::string message;
      auto const said = saidBy( [&] {
         message = messageOf< RpcConnectionException >(
            [&] { made->eval( "1+1", result, sizeof result ); } );
      } );
      EXPECT_EQ( message, std::string( "Cannot talk to server , unrecoverable server failure:" ) +
                             tooSmall + "012345678" );
      EXPECT_EQ( said, reconnecting );
   }
}

TEST_F( ClientCommands, theTextOfAServersExceptionMayFillTheBuffer ) {
   ScriptedServer const server(
      socketPath(), { answering( onePlusOne, reply( "ER", "012345678" ) ) } );
   auto const made = client( socketName(), 'x', nullptr );
   char result[10];
   EXPECT_EQ( messageOf< RpcException >( [&] { made->eval( "1+1", result, sizeof result ); } ),
      "012345678" );
   EXPECT_EQ( result[9], '\0' );
}

// The command that a client runs as soon as it is connected.
using ClientInitCommand = ClientTest;

ScriptedServer::Session initialised( std::string const& answer ) {
   return answering( request( "?2", "init" ), answer );
}

TEST_F( ClientInitCommand, isExecutedAndForbidsToReconnect ) {
   ScriptedServer const server( socketPath(), { []( Peer& peer ) {
      peer.greet();
      EXPECT_EQ( peer.request(), request( "?2", "init" ) );
      peer.send( reply( "OK", "dropped" ) );
      peer.request();
   } } );
   TraceLog const trace;
   auto const made = client( socketName(), 'x', "init" );
   EXPECT_EQ( made->initCommand_, "init" );
   EXPECT_TRUE( made->noReconnect_ );
   EXPECT_EQ(
      trace.lines( 9 ), ( Lines{ "9 -> execute 'init'", "9 <- result (7 bytes) - dropped" } ) );
   char result[8];
   auto const said = saidBy(
      [&] { EXPECT_THROW( made->eval( "1", result, sizeof result ), RpcConnectionException ); } );
   EXPECT_EQ( said, "" );
}

TEST_F( ClientInitCommand, mayGive255Bytes ) {
   ScriptedServer const server(
      socketPath(), { initialised( reply( "OK", std::string( 255, 'r' ) ) ) } );
   EXPECT_TRUE( client( socketName(), 'x', "init" )->noReconnect_ );
}

TEST_F( ClientInitCommand, thatGives256BytesFailsTheConstructorAfterOneRun ) {
   ScriptedServer const server(
      socketPath(), { initialised( reply( "OK", std::string( 256, 'r' ) ) ) } );
   std::string message;
   auto const said = saidBy( [&] {
      message =
         messageOf< RpcConnectionException >( [this] { client( socketName(), 'x', "init" ); } );
   } );
   EXPECT_EQ( message, std::string( "Cannot talk to server , unrecoverable server failure:" ) +
                          tooSmall + std::string( 255, 'r' ) );
   EXPECT_EQ( said, "" );
}

TEST_F( ClientInitCommand, thatRaisesFailsTheConstructor ) {
   ScriptedServer const server( socketPath(), { initialised( reply( "ER", "no" ) ) } );
   EXPECT_EQ( messageOf< RpcException >( [this] { client( socketName(), 'x', "init" ); } ), "no" );
}

TEST_F( ClientInitCommand, thatIsTooLongFailsTheConstructor ) {
   ScriptedServer const server( socketPath(), { []( Peer& peer ) {
      peer.greet();
      EXPECT_TRUE( peer.atEnd() );
   } } );
   EXPECT_THROW(
      client( socketName(), 'x', std::string( 4090, 'i' ).c_str() ), Kel::RangeException );
}

TEST_F( ClientInitCommand, thatFailsLeavesTheFlagAsItWas ) {
   auto const failing = initialised( reply( "ER", "no" ) );
   ScriptedServer const server(
      socketPath(), { []( Peer& peer ) { peer.greet(); }, failing, failing } );
   auto const made = client( socketName(), 'x', nullptr );
   made->initCommand_ = "init";
   for( bool const flag : { false, true } ) {
      close( made->sock_ );
      made->noReconnect_ = flag;
      EXPECT_THROW( made->connect(), RpcException );
      EXPECT_EQ( made->noReconnect_, flag );
      EXPECT_TRUE( made->connected_ );
   }
}

TEST_F( ClientInitCommand, runsAgainWithEachReconnect ) {
   ScriptedServer const server( socketPath(), { closingAfter( onePlusOne ), []( Peer& peer ) {
                                                  peer.greet();
                                                  EXPECT_EQ(
                                                     peer.request(), request( "?2", "init" ) );
                                                  peer.send( reply( "OK", "" ) );
                                                  EXPECT_EQ( peer.request(), onePlusOne );
                                                  peer.send( reply( "OK", "2" ) );
                                               } } );
   auto const made = client( socketName(), 'x', nullptr );
   made->initCommand_ = "init";
   char result[8];
   saidBy( [&] { EXPECT_EQ( made->eval( "1+1", result, sizeof result ), 1 ); } );
   EXPECT_TRUE( made->noReconnect_ );
}

} // namespace
