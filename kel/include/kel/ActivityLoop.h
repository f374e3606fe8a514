// The queue of changes and timers and the loop over them: what stands behind Kel::ActivityManager.
// Everything but wake() needs the activity lock.
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <set>
#include <thread>

#include <kel/Clock.h>
#include <kel/KelAttr.h>
#include <kel/Ptr.h>

namespace Kel {

// Timers by time, equal times in the order in which they were asked for.
class TimerQueue {
 public:
   void add( Clock::NotifieeConst* timer );
   void remove( Clock::NotifieeConst* timer );
   // The first timer if its time is reached, else null.
   Clock::NotifieeConst* due( double now ) const;
   bool empty() const { return timers_.empty(); }
   double firstTime() const { return timers_.begin()->time; }
   // Whether a timer that has been added goes before all others.
   bool isFirst( Clock::NotifieeConst const* timer ) const {
      return timers_.begin()->timer == timer;
   }

 private:
   struct Entry {
      double time;
      std::uint64_t order;
      Clock::NotifieeConst* timer;

      bool operator<( Entry const& other ) const {
         return time != other.time ? time < other.time : order < other.order;
      }
   };

   std::set< Entry > timers_;
   std::uint64_t lastOrder_ = 0;
};

class KEL_API ActivityLoop {
 public:
   static ActivityLoop& instance();

   // Queues a change for the notifiees that are registered now.
   void queueChange(
      PtrInterface const* notifier, AttributeId attribute, Ptr< GenericIf const > key );
   void queueZombie( PtrInterface const* notifier );
   // The number of the last change queued.
   std::uint64_t lastChange() const { return lastChange_; }
   TimerQueue& timers() { return timers_; }
   // Makes a loop that waits look again. Async-signal-safe, needs no lock.
   void wake() noexcept;

   // As Kel::ActivityManager says.
   void run();
   void runUntilIdle();
   void start();
   void stop();
   bool isRunning() const { return running_; }

 private:
   struct Change {
      std::uint64_t number;
      Ptr< PtrInterface const > notifier;
      AttributeId attribute; // 0 for a zombie
      Ptr< GenericIf const > key;
   };

   ActivityLoop();

   void enter();
   void leave();
   bool isPending() const;
   bool reactOnce();
   void deliver( Change const& change );
   void fire( Clock::NotifieeConst* timer );
   void loopUntilStopped();
   void wait();
   void waitForOtherLoop();
   void joinOldThread();
   static void afterForkInChild();

   std::deque< Change > changes_;     // activity lock
   TimerQueue timers_;                // activity lock
   std::uint64_t lastChange_ = 0;     // activity lock
   std::uint64_t roundEnd_ = 0;       // activity lock: the last change ahead of the next due timer
   bool running_ = false;             // activity lock
   bool idle_ = true;                 // activity lock: nothing pending, or no loop
   bool stopWanted_ = false;          // activity lock
   std::thread::id loopThread_;       // activity lock
   std::thread* ownThread_ = nullptr; // activity lock
   int wakeDescriptor_ = -1;
   std::atomic< bool > waiting_ = false;
};

} // namespace Kel
