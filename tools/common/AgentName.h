// Names of agents, and the folder in which they announce themselves.
#pragma once

#include <optional>
#include <string>

struct AgentName {
   std::string group;
   std::string name;
   std::optional< std::string > subsystem; // not given is another thing than empty

   // As agentNameOf takes it.
   std::string display() const;
};

// "GROUP.NAME" or "GROUP.NAME.SUBSYSTEM": the first two dots part it.
AgentName agentNameOf( std::string const& text );

// Why the agent cannot have this name, in one line; empty if it can.
std::string faultOf( AgentName const& name );

// The folder of agent files.
std::string agentFolder();
