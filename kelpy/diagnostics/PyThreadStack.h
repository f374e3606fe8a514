// The Python stack of any thread of the process, for the runtime's watchdog. No lock.
#pragma once

#include <sys/types.h>

#include <kelpy/core/KelPyExport.h>

// Writes the Python frames of the thread to `fd`; false if there are none. Needs no GIL: the thread
// may run on meanwhile, and what is read of it may be gone, so everything is copied through the
// kernel, which refuses a bad address, and checked before it is used.
KELPY_API bool printPythonThreadStack( int fd, pid_t thread );
