// What reactors that call Python share: the way in for threads of the runtime, which live on while
// the interpreter goes, and the end of the process where a handler fails, since such a failure has
// no caller to return to.
#pragma once

#include <kelpy/core/PyPython.h>

// Watches for the end of the interpreter. Once a process, at the module's entry; false with a
// Python error. GIL.
bool watchInterpreterEnd();

// Holds the GIL for its lifetime, on any thread. It is false, and holds nothing, once the
// interpreter goes: then only the thread that ends it may still come in, what belongs to Python
// stays as it is, and there is nobody left to be called.
class CallbackGil {
 public:
   CallbackGil() noexcept;
   CallbackGil( CallbackGil const& ) = delete;
   CallbackGil& operator=( CallbackGil const& ) = delete;
   ~CallbackGil();

   explicit operator bool() const noexcept { return held_; }

 private:
   bool held_;
   PyGILState_STATE state_ = PyGILState_UNLOCKED;
};

// Behind a guard, on a thread that calls handlers: a state that Python has made for it just now
// lasts until the thread ends. So not each call has to make one, and Python's thread-local data
// stays. GIL.
void keepThreadState();

// Writes the line and the pending Python error to standard error and aborts. A pending SystemExit
// ends the process as it does anywhere. Comes back, without the error, only while the interpreter
// goes: then the names that a handler uses go under it, and the process ends already. GIL.
void endWithPythonError( char const* line ) noexcept;
