// The command line of kel-agent.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "../common/AgentName.h"

struct AgentOptions {
   AgentName name;
   std::vector< std::string > schemas;
   std::optional< std::string > socket;
   std::optional< int > port;
   bool title = false;
   double watchdog = 0;               // seconds; 0 for none
   std::vector< std::string > script; // with its arguments; empty for none
};

// As parseCommandLine.
std::optional< int > parseAgentOptions( int argc, char** argv, AgentOptions& options );
