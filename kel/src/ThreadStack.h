// What a thread of this process is doing, as another thread of it can see.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>

namespace Kel::Impl {

// What a thread waits for in the kernel.
struct SystemCall {
   long number = -1;            // -1 for none
   std::uintptr_t argument = 0; // the first
   std::uintptr_t returnAddress = 0;
};

// Nothing if the thread runs, or cannot be looked at.
std::optional< SystemCall > systemCallOf( pid_t thread ) noexcept;

// Readies threads to be asked for their stacks, by a signal for which the process has no handler.
void takeStackSignal() noexcept;

// Writes the native stack of a thread to the descriptor, or a line that says why there is none. The
// thread is interrupted: a system call that is not restarted behind a signal handler ends with
// EINTR. By one thread at a time.
void printNativeStack( int fd, pid_t thread ) noexcept;

} // namespace Kel::Impl
