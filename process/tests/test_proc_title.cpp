#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "process/ProcTitle.h"

namespace {

int argumentCount = 0;
char** arguments = nullptr;

// The C library hands the arguments of the process to every initialiser.
[[gnu::constructor]] void saveArguments( int argc, char** argv, char** ) {
   argumentCount = argc;
   arguments = argv;
}

std::string commandLine() {
   std::ifstream file( "/proc/self/cmdline" );
   return std::string( std::istreambuf_iterator< char >( file ), {} );
}

// Each test changes the title of a child only.
template< class Body >
bool holdsInChild( Body body ) {
   pid_t const child = fork();
   if( child == 0 ) {
      _exit( body() ? 0 : 1 );
   }
   int status = 0;
   waitpid( child, &status, 0 );
   return status == 0;
}

bool showsJust( std::string const& title ) {
   std::string const shown = commandLine();
   return shown.substr( 0, title.size() ) == title &&
          shown.find_first_not_of( '\0', title.size() ) == shown.npos;
}

TEST( ProcTitle, isNullUntilItIsSet ) {
   EXPECT_TRUE( holdsInChild( [] { return procTitle() == nullptr; } ) );
}

TEST( ProcTitle, isWhatPsShows ) {
   EXPECT_TRUE( holdsInChild( [] {
      procTitleIs( argumentCount, arguments, "agent", "one" );
      return std::string( procTitle() ) == "agent one" && showsJust( "agent one" );
   } ) );
}

TEST( ProcTitle, isOneTextIfTheOtherIsMissing ) {
   EXPECT_TRUE( holdsInChild( [] {
      procTitleIs( argumentCount, arguments, "agent", nullptr );
      bool const first = showsJust( "agent" );
      procTitleIs( argumentCount, arguments, "", "b" );
      bool const second = showsJust( "b" );
      procTitleIs( argumentCount, arguments, nullptr, nullptr );
      return first && second && showsJust( "" ) && std::string( procTitle() ).empty();
   } ) );
}

TEST( ProcTitle, mayBeLongerThanTheArguments ) {
   EXPECT_TRUE( holdsInChild( [] {
      std::string const title( commandLine().size() + 20, 'x' );
      procTitleIs( argumentCount, arguments, title.c_str(), "" );
      bool const isLong = showsJust( title );
      procTitleIs( argumentCount, arguments, "short", "" );
      return isLong && showsJust( "short" );
   } ) );
}

TEST( ProcTitle, isCutForPsWhenItIsTooLong ) {
   EXPECT_TRUE( holdsInChild( [] {
      std::string const title( 1'000'000, 'x' );
      procTitleIs( argumentCount, arguments, title.c_str(), "" );
      return procTitle() == title && showsJust( commandLine().substr( 0, 20 ) ) == false &&
             commandLine().substr( 0, 20 ) == title.substr( 0, 20 );
   } ) );
}

TEST( ProcTitle, leavesTheEnvironmentAsItWas ) {
   std::string before;
   for( char** variable = environ; *variable; ++variable ) {
      before += *variable + std::string( "\n" );
   }
   EXPECT_TRUE( holdsInChild( [&] {
      procTitleIs( argumentCount, arguments, std::string( 1000, 'x' ).c_str(), "" );
      std::string after;
      for( char** variable = environ; *variable; ++variable ) {
         after += *variable + std::string( "\n" );
      }
      return after == before;
   } ) );
}

TEST( ProcTitle, leavesTheProgramsNameAsItWas ) {
   std::string const before = program_invocation_short_name;
   EXPECT_TRUE( holdsInChild( [&] {
      procTitleIs( argumentCount, arguments, "agent", "" );
      return program_invocation_short_name == before;
   } ) );
}

TEST( ProcTitle, isOnlyKeptForArgumentsThatAreNotTheProcesss ) {
   std::string const before = commandLine();
   EXPECT_TRUE( holdsInChild( [&] {
      char text[] = "mine";
      char* argv[] = { text, nullptr };
      procTitleIs( 1, argv, "a", "b" );
      bool const others = std::string( procTitle() ) == "a b" && std::string( text ) == "mine";
      procTitleIs( 0, nullptr, "c", "d" );
      return others && std::string( procTitle() ) == "c d" && commandLine() == before;
   } ) );
}

} // namespace
