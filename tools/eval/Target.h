// Which server a command line names, one of three ways.
#pragma once

#include <optional>
#include <string>

#include "../common/AgentName.h"

struct Target {
   AgentName agent;
   std::optional< std::string > socket;
   std::optional< int > port;

   // As messages name it: "acme.shop", "socket PATH", "port N".
   std::string display() const;
};
