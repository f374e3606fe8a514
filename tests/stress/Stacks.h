// The stacks of all threads of a process in which nothing moves any more: neither the GIL nor any
// other lock is needed, and nothing is allocated.
#pragma once

namespace Stress {

// Names the calling thread in a report; cut off at 15 bytes.
void threadNameIs( char const* name );

// Prepares this process for a report. Once, before the threads start.
void prepareStacks();

// Writes the native stack of each other thread to standard error, then the Python stacks: from a
// thread that holds the GIL if that can be had within two seconds, otherwise as the frames lie.
void writeStacks();

// For a forked child: ends it with `status` after so many seconds, and writes its stacks first.
void childDeadlineIs( unsigned seconds, int status );

} // namespace Stress
