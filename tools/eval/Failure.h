// Why kel-eval ends, or a line of its prompt does, without a result.
#pragma once

#include <stdexcept>
#include <string>

struct Failure : std::runtime_error {
   // The status of the process. 2 is that of a wrong command line.
   enum Status { raised = 1, unreachable = 3, undelivered = 4 };

   Failure( Status status, std::string const& text )
      : std::runtime_error( text ), status( status ) {}

   Status status;
};
