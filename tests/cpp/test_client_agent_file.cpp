// What a client makes of the file by which an agent announces itself.
#include "ClientTest.h"

#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <thread>

namespace {

using Kel::PyServerContacts;

class ClientAgentFile : public ClientTest {
 protected:
   // A client that is connected elsewhere.
   ClientAgentFile()
      : server_( socketPath(), { []( Peer& peer ) {
           peer.greet();
           EXPECT_TRUE( peer.atEnd() );
        } } ),
        client_( client( socketName(), 'x', nullptr ) ) {}
   ~ClientAgentFile() override {
      EXPECT_EQ( openDescriptors(), openBefore_ );
      client_ = nullptr;
   }

   PyServerContacts look() { return look( path_ ); }
   PyServerContacts look( std::string const& path ) {
      PyServerContacts contacts;
      client_->serverContacts( path, &contacts );
      return contacts;
   }
   // What a live agent's file of that text tells.
   PyServerContacts lookAt( std::string const& text ) {
      AgentFile const file( path_, text );
      PyServerContacts const contacts = look();
      EXPECT_TRUE( file.exists() );
      return contacts;
   }

   static void expect( PyServerContacts const& contacts, int port, std::string const& name ) {
      EXPECT_EQ( contacts.port, port );
      EXPECT_EQ( contacts.socketName, name );
   }

