#include <kelpy/notify/PyCallback.h>

#include <cstdio>
#include <cstdlib>

void endWithPythonError( char const* line ) noexcept {
   std::fprintf( stderr, "%s\n", line );
   std::fflush( stderr );
   PyErr_Print();
   std::abort();
}
