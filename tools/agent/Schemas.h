// Libraries of types, which register them with the runtime as they load.
#pragma once

#include <string>
#include <vector>

// Loads each one, its symbols for all. A name without a slash is looked for beside the Python
// modules and then where the system's loader looks; "acme" stands for "libacme.so". Returns why one
// could not be loaded, empty if all are.
std::string loadSchemas( std::vector< std::string > const& names, std::string const& modules );
