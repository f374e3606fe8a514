// Module functions that write to the runtime's trace and ask what shows. GIL.
#pragma once

#include <kelpy/core/PyPython.h>

// Write a line, without the GIL. They hold the activity lock as long as smart pointers are plain,
// and take no lock once they are atomic.
PyObject* trace_h( PyObject* module, PyObject* args );
PyObject* trace_ht( PyObject* module, PyObject* args );

// No lock beside the GIL.
PyObject* traceLineSuppressed( PyObject* module, PyObject* args );
PyObject* traceTagSuppressed( PyObject* module, PyObject* args );
PyObject* escapedTraceString( PyObject* module, PyObject* args );
