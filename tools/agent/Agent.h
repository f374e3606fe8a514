// An agent from its start to its end.
#pragma once

#include "AgentOptions.h"

// Returns the status of the process.
int runAgent( AgentOptions const& options );
