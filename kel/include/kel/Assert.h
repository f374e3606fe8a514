// Assertions on faults of the program, active in every build. No lock is needed; a failed one ends
// the process from any thread, with the stack on standard error.
#pragma once

#include <kel/Export.h>

namespace Kel {

// Writes "assertion failed: <text> (<file>:<line>, <function>)" to standard error, then the native
// stack, then calls `printBacktraceFn` if it is set, and ends the process by SIGABRT. `file` may
// have folders, which are left out. Uses only async-signal-safe calls.
[[noreturn]] KEL_API void assertionFailed(
   char const* text, char const* file, int line, char const* function ) noexcept;

} // namespace Kel

// The text is the expression as written. Variadic, so that commas need no extra parentheses.
#define KEL_ASSERT( ... )                                                                          \
   ( ( __VA_ARGS__ ) ? static_cast< void >( 0 )                                                    \
                     : ::Kel::assertionFailed( #__VA_ARGS__, __FILE__, __LINE__, __func__ ) )
