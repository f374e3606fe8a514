#include "AgentOptions.h"

#include "../common/CommandLine.h"

namespace {

char const description[] =
   "Runs a Python 2.7 script as an agent: a process that other programs can question and command.\n"
   "The script runs first, then the activity loop, which delivers changes and timers, until the\n"
   "agent is asked to end by SIGINT (Ctrl-C) or SIGTERM. Without a script it just serves.";

char const footer[] =
   "Examples:\n"
   "  kel-agent --group acme --name shop --schema libacme.so shop.py --open\n"
   "  kel-eval acme.shop '1 + 1'\n"
   "\n"
   "Exit status: 0 ended by a signal, in order; N the script called sys.exit(N); 1 the script\n"
   "raised, or the agent could not start; 2 wrong command line; 128 + the signal's number, ended\n"
   "at once by a second signal.\n"
   "\n"
   "Only this user and root can talk to the agent. The manual is kel-agent(1).";

} // namespace

std::optional< int > parseAgentOptions( int argc, char** argv, AgentOptions& options ) {
   CLI::App app( description, "kel-agent" );
   app.footer( footer );
   app.set_version_flag( "--version", KEL_VERSION );
   app.positionals_at_end();
   app.add_option( "--group", options.name.group, "The agent's group: the acme of acme.shop" )
      ->type_name( "GROUP" )
      ->required();
   app.add_option( "--name", options.name.name, "The agent's name: the shop of acme.shop" )
      ->type_name( "NAME" )
      ->required();
   app.add_option( "--subsystem", options.name.subsystem,
         "Tells apart agents of one name; by default $SUBSYSTEMID" )
      ->type_name( "ID" );
   app.add_option( "--schema", options.schemas,
         "A library of types, as libacme.so or a path; may be given again" )
      ->type_name( "LIBRARY" )
      ->allow_extra_args( false );
   app.add_option( "--socket", options.socket,
         "Path of the unix socket; by default in a folder of the user's own" )
      ->type_name( "PATH" );
   app.add_option(
         "--port", options.port, "Listen on this port of 127.0.0.1, too; 0 takes any that is free" )
      ->type_name( "N" )
      ->check( CLI::Range( 0, 65535 ).description( "" ) );
   app.add_flag(
      "--title", options.title, "Show the agent's name as the title of the process, as in ps" );
   app.add_option( "--watchdog", options.watchdog,
         "Tell on standard error who holds the activity lock for longer than that, with stacks" )
      ->type_name( "SECONDS" )
      ->check( CLI::Range( 0.0, 1e9 ).description( "" ) );
   app.add_option( "script", options.script, "The script, then the arguments that it gets" )
      ->type_name( "SCRIPT [ARG...]" );
   if( auto const status = parseCommandLine( app, argc, argv ) ) {
      return status;
   }
   if( std::string const fault = faultOf( options.name ); !fault.empty() ) {
      return complain( "kel-agent", fault, usageStatus );
   }
   return std::nullopt;
}
