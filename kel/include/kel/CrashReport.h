// The report on a fatal signal or a failed assertion. Loading libkel installs it for SIGSEGV,
// SIGBUS, SIGFPE, SIGILL and SIGABRT: one line, the native stack, `printBacktraceFn`, all to
// standard error; then the handler that stood before, or death by the signal. A report that hangs
// or faults ends by that signal too, within two seconds. No lock.
#pragma once

#include <cstddef>

#include <kel/Export.h>

namespace Kel {

// Gives the calling thread a stack of its own for the report, so that an overflow of its stack is
// reported too; it goes with the thread. The thread that loads libkel has one. A thread that has an
// alternate stack keeps it. Without memory nothing changes.
KEL_API void crashStackForThread() noexcept;

namespace Impl {

// Writes the line and the stacks; the SIGABRT that this thread raises next is not reported again.
void reportAssertion( char const* line, std::size_t length ) noexcept;

} // namespace Impl

} // namespace Kel
