// How a client finds and greets its server, and what it does where that fails.
#include "ClientTest.h"
#include "SystemCalls.h"

#include <netdb.h>

#include <cerrno>
#include <future>

namespace {

using Kel::ErrnoException;
using Kel::PyServerContacts;
using Kel::RpcConnectionException;

using ClientConnection = ClientTest;

void greetOnly( Peer& peer ) {
   EXPECT_EQ( peer.greet(), "xR" );
   EXPECT_TRUE( peer.atEnd() );
}

std::string refused( std::string const& server, std::string const& place ) {
   return "0 PyServer " + server + " was not listening on " + place;
}

TEST_F( ClientConnection, ofASocketHasNoNames ) {
   ScriptedServer const server( socketPath(), { greetOnly } );
   auto const made = client( socketName(), 'x', nullptr );
   EXPECT_EQ( made->socketName_, socketPath() );
   EXPECT_EQ( made->port_, 0 );
   EXPECT_EQ( made->agentGroup_ + made->agentName_ + made->serverName_, "" );
   EXPECT_STREQ( made->subsystemId_, "" );
   EXPECT_EQ( made->initCommand_, "" );
   EXPECT_EQ( made->greetingByte_, 'x' );
   EXPECT_FALSE( made->localServer_ );
   EXPECT_GE( made->sock_, 0 );
   EXPECT_TRUE( made->connected_ );
   EXPECT_FALSE( made->noReconnect_ );
   EXPECT_FALSE( made->sameProcess_ );
   EXPECT_EQ( trace_.lines(), ( Lines{ "1 Trying to connect to socket " + socketPath(),
                                 "1 Connected to socket " + socketPath(), "1 Connected" } ) );
}

TEST_F( ClientConnection, ofAPortHasNoNames ) {
   ScriptedServer const server( "", { greetOnly } );
   auto const made = client( server.port(), 'x', "" );
   EXPECT_EQ( made->port_, server.port() );
   EXPECT_EQ( made->socketName_, "" );
   EXPECT_EQ( made->serverName_, "" );
   EXPECT_STREQ( made->subsystemId_, "" );
   EXPECT_TRUE( made->connected_ );
   std::string const place = "port " + std::to_string( server.port() );
   EXPECT_EQ( trace_.lines(),
      ( Lines{ "1 Trying to connect to " + place, "1 Connected to " + place, "1 Connected" } ) );
}

TEST_F( ClientConnection, ofAnAgentGoesToTheSocketThatItsFileNames ) {
   ScriptedServer const server( socketPath(), { greetOnly } );
   AgentFile const file( folder_ / "group.name", agentText( 1, 9, socketPath() ) );
   auto const made = client( "group", "name", 'x', nullptr, nullptr );
   EXPECT_EQ( made->agentGroup_, "group" );
   EXPECT_EQ( made->agentName_, "name" );
   EXPECT_EQ( made->serverName_, "group.name" );
   // What the file tells is no member's business: the next look may tell something else.
   EXPECT_EQ( made->port_, 0 );
   EXPECT_EQ( made->socketName_, "" );
   EXPECT_EQ( trace_.lines( 1 ),
      ( Lines{ "1 Trying to connect to socket " + socketPath(),
         "1 Connected to socket " + socketPath(), "1 Connected to group.name" } ) );
}

TEST_F( ClientConnection, ofAnAgentWithoutAGroupLooksForAFileOfItsNameToo ) {
   ScriptedServer const server( socketPath(), { greetOnly } );
   AgentFile const file( folder_ / ".name", agentText( 1, 9, socketPath() ) );
   auto const made = client( "", "name", 'x', nullptr, nullptr );
   EXPECT_EQ( made->agentGroup_, "" );
   EXPECT_TRUE( made->connected_ );
}

TEST_F( ClientConnection, ofAnAgentGoesToThePortThatItsFileNames ) {
   ScriptedServer const server( "", { greetOnly } );
   AgentFile const file( folder_ / "group.name", agentText( 1, server.port(), "" ) );
   EXPECT_TRUE( client( "group", "name", 'x', nullptr, nullptr )->connected_ );
}

TEST_F( ClientConnection, ofAnAgentTakesTheSubsystemFromTheCaller ) {
   ScriptedServer const server( socketPath(), { greetOnly } );
   AgentFile const file( folder_ / "group.name.7", agentText( 1, 0, socketPath() ) );
   Environment const other( "SUBSYSTEMID", "other" );
   char const id[] = "7";
   auto const made = client( "group", "name", 'x', id, nullptr );
   EXPECT_EQ( made->subsystemId_, id ); // the very text
   EXPECT_EQ( made->serverName_, "group.name.7" );
}

TEST_F( ClientConnection, ofAnAgentTakesTheSubsystemFromTheEnvironment ) {
   ScriptedServer const server( socketPath(), { greetOnly } );
   AgentFile const file( folder_ / "group.name.id%s", agentText( 1, 0, socketPath() ) );
   Environment const id( "SUBSYSTEMID", "id%s" );
   auto const made = client( "group", "name", 'x', nullptr, nullptr );
   EXPECT_EQ( made->serverName_, "group.name.id%s" );
   EXPECT_EQ( made->subsystemId_, std::getenv( "SUBSYSTEMID" ) );
}

TEST_F( ClientConnection, withAnEmptySubsystemIgnoresTheEnvironment ) {
   ScriptedServer const server( socketPath(), { greetOnly } );
   AgentFile const file( folder_ / "group.name", agentText( 1, 0, socketPath() ) );
   Environment const id( "SUBSYSTEMID", "id" );
   EXPECT_EQ( client( "group", "name", 'x', "", nullptr )->serverName_, "group.name" );
}

TEST_F( ClientConnection, withItselfNeedsNoSocket ) {
   AgentFile const file( folder_ / "group.name", agentText( getpid(), 9, socketPath() ) );
   auto const made = client( "group", "name", 'x', nullptr, nullptr );
   EXPECT_EQ( made->sock_, -1 );
   EXPECT_TRUE( made->connected_ );
   EXPECT_TRUE( made->sameProcess_ );
   EXPECT_EQ( trace_.lines().back(), "8 No connection necessary when destination is this process" );
}

TEST_F( ClientConnection, passesAnyGreetingByteOn ) {
   ScriptedServer const server( socketPath(), { []( Peer& peer ) {
      EXPECT_EQ( peer.greet(), "\xffR" );
      EXPECT_TRUE( peer.atEnd() );
   } } );
   client( socketName(), '\xff', nullptr );
}

TEST_F( ClientConnection, waitsForAllFourBytesOfTheAnswer ) {
   ScriptedServer const server( socketPath(), { []( Peer& peer ) {
      peer.read( 2 );
      peer.sendByteByByte( "1234" );
      peer.send( reply( "OK", "2" ) );
      EXPECT_EQ( peer.request().size(), 9u );
   } } );
   char result[8];
   EXPECT_EQ( client( socketName(), 'x', nullptr )->eval( "1+1", result, sizeof result ), 1 );
   EXPECT_STREQ( result, "2" );
}

TEST_F( ClientConnection, toAServerThatClosesInsteadOfAnsweringStands ) {
   for( char const* answer : { "", "1", "12", "123" } ) {
      std::string const path = folder_ / ( "socket" + std::string( answer ) );
      ScriptedServer const server( path, { [answer]( Peer& peer ) { peer.greet( answer ); } } );
      auto const made = client( Kel::String( path ), 'x', nullptr );
      EXPECT_TRUE( made->connected_ );
      EXPECT_GE( made->sock_, 0 );
   }
}

TEST_F( ClientConnection, thatIsResetInTheGreetingFailsAtOnce ) {
   RetryProfile const profile( { 1, 1, 0 } );
   ScriptedServer const server( "", { []( Peer& peer ) {
      peer.read( 2 );
      peer.send( "12" );
      peer.reset();
   } } );
   auto const failure =
      thrown< ErrnoException >( [&server] { client( server.port(), 'x', nullptr ); } );
   EXPECT_EQ( failure.errnoValue(), ECONNRESET );
   EXPECT_EQ(
      trace_.lines(), ( Lines{ "1 Trying to connect to port " + std::to_string( server.port() ),
                         "8 socketRecv returned 104" } ) );
}

TEST_F( ClientConnection, whosePipeBreaksInTheGreetingFailsAtOnce ) {
   RetryProfile const profile( { 1, 1, 0 } );
   ScriptedServer const server(
      socketPath(), { []( Peer& peer ) { EXPECT_TRUE( peer.atEnd() ); } } );
   SystemCalls calls;
   calls.send = { EPIPE };
   auto const failure =
      thrown< ErrnoException >( [this] { client( socketName(), 'x', nullptr ); } );
   EXPECT_EQ( failure.errnoValue(), EPIPE );
}

TEST_F( ClientConnection, toASocketThatIsNotThereFailsAtOnce ) {
   RetryProfile const profile( { 1, 1, 0 } );
   auto const failure =
      thrown< ErrnoException >( [this] { client( socketName(), 'x', nullptr ); } );
   EXPECT_EQ( failure.errnoValue(), ENOENT );
   EXPECT_EQ( trace_.lines(),
      ( Lines{ "1 Trying to connect to socket " + socketPath(), "8 socketConnect returned 2" } ) );
}

TEST_F( ClientConnection, withoutADescriptorFailsAtOnce ) {
   RetryProfile const profile( { 1, 1, 0 } );
   SystemCalls calls;
   calls.socket = { EMFILE };
   auto const failure =
      thrown< ErrnoException >( [this] { client( socketName(), 'x', nullptr ); } );
   EXPECT_EQ( failure.errnoValue(), EBADF );
}

TEST_F( ClientConnection, toAPortWithoutAListenerIsTriedThroughTheWholeProfile ) {
   RetryProfile const profile( { 1, 1, 0 } );
   DeafServer const server( "" );
   leftOpen_ = 3;
   EXPECT_EQ(
      messageOf< RpcConnectionException >( [&server] { client( server.port(), 'x', nullptr ); } ),
      "Unable to connect to " );
   std::string const place = "port " + std::to_string( server.port() );
   Lines const each{ "1 Trying to connect to " + place, "8 socketConnect returned 111",
      refused( "", place ) };
   Lines expected;
   for( int i = 0; i < 3; ++i ) {
      expected.insert( expected.end(), each.begin(), each.end() );
   }
   EXPECT_EQ( trace_.lines(), expected );
}

TEST_F( ClientConnection, toASocketThatNobodyListensOnIsTriedThroughTheWholeProfile ) {
   RetryProfile const profile( { 1, 0 } );
   DeafServer const server( socketPath() );
   AgentFile const file( folder_ / "group.name", agentText( 1, 9, socketPath() ) );
   leftOpen_ = 2;
   EXPECT_EQ( messageOf< RpcConnectionException >(
                 [] { client( "group", "name", 'x', nullptr, nullptr ); } ),
      "Unable to connect to group.name" );
   std::string const line = refused( "group.name", "socket " + socketPath() );
   EXPECT_EQ( trace_.lines( 0 ), ( Lines{ line, line } ) );
}

TEST_F( ClientConnection, toAnAgentThatNeverAppearsFails ) {
   RetryProfile const profile( { 1, 1, 0 } );
   EXPECT_EQ(
      messageOf< RpcConnectionException >( [] { client( "group", "name", 'x', "id", nullptr ); } ),
      "Unable to connect to group.name.id" );
   std::string const line = "0 PyServer group.name.id was not in the agent directory";
   EXPECT_EQ( trace_.lines( 0 ), ( Lines{ line, line, line } ) );
}

TEST_F( ClientConnection, withoutAnyNameEndsBehindTheProfile ) {
   RetryProfile const profile( { 1, 0 } );
   Environment const id( "SUBSYSTEMID", "id" );
   // The file of no name is the directory, which has nothing to read.
   std::string const look = "8 agent file was incomplete";
   std::string const line = "0 PyServer  was not in the agent directory";
   EXPECT_EQ( messageOf< RpcConnectionException >( [] { client( "", 'x', nullptr ); } ),
      "Unable to connect to " );
   EXPECT_EQ( trace_.lines(), ( Lines{ look, line, look, line } ) );
   EXPECT_EQ( messageOf< RpcConnectionException >( [] { client( 0, 'x', nullptr ); } ),
      "Unable to connect to " );
   EXPECT_EQ( trace_.lines(), ( Lines{ look, line, look, line, look, line, look, line } ) );
}

TEST_F( ClientConnection, withoutAnyNameFindsTheAgentOfItsSubsystemAlone ) {
   ScriptedServer const server( socketPath(), { greetOnly } );
   AgentFile const file( folder_ / "..sub", agentText( 1, 9, socketPath() ) );
   auto const made = client( "", "", 'x', "sub", nullptr );
   EXPECT_EQ( made->serverName_, "..sub" );
   EXPECT_TRUE( made->connected_ );
}

TEST_F( ClientConnection, toADirectoryThatCannotBeOpenedFailsAtOnce ) {
   RetryProfile const profile( { 1, 1, 0 } );
   Environment const directory( "KELC_AGENTS_DIR", "/dev/null/agents" );
   auto const failure =
      thrown< ErrnoException >( [] { client( "group", "name", 'x', nullptr, nullptr ); } );
   EXPECT_EQ( failure.errnoValue(), ENOTDIR );
   EXPECT_EQ( trace_.lines(), Lines() );
}

TEST_F( ClientConnection, toAnAddressThatCannotBeFoundFailsAtOnce ) {
   RetryProfile const profile( { 1, 1, 0 } );
   SystemCalls calls;
   calls.getaddrinfo = EAI_FAIL;
   EXPECT_EQ( messageOf< RpcConnectionException >( [] { client( 1, 'x', nullptr ); } ),
      "Unable to getaddrinfo for 127.0.0.1" );
   EXPECT_EQ( trace_.lines(), Lines{ "1 Trying to connect to port 1" } );
}

TEST_F( ClientConnection, toASocketWhoseNameFillsTheAddressWorks ) {
   std::string path = folder_ / "";
   path.resize( 107, 's' );
   ScriptedServer const server( path, { greetOnly } );
   EXPECT_TRUE( client( Kel::String( path ), 'x', nullptr )->connected_ );
   path.resize( 108, 's' );
   auto const failure =
      thrown< ErrnoException >( [&path] { client( Kel::String( path ), 'x', nullptr ); } );
   EXPECT_EQ( failure.errnoValue(), ENOENT );
}

TEST_F( ClientConnection, toASocketOfALongerNameEndsTheProcess ) {
   EXPECT_DEATH(
      client( Kel::String( std::string( 109, 's' ) ), 'x', nullptr ), "assertion failed: .*name" );
}

TEST_F( ClientConnection, foundAtALaterAttemptStands ) {
   // The agent appears at the second look, and its server is there at the third.
   RetryProfile const profile( { 1, 1, 0 } );
   std::optional< AgentFile > file;
   std::optional< ScriptedServer > server;
   DeafServer const deaf( "" );
   leftOpen_ = 1;
   SystemCalls calls;
   calls.sleepsAreNoted();
   calls.onSleep = [&] {
      if( !file ) {
         file.emplace( folder_ / "group.name", agentText( 1, deaf.port(), "" ) );
      } else {
         server.emplace( socketPath(), Sessions{ greetOnly } );
         file->textIs( agentText( 1, deaf.port(), socketPath() ) );
      }
   };
   auto made = client( "group", "name", 'x', nullptr, nullptr );
   EXPECT_TRUE( made->connected_ );
   made = nullptr;
   EXPECT_EQ( calls.sleeps, ( std::vector< double >{ 1, 1 } ) );
}

TEST_F( ClientConnection, isMadeAnewOnRequestAndLeavesTheOldOne ) {
   ScriptedServer const server( socketPath(), { []( Peer& peer ) { peer.greet(); }, greetOnly } );
   auto const made = client( socketName(), 'x', nullptr );
   int const first = made->sock_;
   made->connect();
   EXPECT_NE( made->sock_, first );
   EXPECT_EQ( close( first ), 0 );
}

TEST_F( ClientConnection, ofOneAttemptGivesTheSocket ) {
   ScriptedServer const server( socketPath(), { []( Peer& peer ) { peer.greet(); }, greetOnly } );
   auto const made = client( socketName(), 'x', nullptr );
   int const first = made->sock_;
   PyServerContacts contacts{ -1, socketName() };
   EXPECT_EQ( made->connect( &contacts ), made->sock_ );
   EXPECT_EQ( close( first ), 0 );
   // A refusal is not retried here, and no other failure is either.
   DeafServer const deaf( "" );
   PyServerContacts nowhere{ deaf.port(), "" };
   int const second = made->sock_;
   EXPECT_EQ(
      thrown< ErrnoException >( [&] { made->connect( &nowhere ); } ).errnoValue(), ECONNREFUSED );
   EXPECT_EQ( close( second ), 0 );
}

TEST_F( ClientConnection, endsBothWaysWithTheClient ) {
   std::promise< void > seen;
   int copy = -1;
   ScriptedServer const server( socketPath(), { [&seen]( Peer& peer ) {
      greetOnly( peer );
      seen.get_future().wait();
   } } );
   {
      auto const made = client( socketName(), 'x', nullptr );
      copy = dup( made->sock_ ); // as a forked child has one
   }
   char byte;
   EXPECT_EQ( recv( copy, &byte, 1, 0 ), 0 ); // though the server is still there
   seen.set_value();
   close( copy );
}

TEST_F( ClientConnection, withContactsOfItsOwnLooksAtNoFile ) {
   ScriptedServer const server( socketPath(), { []( Peer& peer ) { peer.greet(); }, greetOnly } );
   AgentFile const file( folder_ / "group.name", agentText( 1, 0, socketPath() ) );
   auto const made = client( "group", "name", 'x', nullptr, nullptr );
   close( made->sock_ );
   Environment const directory( "KELC_AGENTS_DIR", "/dev/null/agents" );
   made->socketName_ = socketName();
   made->connect();
   EXPECT_TRUE( made->connected_ );
}

TEST_F( ClientConnection, givesTheLengthOfItsAddressWithoutATerminator ) {
   ScriptedServer const server( socketPath(), { greetOnly } );
   DeafServer const deaf( "" );
   SystemCalls calls;
   client( socketName(), 'x', nullptr );
   EXPECT_THROW( client( deaf.port(), 'x', nullptr ), RpcConnectionException );
   EXPECT_EQ(
      calls.addressLengths, ( std::vector< unsigned int >{
                               2 + static_cast< unsigned int >( socketPath().size() ), 16 } ) );
   leftOpen_ = 1;
}

} // namespace
