// Whether Python code can still run. Threads of the runtime may live on while the process ends, and
// so may objects that hold Python objects.
#pragma once

#include <kelpy/core/PyPython.h>

// False once the interpreter is gone, or is going on another thread: then no thread may ask for the
// GIL any more, what belongs to Python stays as it is, and there is nobody left to be called. Takes
// no lock.
inline bool pythonRuns() noexcept {
   return Py_IsInitialized() || PyGILState_GetThisThreadState();
}
