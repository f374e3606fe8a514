// Module functions about the process: its title, and the runtime's time as the kernel's. GIL; they
// take the activity lock for themselves.
#pragma once

#include <kelpy/core/PyPython.h>

PyObject* setproctitle( PyObject* module, PyObject* args );
// None before the first setproctitle.
PyObject* proctitle( PyObject* module, PyObject* noArgs );
PyObject* kelNowToLinuxMonoTime( PyObject* module, PyObject* args );
