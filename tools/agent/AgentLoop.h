// The activity loop on the agent's main thread.
#pragma once

// Runs until the loop is stopped, by a signal or by whatever in the agent calls its stop(), and
// returns the status of the process. GIL, which the wait gives up. Where the script has started the
// loop on a thread of the runtime's own, this one waits for that loop to end.
int serveLoop();

// Stops the loop behind the reactor that is running. Activity lock.
void stopLoop();

// Lets the loop call Python's handlers of signals, which run on the main thread alone. Activity
// lock; after serveLoop() has begun.
void letPythonHandleSignals();
