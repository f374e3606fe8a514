// Tells on standard error who holds the activity lock for long: the thread, its stack, and those of
// the threads that wait for the lock. A native thread of the runtime's looks, which needs neither
// this lock nor any of a language above; threads that take the lock do nothing for it.
#pragma once

#include <sys/types.h>

#include <kel/Entity.h>
#include <kel/Seconds.h>

// Called by the watchdog, on its own thread, to write to a descriptor what a language above knows
// of the stack of a thread of the process. Returns whether there was anything. Takes no lock, and
// does not trust what it reads, since that thread goes on. Null at first; whoever sets it keeps it
// callable to the end of the process.
KEL_API extern bool ( *printThreadStackFn )( int fd, pid_t thread );

namespace Kel {

class Watchdog;

KEL_TYPES( _Watchdog_7c2e90d5_kelModule, Watchdog );

// Off at first, and in a forked child. A thread that gives the lock up and takes it again at once,
// so that nobody else gets it in between, counts as holding it.
class KEL_API Watchdog : public Entity {
 public:
   KEL_OBJECT( Watchdog )

   static Watchdog* instance();

   Watchdog();
   Seconds seconds() const;
   // For how long the lock may be held before that is told; 0 turns the watchdog off. Throws
   // RangeException for what is no time to wait, ErrnoException where there is no thread to be had.
   // Activity lock.
   void secondsIs( Seconds seconds );
};

} // namespace Kel
