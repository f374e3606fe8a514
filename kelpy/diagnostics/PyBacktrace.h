// _Kel.Backtrace, the Python view of a captured native stack, and the writer of the Python stack
// in a crash report.
#pragma once

#include <kelpy/core/PyPython.h>

#include <kel/Backtrace.h>
#include <kelpy/core/KelPyExport.h>

struct PyBacktrace {
   PyObject_HEAD
   Kel::Ptr< Kel::Backtrace const > backtrace; // never null
};

extern KELPY_API PyTypeObject PyBacktraceType;

// The wrapper, None for null; a new reference, or null with a Python error. GIL.
KELPY_API PyObject* PyBacktrace_FromBacktrace( Kel::Ptr< Kel::Backtrace const > backtrace );

// Writes the exception being handled and the Python stack of the calling thread to `fd`. For a
// crash report: takes no lock and no GIL and allocates nothing, beside what the text of an
// exception does.
KELPY_API void printPythonBacktrace( int fd );
