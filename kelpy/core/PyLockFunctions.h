// The activity lock as Python functions. GIL.
#pragma once

#include <kelpy/core/PyPython.h>

#include <cstdint>

#include <kelpy/core/KelPyExport.h>

// True if the lock was taken, False if this thread owns it already. Any other failure ends the
// process.
PyObject* acquireActivityLock( PyObject*, PyObject* ) noexcept;
// Ends the process if this thread does not own the lock.
PyObject* releaseActivityLock( PyObject*, PyObject* ) noexcept;
// The same as acquireActivityLock with a limit in seconds; False also when the time is over.
PyObject* timedAcquireActivityLock( PyObject*, PyObject* args );
// The kernel's id of the thread that holds the lock, 0 when free, as a `long`.
PyObject* activityLockOwner( PyObject*, PyObject* );
// The same number without Python; needs no lock.
KELPY_API std::uint32_t _activityLockOwner();
