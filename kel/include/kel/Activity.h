// The activity loop: delivers queued notifications and due timers, one at a time, under the
// activity lock, which it gives up while it waits. A reactor may give the lock up and take it back.
#pragma once

#include <atomic>

#include <kel/Entity.h>
#include <kel/Lock.h>

namespace Kel {

class ActivityManager;
class ActivityManagerConfig;

KEL_TYPES( _Activity_6d1c04e2_kelModule, ActivityManager, ActivityManagerConfig );

// The state of the loop.
class KEL_API ActivityManagerSm {
 public:
   Lock* activityLock() { return ::Kel::activityLock(); }
};

class KEL_API ActivityImplFacility {
 public:
   static ActivityManagerSm* activityManagerSm();
};

class KEL_API ActivityFacility {
 public:
   // Safe to call from a signal handler.
   static ActivityManagerConfig* activityManagerConfig();
};

class KEL_API ActivityManager : public Entity {
 public:
   KEL_OBJECT( ActivityManager )

   ActivityManager();
   // Runs until stop() or, with stopOnQuiesce, until nothing is pending. Called with or without the
   // activity lock. Throws InternalException if a loop runs already. What a reactor throws ends it
   // and comes out here; on the thread of start() it ends the process.
   void run();
   // Delivers what is pending and due, then returns. While a loop runs on another thread it waits
   // until that one is idle.
   void runUntilIdle();
   // Ends run() after the reactor that is running; what is queued stays for the next run.
   void stop();
   // Runs the loop on a thread of the runtime's own. Throws InternalException if a loop runs
   // already.
   void start();
   bool isRunning() const;
};

class KEL_API ActivityManagerConfig : public Entity {
 public:
   KEL_OBJECT( ActivityManagerConfig )

   ActivityManagerConfig();
   bool stopOnQuiesce() const { return stopOnQuiesce_.load( std::memory_order_acquire ); }
   // Ends run() once nothing is pending. Async-signal-safe, and needs no lock.
   void stopOnQuiesceIs( bool stop );

 private:
   std::atomic< bool > stopOnQuiesce_ = false;
};

} // namespace Kel
