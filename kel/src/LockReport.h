// What the watchdog writes to standard error. No memory, and no lock but the loader's.
#pragma once

#include <sys/types.h>

#include <chrono>

namespace Kel::Impl {

using Time = std::chrono::duration< double >;

// The holder of the activity lock and the threads that wait for it, each with its stack.
void reportHolder( pid_t holder, Time held );
void reportRelease( pid_t holder, Time held );

} // namespace Kel::Impl
