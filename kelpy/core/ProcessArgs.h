// The arguments that the process was started with, kept at load, before any code of the module
// runs. Read only; no lock.
#pragma once

struct ProcessArgs {
   int argc;
   char** argv;
};

extern ProcessArgs processArgs;
