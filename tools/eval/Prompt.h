// The prompt of kel-eval: Python's own, but for where the lines run.
#pragma once

#include <string>

#include "Session.h"

// Runs what the user types until Ctrl-D. Failures of his text are shown and it goes on; throws any
// other Failure.
void runPrompt( Session& session, std::string const& name );
