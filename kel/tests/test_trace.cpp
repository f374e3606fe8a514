#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include <kel/Trace.h>

namespace Kel {

namespace {

// The environment is read once a process, so each test runs its body in a process of its own,
// started anew, and looks at all that it wrote to standard error.
class Trace : public testing::Test {
 protected:
   void SetUp() override { GTEST_FLAG_SET( death_test_style, "threadsafe" ); }

   static void environmentIs( char const* trace, char const* file = "" ) {
      setenv( "KEL_TRACE", trace, 1 );
      setenv( "KEL_TRACE_FILE", file, 1 );
   }
};

// Everything that a line has in front of the handle.
#define HEAD "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9:]{8}\\.[0-9]{6}Z [0-9]+ [0-9]+ "

// A line of each level of the handle.
[[noreturn]] void traceAllLevels( char const* name ) {
   TraceHandle handle( name, true );
   for( int level = trace0; level <= trace9; ++level ) {
      TraceHelper( handle, static_cast< FacilityLevel >( level ), "f.cpp", 7, "g" ).stream() << "m";
   }
   _exit( 0 );
}

std::string lines( std::string const& name, std::string const& levels ) {
   std::string all = "^";
   for( char const level : levels ) {
      all += HEAD + name + ' ' + level + " f\\.cpp:7 g: m\n";
   }
   return all + "$";
}

TEST_F( Trace, showsLevelZeroOfAHandleThatIsNotListed ) {
   environmentIs( "Other/*" );
   EXPECT_EXIT( traceAllLevels( "Acme" ), testing::ExitedWithCode( 0 ), lines( "Acme", "0" ) );
}

TEST_F( Trace, showsLevelZeroWithoutTheVariable ) {
   environmentIs( "" );
   unsetenv( "KEL_TRACE" );
   EXPECT_EXIT( traceAllLevels( "Acme" ), testing::ExitedWithCode( 0 ), lines( "Acme", "0" ) );
}

TEST_F( Trace, showsAllLevelsForAStar ) {
   environmentIs( "Acme/*" );
   EXPECT_EXIT(
      traceAllLevels( "Acme" ), testing::ExitedWithCode( 0 ), lines( "Acme", "0123456789" ) );
}

TEST_F( Trace, showsJustWhatIsListed ) {
   environmentIs( "PyClient/*,Acme/8" );
   EXPECT_EXIT( traceAllLevels( "Acme" ), testing::ExitedWithCode( 0 ), lines( "Acme", "8" ) );
}

TEST_F( Trace, addsRangesAndLevelsUp ) {
   environmentIs( "Acme/1-3,Acme/8" );
   EXPECT_EXIT( traceAllLevels( "Acme" ), testing::ExitedWithCode( 0 ), lines( "Acme", "1238" ) );
}

TEST_F( Trace, showsNothingForADash ) {
   environmentIs( "Acme/-" );
   EXPECT_EXIT( traceAllLevels( "Acme" ), testing::ExitedWithCode( 0 ), "^$" );
}

TEST_F( Trace, collectsTheTextOfEachPieceAndOfNone ) {
   TraceStream stream;
   stream << static_cast< char const* >( nullptr ) << ' ' << true << ' ' << false << ' ' << "x";
   EXPECT_EQ( stream.text(), "(null) true false x" );
}

TEST_F( Trace, passesOverWhatItCannotRead ) {
   environmentIs( ",Acme,Acme/,Acme/x,Acme/!,Acme/3-x,Acme/3-1,Acme/10,/,Acme/9," );
   EXPECT_EXIT( traceAllLevels( "Acme" ), testing::ExitedWithCode( 0 ), lines( "Acme", "9" ) );
}

TEST_F( Trace, doesNotListAHandleByARangeFromHighToLow ) {
   environmentIs( "Acme/3-1" );
   EXPECT_EXIT( traceAllLevels( "Acme" ), testing::ExitedWithCode( 0 ), lines( "Acme", "0" ) );
}

TEST_F( Trace, hidesLevelZeroOfAHandleThatWantsItSo ) {
   environmentIs( "" );
   auto const body = [] {
      TraceHandle handle( "Acme", false );
      _exit( handle.levelOn( trace0 ) || handle.levelOn( trace1 ) );
   };
   EXPECT_EXIT( body(), testing::ExitedWithCode( 0 ), "" );
}

TEST_F( Trace, readsItsVariablesOnce ) {
   environmentIs( "Acme/1" );
   auto const body = [] {
      TraceHandle first( "Other", true );
      first.levelOn( trace0 );
      environmentIs( "Acme/*" );
      traceAllLevels( "Acme" );
   };
   EXPECT_EXIT( body(), testing::ExitedWithCode( 0 ), lines( "Acme", "1" ) );
}

TEST_F( Trace, evaluatesNothingForALevelThatIsOff ) {
   environmentIs( "" );
   auto const body = [] {
      TraceHandle handle( "Acme", true );
      int evaluations = 0;
      KEL_TRACE( handle, trace1 ) << ++evaluations;
      KEL_TRACE( handle, trace0 ) << ++evaluations;
      _exit( evaluations );
   };
   EXPECT_EXIT( body(), testing::ExitedWithCode( 1 ), "Acme 0 .*test_trace.cpp:[0-9]+ .*: 1\n$" );
}

TEST_F( Trace, streamsWhatUsersHave ) {
   environmentIs( "" );
   auto const body = [] {
      TraceHandle handle( "Acme", true );
      char text[] = "b";
      char const* none = nullptr;
      KEL_TRACE( handle, trace0 ) << "a" << text << 'c' << -1 << 2U << 3L << 4UL << 1.5 << true
                                  << String( "d" ) << std::string( "e" ) << none;
      _exit( 0 );
   };
   EXPECT_EXIT( body(), testing::ExitedWithCode( 0 ), ": abc-12341\\.5truede\\(null\\)\n$" );
}

TEST_F( Trace, writesOneLineForAnyMessage ) {
   environmentIs( "" );
   auto const body = [] {
      trace_h( nullptr, "f\n", 1, "g", String( "a\0b\nc\\\xff", 7 ), 0 );
      _exit( 0 );
   };
   EXPECT_EXIT( body(), testing::ExitedWithCode( 0 ),
      "^" HEAD "default 0 f\\\\n:1 g: a\\\\x00b\\\\nc\\\\\\\\\\\\xff\n$" );
}

TEST_F( Trace, acceptsAnyLevelAndShowsNoneOutsideOfItsTen ) {
   environmentIs( "default/*" );
   auto const body = [] {
      for( int const level : { -1, 10, 64, 1000, 9 } ) {
         trace_h( nullptr, "f", 1, "g", "m", level );
      }
      _exit( traceLineSuppressed( nullptr, -1 ) && traceLineSuppressed( nullptr, 10 ) &&
             !traceLineSuppressed( nullptr, 9 ) );
   };
   EXPECT_EXIT( body(), testing::ExitedWithCode( 1 ), "^" HEAD "default 9 f:1 g: m\n$" );
}

TEST_F( Trace, suppressesATagForAllFacilities ) {
   environmentIs( "quiet/-" );
   auto const body = [] {
      trace_ht( nullptr, "quiet", "f", 1, "g", "m", 0 );
      trace_ht( nullptr, "loud", "f", 1, "g", "m", 0 );
      trace_ht( nullptr, "loud", "f", 1, "g", "m", 1 );
      _exit( traceTagSuppressed( nullptr, "quiet" ) && !traceTagSuppressed( nullptr, "loud" ) );
   };
   EXPECT_EXIT( body(), testing::ExitedWithCode( 1 ), "^" HEAD "default\\[loud\\] 0 f:1 g: m\n$" );
}

TEST_F( Trace, suppressesEveryTagOfASilentFacility ) {
   environmentIs( "default/-" );
   auto const body = [] {
      trace_ht( nullptr, "loud", "f", 1, "g", "m", 0 );
      _exit( traceTagSuppressed( nullptr, "loud" ) );
   };
   EXPECT_EXIT( body(), testing::ExitedWithCode( 1 ), "^$" );
}

TEST_F( Trace, goesToTheFileThatTheVariableNames ) {
   environmentIs( "", "/dev/stdout" );
   auto const body = [] {
      int ends[2];
      if( pipe( ends ) != 0 || dup2( ends[1], STDOUT_FILENO ) < 0 ) {
         _exit( 2 );
      }
      trace_h( nullptr, "f", 1, "g", "to the file", 0 );
      char text[200] = {};
      ssize_t const length = read( ends[0], text, sizeof text - 1 );
      _exit( length > 0 && std::string( text ).ends_with( "to the file\n" ) ? 0 : 1 );
   };
   EXPECT_EXIT( body(), testing::ExitedWithCode( 0 ), "^$" );
}

TEST_F( Trace, fallsBackToStandardErrorWithANote ) {
   environmentIs( "", "/no such folder/file" );
   auto const body = [] {
      trace_h( nullptr, "f", 1, "g", "m", 0 );
      _exit( 0 );
   };
   EXPECT_EXIT( body(), testing::ExitedWithCode( 0 ),
      "^cannot open the trace file /no such folder/file: No such file or directory\n" HEAD );
}

TEST( EscapedTraceString, leavesPrintableTextAlone ) {
   std::string const text = "a Z 0 ~ \"'%";
   EXPECT_EQ( escapedTraceString( text.data(), static_cast< unsigned >( text.size() ) ), text );
}

TEST( EscapedTraceString, escapesAllElse ) {
   EXPECT_EQ( escapedTraceString( "\n\r\t\\\0\x7f\x80", 7 ), "\\n\\r\\t\\\\\\x00\\x7f\\x80" );
   EXPECT_EQ( escapedTraceString( "", 0 ), "" );
}

} // namespace

} // namespace Kel
