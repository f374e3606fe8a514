#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <utility>

#include <kel/Assert.h>
#include <kel/Backtrace.h>

#include "ChildProcess.h"

namespace Kel {

namespace {

using Testing::inChild;
using Testing::Outcome;

std::size_t occurrences( std::string const& text, std::string const& part ) {
   std::size_t count = 0;
   for( auto at = text.find( part ); at != text.npos; at = text.find( part, at + 1 ) ) {
      ++count;
   }
   return count;
}

TEST( Assert, isAnExpressionWithoutEffectWhenTrue ) {
   int evaluations = 0;
   KEL_ASSERT( ++evaluations == 1 );
   KEL_ASSERT( std::pair< int, int >( 1, 2 ).second == 2 );
   EXPECT_EQ( evaluations, 1 );
}

void failsHere( int number ) {
   KEL_ASSERT( std::pair< int, int >( number, 2 ).first == 0 && "why" );
}

TEST( Assert, writesTheExpressionAsWrittenAndEndsByAbort ) {
   int const line = __LINE__ - 4;
   Outcome const outcome = inChild( [] {
      failsHere( 1 );
      return 0;
   } );
   EXPECT_TRUE( outcome.killedBy( SIGABRT ) ) << outcome.status;
   std::string const expected =
      "assertion failed: std::pair< int, int >( number, 2 ).first == 0 && "
      "\"why\" (test_assert.cpp:" +
      std::to_string( line ) + ", failsHere)\n";
   EXPECT_EQ( outcome.errors.substr( 0, expected.size() ), expected );
}

TEST( Assert, reportsItsStackOnceAndCallsTheHookOnce ) {
   Outcome const outcome = inChild( [] {
      printBacktraceFn = []( int fd ) {
         [[maybe_unused]] auto const written = write( fd, "the hook\n", 9 );
      };
      failsHere( 1 );
      return 0;
   } );
   EXPECT_TRUE( outcome.killedBy( SIGABRT ) );
   EXPECT_EQ( occurrences( outcome.errors, "assertion failed" ), 1U );
   EXPECT_EQ( occurrences( outcome.errors, "the hook\n" ), 1U );
   EXPECT_EQ( occurrences( outcome.errors, "fatal signal" ), 0U );
   EXPECT_GE( occurrences( outcome.errors, "[0x" ), 3U ); // native frames
}

TEST( Assert, namesAFileWithoutFolders ) {
   Outcome const outcome = inChild( [] {
      assertionFailed( "x", "plain.cpp", 7, "f" );
      return 0;
   } );
   EXPECT_EQ( occurrences( outcome.errors, "assertion failed: x (plain.cpp:7, f)\n" ), 1U );
}

TEST( Assert, cutsALongText ) {
   Outcome const outcome = inChild( [] {
      assertionFailed( std::string( 5000, 'x' ).c_str(), "/a/b.cpp", 1, "f" );
      return 0;
   } );
   EXPECT_TRUE( outcome.killedBy( SIGABRT ) );
   EXPECT_NE( outcome.errors.find( "assertion failed: xxx" ), std::string::npos );
   EXPECT_NE( outcome.errors.find( "xxx\n" ), std::string::npos );
}

TEST( Assert, insideOfAReportEndsTheProcessByTheFirstSignal ) {
   Outcome const outcome = inChild( [] {
      printBacktraceFn = []( int ) { KEL_ASSERT( !"inner" ); };
      raise( SIGBUS );
      return 0;
   } );
   EXPECT_TRUE( outcome.killedBy( SIGBUS ) ) << outcome.status;
   // The hook is called once more behind its own failure.
   EXPECT_EQ( occurrences( outcome.errors, "assertion failed: !\"inner\"" ), 2U );
}

} // namespace

} // namespace Kel
