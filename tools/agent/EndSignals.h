// How SIGINT and SIGTERM end the agent. While the script runs they interrupt it, with
// KeyboardInterrupt and SystemExit. While the loop runs they end it in order. A signal that the
// script has set a handler for is the script's, in both.
#pragma once

// Takes both signals. GIL, on the main thread, once, after the import of _Kel. False with a Python
// error.
bool takeEndSignals();

// From here on signals end the loop and raise nothing. GIL, on the main thread. False with the
// Python error of a signal that came before.
bool letSignalsEndTheLoop();

// The status of the process for the pending Python error, which is cleared: 0 where it is how a
// signal has interrupted the script. GIL.
int statusOfInterruption();

// Whether this is the process that took the signals, and none forked from it. No lock.
bool isAgentProcess();
