// A native thread that deals with signals where the main thread cannot: that one is in the loop, or
// in a handler that takes long. It gives a loop that was asked to end a second for what is pending,
// and then stops it. A further signal behind that second ends the process at once.
#pragma once

#include <string>

// Starts the thread. Returns the descriptor to which a signal handler writes one byte: the number
// of a signal that asks the agent to end, or 0 for one that Python has a handler for, which is what
// Python writes itself. -1 with errno if it cannot be.
int startWatcher();

// Whether signals of Python are given a turn in the loop: while it runs, and not before. No lock.
void watcherServesLoopIs( bool serves );

// What an end at once has to remove. No lock.
void leavingsAre( std::string agentFile, std::string socket );
