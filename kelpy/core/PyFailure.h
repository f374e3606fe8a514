// The one translation of failures: exceptions of the runtime become Python errors, and a pending
// Python error crosses C++ frames as PythonException. Callable with or without the GIL unless
// said otherwise.
#pragma once

#include <kelpy/core/PyPython.h>

#include <exception>

#include <kel/Exception.h>
#include <kel/KelAttr.h>
#include <kel/KelType.h>
#include <kelpy/core/KelPyExport.h>

// Thrown where a Python error is pending in this thread and the frames above have to unwind.
class KELPY_API PythonException : public std::exception {};

namespace Kel {

// All: called from a handler, they turn the exception being handled into a pending Python error,
// whose message starts with the prefix, the stage that failed. They take the GIL for themselves. A
// PythonException leaves the pending error as it stands. The forms with `exc`, for a handler that
// has caught that sort already, need not throw it again to see what it is.
KELPY_API void translateCppExceptionToPython( char const* prefix ) noexcept;
KELPY_API void translateCppExceptionToPython( Exception const& exc, char const* prefix ) noexcept;
// The message starts with the full name of the type, then the prefix.
KELPY_API void translateCppExceptionToPython( KelType type, char const* prefix ) noexcept;
KELPY_API void translateCppExceptionToPython(
   Exception const& exc, KelType type, char const* prefix ) noexcept;
// The message starts with type and name of the attribute, then the prefix.
KELPY_API void translateCppExceptionToPython( KelAttr attr, char const* prefix ) noexcept;
KELPY_API void translateCppExceptionToPython(
   Exception const& exc, KelAttr attr, char const* prefix ) noexcept;

} // namespace Kel

// Raises an instance of the Python class `cls`, with the native stack of `exc`, if it has one, as
// its attribute `backtrace`. The instance is made from `args`, or, where that is null, from one
// text of prefix, C++ class and message. GIL. A failure on the way raises `cls` without a value.
KELPY_API void PyErr_SetBacktrace(
   PyObject* cls, Kel::Exception const& exc, char const* prefix, PyObject* args ) noexcept;
