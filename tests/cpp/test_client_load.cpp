// Many clients, each on a thread of its own, and one agent: every command is answered once, to the
// client that sent it.
#include <spawn.h>
#include <sys/wait.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "ClientTest.h"

namespace {

constexpr int clients = 50;
#ifdef KEL_SANITIZED
constexpr int commandsEach = 100;
#else
constexpr int commandsEach = 2000;
#endif

// kel-agent as a child process; it serves until the object ends.
class Agent {
 public:
   Agent( char const* group, char const* name ) {
      auto const program =
         std::filesystem::read_symlink( "/proc/self/exe" ).parent_path() / "kel-agent";
      char const* const command[] = { program.c_str(), "--group", group, "--name", name, nullptr };
      started_ = posix_spawn( &pid_, program.c_str(), nullptr, nullptr,
                    const_cast< char* const* >( command ), environ ) == 0;
   }
   Agent( Agent const& ) = delete;
   Agent& operator=( Agent const& ) = delete;
   ~Agent() { end(); }

   bool started() const { return started_; }
   // Asks it to end; its wait status.
   int end() {
      if( std::exchange( started_, false ) ) {
         kill( pid_, SIGTERM );
         waitpid( pid_, &status_, 0 );
      }
      return status_;
   }

 private:
   pid_t pid_ = 0;
   bool started_ = false;
   int status_ = -1;
};

// Sends commands that differ from those of all others; the number of right answers.
int sendCommands( int number ) {
   Kel::Ptr< Kel::PyClient > const client( new Kel::PyClient( "load", "test", 'c', "", nullptr ) );
   client->noReconnect_ = true; // what is lost must not be sent anew
   int right = 0;
   char result[64];
   for( int i = 0; i < commandsEach; ++i ) {
      std::string const wanted = std::to_string( number ) + " said " + std::to_string( i );
      bool const counts = i % 2;
      std::string const command = counts ? "said( '" + wanted + "' )"
                                         : "'%d said %d' % ( " + std::to_string( number ) + ", " +
                                              std::to_string( i ) + " )";
      client->eval( command.c_str(), result, sizeof result );
      right += wanted == result;
   }
   return right;
}

} // namespace

TEST_F( ClientTest, isAnsweredAmongManyWithoutLossOrMixUp ) {
   // Threads share the texts of exceptions and names.
   Kel::VFPtrInterface::threadSafePointersIs( true );
   RetryProfile const patient( std::vector< unsigned int >( 400, 50 ) );
   Agent agent( "load", "test" );
   ASSERT_TRUE( agent.started() );
   char result[64];
   Kel::Ptr< Kel::PyClient > const counting(
      new Kel::PyClient( "load", "test", 'c', "", nullptr ) );
   counting->execute( "counted = []\n"
                      "def said( text ):\n"
                      "    counted.append( text )\n"
                      "    return text\n",
      result, sizeof result );
   std::atomic< int > right = 0;
   std::vector< std::thread > threads;
   for( int number = 0; number < clients; ++number ) {
      threads.emplace_back( [&right, number] { right += sendCommands( number ); } );
   }
   for( auto& thread : threads ) {
      thread.join();
   }
   EXPECT_EQ( right, clients * commandsEach );
   counting->eval( "( len( counted ), len( set( counted ) ) )", result, sizeof result );
   std::string const half = std::to_string( clients * commandsEach / 2 );
   EXPECT_EQ( std::string( result ), "(" + half + ", " + half + ")" );
   EXPECT_EQ( agent.end(), 0 );
}
