#include "EvalOptions.h"

#include <sys/un.h>

#include "../common/CommandLine.h"

namespace {

char const description[] =
   "Evaluates Python text inside a running agent and prints the result.\n"
   "\n"
   "  kel-eval acme.shop 'len(stock)'        prints the value of an expression\n"
   "  kel-eval acme.shop -x 'price = 3'      runs statements\n"
   "  kel-eval acme.shop -x < change.py      the same, read from standard input\n"
   "  kel-eval acme.shop                     a prompt, as that of Python\n"
   "  kel-eval acme.shop --backtrace         what its threads are doing\n"
   "  kel-eval --list                        which agents there are\n";

char const footer[] =
   "A text that begins with a dash goes behind two: kel-eval acme.shop -- '-1'. What the text\n"
   "prints appears where the agent's output goes, not here.\n"
   "\n"
   "Exit status: 0 done; 1 the text raised an exception, which is on standard error; 2 wrong\n"
   "command line; 3 no such agent, or the connection failed or was lost; 4 the result is above\n"
   "the limit or could not be written.\n"
   "\n"
   "The manual is kel-eval(1).";

// What stands on a command line before it is known what it means. The two words are the agent and
// the text, or just the text where a socket or a port names the server.
struct Words {
   std::optional< std::string > first;
   std::optional< std::string > second;
   bool waits = false;
   bool waitsNot = false;
};

void describe( CLI::App& app, EvalOptions& options, Words& words ) {
   Target& target = options.target;
   app.footer( footer );
   app.set_version_flag( "--version", KEL_VERSION );
   app.add_option( "agent", words.first, "The agent; not with --socket, --port or --list" )
      ->type_name( "GROUP.NAME" );
   app.add_option(
         "text", words.second, "What to evaluate; - or nothing takes it from standard input" )
      ->type_name( "TEXT" );
   app.add_flag( "-x,--exec", options.executes, "The text is statements, not an expression" );
   app.add_flag( "--backtrace", options.showsStacks,
         "Show the Python stacks of all threads of the agent, and who has the activity lock" )
      ->excludes( "--exec" );
   app.add_flag( "--list", options.lists, "Show the live agents" );
   app.add_option( "--subsystem", target.agent.subsystem,
         "Tells apart agents of one name; by default $SUBSYSTEMID" )
      ->type_name( "ID" );
   app.add_option(
         "--socket", target.socket, "The server on this unix socket, rather than an agent" )
      ->type_name( "PATH" );
   app.add_option(
         "--port", target.port, "The server on this port of 127.0.0.1, rather than an agent" )
      ->type_name( "N" )
      ->check( CLI::Range( 1, 65535 ).description( "" ) );
   app.add_flag(
      "--wait", words.waits, "Keep trying for half a minute to reach an agent; so by default" );
   app.add_flag( "--no-wait", words.waitsNot, "Try once" )->excludes( "--wait" );
   app.add_option(
         "--limit", options.limit, "The largest result, in bytes or as 10K or 10M; by default 64M" )
      ->type_name( "SIZE" )
      ->transform( CLI::AsSizeValue( false ).description( "" ) )
      ->check( CLI::Range( 1, 0x7ffffffd ).description( "" ) );
}

std::string faultOfAgent( AgentName& agent, std::string const& text ) {
   auto const given = agent.subsystem;
   agent = agentNameOf( text );
   if( text.find( '.' ) == text.npos ) {
      return "\"" + text + "\" names no agent; that would be GROUP.NAME";
   }
   if( given && agent.subsystem ) {
      return "the subsystem is given twice";
   }
   agent.subsystem = given ? given : agent.subsystem;
   return faultOf( agent );
}

std::string faultOfSocket( std::string const& path ) {
   if( path.empty() ) {
      return "the path of the socket is empty";
   }
   return path.size() > sizeof( sockaddr_un::sun_path )
             ? "the path of the socket has more than " +
                  std::to_string( sizeof( sockaddr_un::sun_path ) ) + " bytes"
             : "";
}

// Which server the words mean, and which text; a fault in one line, or nothing.
std::string takeTarget( EvalOptions& options, Words const& words ) {
   Target& target = options.target;
   if( options.lists ) {
      return words.first || target.socket || target.port ? "--list stands alone" : "";
   }
   if( target.socket && target.port ) {
      return "--socket and --port exclude each other";
   }
   if( target.socket || target.port ) {
      options.text = words.first;
      if( words.second ) {
         return "a server that is named by its socket or port takes one text";
      }
      return target.socket ? faultOfSocket( *target.socket ) : "";
   }
   if( !words.first ) {
      return "name an agent, as in kel-eval acme.shop '1 + 1'; --list shows those that live";
   }
   options.text = words.second;
   return faultOfAgent( target.agent, *words.first );
}

// What the words mean by the options; a fault in one line, or nothing.
std::string takeWords( EvalOptions& options, Words const& words ) {
   options.waits = !words.waitsNot;
   std::string fault = takeTarget( options, words );
   if( fault.empty() && options.showsStacks ) {
      if( options.text || options.lists ) {
         return "--backtrace takes no text";
      }
      options.text = "__import__( '_KelStacks' ).text()";
   }
   return fault;
}

} // namespace

std::optional< int > parseEvalOptions( int argc, char** argv, EvalOptions& options ) {
   CLI::App app( description, "kel-eval" );
   Words words;
   describe( app, options, words );
   if( auto const status = parseCommandLine( app, argc, argv ) ) {
      return status;
   }
   if( std::string const fault = takeWords( options, words ); !fault.empty() ) {
      return complain( "kel-eval", fault + " (kel-eval --help tells more)", usageStatus );
   }
   return std::nullopt;
}