   std::string const path_ = folder_ / "group.name";
   ScriptedServer const server_;
   Client client_;
   TraceLog log_; // since the client is connected
   std::ptrdiff_t const openBefore_ = openDescriptors();
};

std::string pidsTrace( long filePid ) {
   return "8 My pid is " + std::to_string( getpid() ) + ", pid in agent file is " +
          std::to_string( filePid );
}

constexpr char noName[] = "8 no valid socket name found for the agent";

TEST_F( ClientAgentFile, aMissingDirectoryLeavesTheContactsUnknown ) {
   std::string const missing = folder_ / "missing";
   Environment const directory( "KELC_AGENTS_DIR", missing.c_str() );
   expect( look(), -1, "" );
   EXPECT_EQ( log_.lines(), Lines{ "1 Failed to open " + missing } );
}

TEST_F( ClientAgentFile, aDirectoryThatCannotBeOpenedIsAnExceptionWithItsName ) {
   Environment const directory( "KELC_AGENTS_DIR", "/dev/null/agents" );
   auto const failure = thrown< Kel::ErrnoException >( [this] { look(); } );
   EXPECT_EQ( failure.errnoValue(), ENOTDIR );
   EXPECT_EQ( failure.text(), "/dev/null/agents" );
   EXPECT_EQ( log_.lines(), Lines() );
}

TEST_F( ClientAgentFile, anEmptyDirectoryNameCountsAsOne ) {
   Environment const directory( "KELC_AGENTS_DIR", "" );
   expect( look(), -1, "" );
   EXPECT_EQ( log_.lines(), Lines{ "1 Failed to open " } );
}

TEST_F( ClientAgentFile, theDirectoryIsThatOfTheSystemUnlessTheEnvironmentNamesOne ) {
   Environment const directory( "KELC_AGENTS_DIR", nullptr );
   std::string const there =
      std::filesystem::exists( "/var/run/agents" ) ? path_ : "/var/run/agents";
   expect( look(), -1, "" );
   EXPECT_EQ( log_.lines(), Lines{ "1 Failed to open " + there } );
}

TEST_F( ClientAgentFile, aMissingFileLeavesTheContactsUnknown ) {
   expect( look(), -1, "" );
   EXPECT_EQ( log_.lines(), Lines{ "1 Failed to open " + path_ } );
}

TEST_F( ClientAgentFile, aFileThatCannotBeOpenedIsAnExceptionWithItsName ) {
   ASSERT_EQ( symlink( path_.c_str(), path_.c_str() ), 0 );
   auto const failure = thrown< Kel::ErrnoException >( [this] { look(); } );
   EXPECT_EQ( failure.errnoValue(), ELOOP );
   EXPECT_EQ( failure.text(), path_ );
   EXPECT_EQ( log_.lines(), Lines() );
}

TEST_F( ClientAgentFile, aFileThatNobodyHasLockedDisappearsAndTellsNothing ) {
   AgentFile const file( path_, agentText( getppid(), 1234, "socket" ), LOCK_UN );
   expect( look(), -1, "" );
   EXPECT_FALSE( file.exists() );
   EXPECT_EQ( log_.lines(), Lines{ "8 agent file was not flocked" } );
}

TEST_F( ClientAgentFile, aLockedEmptyFileStaysAndTellsNothing ) {
   expect( lookAt( "" ), -1, "" );
   EXPECT_EQ( log_.lines(), Lines{ "8 agent file was incomplete" } );
}

TEST_F( ClientAgentFile, aCompleteFileTellsPortAndSocketName ) {
   expect( lookAt( agentText( getppid(), 1234, "/run/socket" ) ), 1234, "/run/socket" );
   EXPECT_FALSE( client_->sameProcess_ );
   EXPECT_EQ( log_.lines(), Lines{ pidsTrace( getppid() ) } );
}

TEST_F( ClientAgentFile, aFileOfThisProcessSetsSameProcessAndTellsNothing ) {
   expect( lookAt( agentText( getpid(), 1234, "/run/socket" ) ), -1, "" );
   EXPECT_TRUE( client_->sameProcess_ );
   std::string const matches = "1 Agent pid " + std::to_string( getpid() ) +
                               " matches local pid; entering 'same process' mode";
   EXPECT_EQ( log_.lines(), ( Lines{ pidsTrace( getpid() ), matches } ) );
   // For good.
   expect( lookAt( agentText( getppid(), 1234, "/run/socket" ) ), 1234, "/run/socket" );
   EXPECT_TRUE( client_->sameProcess_ );
}

TEST_F( ClientAgentFile, aFileOfTwoLinesTellsThePortAndTracesNothingOfTheName ) {
   expect( lookAt( "1\n1234" ), 1234, "" );
   EXPECT_EQ( log_.lines(), Lines{ pidsTrace( 1 ) } );
}

TEST_F( ClientAgentFile, aSecondLineThatEndsMakesTheThirdOneExpected ) {
   expect( lookAt( "1\n1234\n" ), 1234, "" );
   EXPECT_EQ( log_.lines(), ( Lines{ pidsTrace( 1 ), noName } ) );
}

TEST_F( ClientAgentFile, aSocketNameOf107BytesIsTakenWhole ) {
   std::string const name( 107, 'n' );
   expect( lookAt( agentText( 1, 5, name ) ), 5, name );
   EXPECT_EQ( log_.lines(), Lines{ pidsTrace( 1 ) } );
}

TEST_F( ClientAgentFile, aSocketNameOf108BytesIsNone ) {
   expect( lookAt( agentText( 1, 5, std::string( 108, 'n' ) ) ), 5, "" );
   EXPECT_EQ( log_.lines(), ( Lines{ pidsTrace( 1 ), noName } ) );
}

TEST_F( ClientAgentFile, aSocketNameMayBeEmpty ) {
   expect( lookAt( "1\n1234\n\n" ), 1234, "" );
   EXPECT_EQ( log_.lines(), Lines{ pidsTrace( 1 ) } );
}

TEST_F( ClientAgentFile, onlyTheFirst128BytesCount ) {
   // The newline of the name is the last byte that counts, then the first one that does not.
   std::string const zeros( 20, '0' );
   std::string const name( 128 - 20 - 1 - 1 - 1 - 1 - 1, 'n' );
   expect( lookAt( zeros + "1\n5\n" + name + "\n" ), 5, name );
   expect( lookAt( zeros + "01\n5\n" + name + "\n" ), 5, "" );
   EXPECT_EQ( log_.lines( 8 ), ( Lines{ pidsTrace( 1 ), pidsTrace( 1 ), noName } ) );
   // Digits behind them do not belong to the port.
   expect( lookAt( "1\n" + std::string( 125, '0' ) + "77\n" ), 7, "" );
}

TEST_F( ClientAgentFile, aFirstLineThatIsNoNumberMatchesNoProcess ) {
   expect( lookAt( "none\n1234\nsocket\n" ), 1234, "socket" );
   EXPECT_EQ( log_.lines(), Lines{ pidsTrace( 0 ) } );
   EXPECT_FALSE( client_->sameProcess_ );
}

TEST_F( ClientAgentFile, aSecondLineThatIsNoNumberIsPortZero ) {
   expect( lookAt( "1\nnone\nsocket\n" ), 0, "socket" );
}

TEST_F( ClientAgentFile, thirtyTwoBitsOfEachNumberCount ) {
   long const other = getpid() + ( 1L << 32 );
   expect( lookAt( "1\n" + std::to_string( 1234 + ( 1L << 32 ) ) + "\nx\n" ), 1234, "x" );
   expect( lookAt( std::to_string( other ) + "\n1\nx\n" ), -1, "" );
   EXPECT_TRUE( client_->sameProcess_ );
}

TEST_F( ClientAgentFile, numbersAreDecimalAndMayHaveASign ) {
   expect( lookAt( "0x1\n010\n\n" ), 10, "" );
   expect( lookAt( "0x1\n-70000\n\n" ), -70000, "" );
   EXPECT_EQ( log_.lines(), ( Lines{ pidsTrace( 0 ), pidsTrace( 0 ) } ) );
}

TEST_F( ClientAgentFile, anyLockTellsThatAnAgentIsAlive ) {
   AgentFile const file( path_, agentText( 1, 1234, "" ), LOCK_SH );
   expect( look(), 1234, "" );
   EXPECT_TRUE( file.exists() );
}

TEST_F( ClientAgentFile, aFileOfOneLineWithoutItsEndTellsNothing ) {
   expect( lookAt( "1" ), -1, "" );
   EXPECT_EQ( log_.lines(), Lines{ pidsTrace( 1 ) } );
}

TEST_F( ClientAgentFile, whatTheFileDoesNotTellStaysAsItWas ) {
   AgentFile const file( path_, "1\n1234" );
   PyServerContacts contacts{ 7, "before" };
   client_->serverContacts( path_, &contacts );
   expect( contacts, 1234, "before" );
   client_->serverContacts( folder_ / "other", &contacts );
   expect( contacts, 1234, "before" );
}

// Whether anybody waits for a lock on that file.
bool isAwaited( std::string const& path ) {
   struct stat status = {};
   stat( path.c_str(), &status );
   std::string const inode = ":" + std::to_string( status.st_ino ) + " ";
   std::ifstream locks( "/proc/locks" );
   for( std::string line; std::getline( locks, line ); ) {
      if( line.find( "->" ) != line.npos && line.find( inode ) != line.npos ) {
         return true;
      }
   }
   return false;
}

// An agent that is about to lock its file holds the directory until then. A look wants the
// directory for itself: a shared lock keeps it away too.
TEST_F( ClientAgentFile, noLookIsTakenWhileAnAgentHoldsTheDirectory ) {
   int const directory = open( folder_.path().c_str(), O_RDONLY | O_CLOEXEC );
   ASSERT_EQ( flock( directory, LOCK_SH ), 0 );
   AgentFile const file( path_, agentText( 1, 1234, "socket" ), LOCK_UN );
   int const agent = open( path_.c_str(), O_RDONLY | O_CLOEXEC );
   std::atomic< bool > looked{ false };
   std::thread starting( [&] {
      while( !isAwaited( folder_.path() ) && !looked ) {
         std::this_thread::yield();
      }
      EXPECT_EQ( flock( agent, LOCK_EX | LOCK_NB ), 0 );
      close( directory );
   } );
   PyServerContacts const contacts = look();
   looked = true;
   starting.join();
   close( agent );
   expect( contacts, 1234, "socket" );
   EXPECT_TRUE( file.exists() );
}

TEST_F( ClientAgentFile, noLockIsLeftBehind ) {
   AgentFile const file( path_, agentText( 1, 1234, "socket" ) );
   look();
   int const directory = open( folder_.path().c_str(), O_RDONLY | O_CLOEXEC );
   EXPECT_EQ( flock( directory, LOCK_EX | LOCK_NB ), 0 );
   close( directory );
}

} // namespace
