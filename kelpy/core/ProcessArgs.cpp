#include <kelpy/core/ProcessArgs.h>

constinit ProcessArgs processArgs{};

namespace {

// The loader hands the arguments of the process to initialisers, also when the module is loaded
// into an interpreter that runs already.
[[gnu::constructor( 101 )]] void save_argv( int argc, char** argv ) {
   processArgs = { argc, argv };
}

} // namespace
