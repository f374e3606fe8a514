// kel-eval: evaluates Python text in an agent.
#include <csignal>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <iterator>
#include <new>

#include "../common/CommandLine.h"
#include "AgentList.h"
#include "EvalOptions.h"
#include "Failure.h"
#include "Prompt.h"
#include "Session.h"

namespace {

// The text to run; nothing for the prompt.
std::optional< std::string > textOf( EvalOptions const& options ) {
   if( options.text && *options.text != "-" ) {
      return options.text;
   }
   if( !options.text && isatty( STDIN_FILENO ) ) {
      return std::nullopt;
   }
   return std::string( std::istreambuf_iterator< char >( std::cin ), {} );
}

// A line to itself. Statements mostly have none.
void print( std::string_view result, Kind kind ) {
   if( kind == Kind::expression || !result.empty() ) {
      std::cout << result << '\n';
   }
   if( !std::cout.flush() ) {
      throw Failure( Failure::undelivered, "cannot write the result" );
   }
}

int run( EvalOptions const& options ) {
   if( options.lists ) {
      return listAgents();
   }
   auto const text = textOf( options );
   Kind const kind = options.executes ? Kind::statements : Kind::expression;
   Session session( options.target, options.waits, options.limit );
   if( text ) {
      print( session.run( kind, *text ), kind );
   } else {
      runPrompt( session, options.target.display() );
   }
   return 0;
}

} // namespace

int main( int argc, char** argv ) {
   // As the client wants it: a server that is gone is an error to it, and no end.
   std::signal( SIGPIPE, SIG_IGN );
   // Its failures are told here in a line of its own, unless somebody wants to see more.
   setenv( "KEL_TRACE", "PyClient/-", 0 );
   EvalOptions options;
   if( auto const status = parseEvalOptions( argc, argv, options ) ) {
      return *status;
   }
   try {
      return run( options );
   } catch( std::bad_alloc const& ) {
      return complain( "kel-eval", "not enough memory; see --limit", Failure::undelivered );
   } catch( Failure const& failure ) {
      if( failure.status == Failure::raised ) {
         std::cerr << failure.what() << std::endl;
         return failure.status;
      }
      return complain( "kel-eval", failure.what(), failure.status );
   }
}
