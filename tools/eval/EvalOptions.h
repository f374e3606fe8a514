// The command line of kel-eval.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "Target.h"

struct EvalOptions {
   bool lists = false; // the live agents, and nothing else
   Target target;
   std::optional< std::string > text; // none: from standard input, or at the prompt
   bool executes = false;             // statements rather than an expression
   bool showsStacks = false;          // of the agent's threads, and nothing else
   bool waits = true;                 // for an agent that is not there yet
   std::size_t limit = 64 << 20;      // bytes of a result
};

// As parseCommandLine.
std::optional< int > parseEvalOptions( int argc, char** argv, EvalOptions& options );
