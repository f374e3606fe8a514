// What the programs share: how a command line is parsed and how a fault is told.
#pragma once

#include <optional>
#include <string>

#include <CLI/CLI.hpp>

// The status of every program for a command line that cannot be meant.
constexpr int usageStatus = 2;

// What the process has to end with at once: 0 behind --help or --version, usageStatus behind the
// one line that tells the fault. Nothing if the program can go on.
std::optional< int > parseCommandLine( CLI::App& app, int argc, char** argv );

// Writes "PROGRAM: text" to standard error, as one line, and returns the status.
int complain( char const* program, std::string text, int status );
