// What reactors that call Python share: whether there is a Python to call, and the end of the
// process where a handler fails, since such a failure has no caller to return to.
#pragma once

#include <kelpy/core/PyPython.h>

// False once the interpreter is gone, or is going on another thread: then no thread may ask for the
// GIL any more, what belongs to Python stays as it is, and there is nobody left to be called. Takes
// no lock.
inline bool pythonRuns() noexcept {
   return Py_IsInitialized() || PyGILState_GetThisThreadState();
}

// Writes the line and the pending Python error to standard error and aborts. A pending SystemExit
// ends the process as it does anywhere. GIL.
[[noreturn]] void endWithPythonError( char const* line ) noexcept;
