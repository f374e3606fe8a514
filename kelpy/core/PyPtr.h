// The entry of the Python module.
#pragma once

#include <kelpy/core/PyPython.h>

#include <kelpy/core/KelPyExport.h>

// Called by Python at the import, with the GIL; once a process, a second call ends it. A failure
// leaves a Python error.
extern "C" KELPY_API void init_Kel();
