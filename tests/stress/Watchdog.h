// Ends a process in which somebody makes no more steps, on a thread that takes no lock for its
// decision.
#pragma once

namespace Stress {

// The exit status of a process that the watchdog ended, and of a forked child that was late.
constexpr int watchdogStatus = 70;
constexpr int childStatus = 71;

// Somebody who makes steps; a number to tell of them by. `name` is copied.
int newParticipant( char const* name );
// One more step.
void stepMade( int participant );
// No more steps are to be expected.
void participantDone( int participant );

// From now on each participant that is not done makes a step in that many seconds, or the process
// ends with the stacks of all threads on standard error.
void startWatchdog( unsigned seconds );
// The longest, in seconds, that the machine has kept the watchdog from going on, which waits for no
// lock.
double longestDelay();
// Nobody is watched any more.
void stopWatchdog();

} // namespace Stress
