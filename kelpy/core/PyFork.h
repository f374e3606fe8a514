// What the module does around fork(2), so that the forking thread owns the activity lock and the
// interpreter both, taken in their order.
#pragma once

#include <kelpy/core/PyPython.h>

// The handlers that the module registers; the second one serves parent and child. They find out
// for themselves whether the thread holds the GIL.
void prepareGilAndActivityLockPosix();
void postGilFork();

// For a Python-level handler that runs before a fork. GIL.
PyObject* prepareGilAndActivityLockPython3( PyObject*, PyObject* ) noexcept;
// Tells that such handlers are registered. GIL.
PyObject* setPythonForkHandlersRegistered( PyObject*, PyObject* );
