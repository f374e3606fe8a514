// The clock of the activity loop and its timers. Activity lock.
#pragma once

#include <kel/Entity.h>
#include <kel/Seconds.h>

namespace Kel {

class Clock;

KEL_TYPES( _Clock_f476dd55_kelModule, Clock );

class KEL_API Clock : public Entity {
 public:
   KEL_OBJECT( Clock )

   class NotifieeConst;

   // The attribute by which a timer is told that its time is reached.
   static constexpr AttributeId reachedTime = 258;

   Clock();
   // Seconds of the runtime's monotonic clock.
   Seconds now() const;

   static Clock* instance();
};

// A timer: told once when the clock reaches the time that it wants. Timers fire in order of time.
class KEL_API Clock::NotifieeConst : public PtrInterface::NotifieeConst {
 public:
   NotifieeConst();
   ~NotifieeConst() override;

   // The wanted time; 0 for none. It is 0 again once the time is reached.
   Seconds timeMin() const { return timeMin_; }
   // A time in the past is due at once. May be called from the reactor. Throws RangeException for
   // what is not a number, and keeps the time that stands.
   void timeMinIs( Seconds time );
   void notifierIs( PtrInterface const* clock );

   virtual void onAttribute( AttributeId attribute, void const* );
   // Marks or unmarks the timer as a zombie; a zombie does not fire.
   virtual void kelDoZombieReactors( bool zombie );

 private:
   friend class TimerQueue;

   Seconds timeMin_{ 0 };
   std::uint64_t order_ = 0; // among equal times; 0 while it is not queued
};

} // namespace Kel
