// A timer that calls a Python function. Activity lock.
#pragma once

#include <kelpy/notify/PyActivity.h>

#include <kelpy/notify/PyObjHandle.h>

namespace Kel {

class KELPY_API PyClockNotifiee : public Clock::NotifieeConst {
 public:
   KEL_OBJECT( PyClockNotifiee )

   // Without a clock it never fires. The handler is not called.
   PyClockNotifiee( Ptr< Clock const > const& clock, Ptr< PyObjHandle > const& handler );
   ~PyClockNotifiee() override;
   static Ptr< PyClockNotifiee > PyClockNotifieeIs(
      Ptr< Clock const > const& clock, Ptr< PyObjHandle > const& handler );

   Ptr< Clock const > clock() const { return static_cast< Clock const* >( notifier() ); }
   Ptr< PyObjHandle > const& handler() const { return handler_; }
   // The wanted time, 0 for none.
   Seconds timeMinProxy() const { return timeMin(); }
   void timeMinProxyIs( Seconds time ) { timeMinIs( time ); }
   // Changes the clock; anything else stands for none. A new clock calls the handler at once.
   void notifierIs( Ptr< PtrInterface const > const& clock );
   // Calls the handler, without the activity lock. A Python error ends the process.
   void handleTime();

   void hasNotificationActiveIs( bool active ) override;
   void onAttribute( AttributeId attribute, void const* ) override;
   void kelDoZombieReactors( bool zombie ) override;

 private:
   Ptr< PtrInterface > link_; // part of the layout; nothing sets it
   Ptr< PyObjHandle > handler_;
};

KELPY_API Ptr< PyClockNotifiee > pyClockNotifieeFactory(
   Ptr< Clock const > const& clock, Ptr< PyObjHandle > const& handler );

} // namespace Kel
