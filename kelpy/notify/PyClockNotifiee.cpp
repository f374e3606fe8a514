#include <kelpy/notify/PyClockNotifiee.h>

#include <kel/Activity.h>
#include <kelpy/core/PyRef.h>
#include <kelpy/notify/PyCallback.h>

namespace Kel {

PyClockNotifiee::PyClockNotifiee(
   Ptr< Clock const > const& clock, Ptr< PyObjHandle > const& handler )
   : handler_( handler ) {
   NotifieeConst::notifierIs( clock.get() );
   isRegisteredNotifieeIs( true );
}

PyClockNotifiee::~PyClockNotifiee() {
   PyClockNotifiee::kelDoZombieReactors( true );
}

Ptr< PyClockNotifiee > PyClockNotifiee::PyClockNotifieeIs(
   Ptr< Clock const > const& clock, Ptr< PyObjHandle > const& handler ) {
   return newObject< PyClockNotifiee >( clock, handler );
}

Ptr< PyClockNotifiee > pyClockNotifieeFactory(
   Ptr< Clock const > const& clock, Ptr< PyObjHandle > const& handler ) {
   return PyClockNotifiee::PyClockNotifieeIs( clock, handler );
}

void PyClockNotifiee::notifierIs( Ptr< PtrInterface const > const& clock ) {
   auto const wanted = dynamicPtrCast< Clock const >( clock );
   if( wanted.get() == notifier() ) {
      return;
   }
   NotifieeConst::notifierIs( wanted.get() );
   if( wanted && !kelMarkedForDeletion() ) {
      handleTime();
   }
   isRegisteredNotifieeIs( true );
}

void PyClockNotifiee::hasNotificationActiveIs( bool active ) {
   if( active != hasNotificationActive() ) {
      PtrInterface::NotifieeConst::hasNotificationActiveIs( active );
   }
}

void PyClockNotifiee::kelDoZombieReactors( bool zombie ) {
   if( zombie == kelMarkedForDeletion() ) {
      return;
   }
   if( notifier() ) {
      hasNotificationActiveIs( !zombie );
   }
   kelMarkedForDeletionIs( zombie );
}

void PyClockNotifiee::onAttribute( AttributeId attribute, void const* ) {
   if( attribute == Clock::reachedTime && !kelMarkedForDeletion() ) {
      handleTime();
   }
}

// The handle outlives the call, in which the notifiee may end.
void PyClockNotifiee::handleTime() {
   PyObject* const function = handler_->pyObject();
   if( !function ) {
      return;
   }
   Ptr< PyObjHandle > const kept = handler_;
   UnlockAnchor const unlocked( ActivityImplFacility::activityManagerSm()->activityLock() );
   CallbackGil const gil;
   if( !gil ) {
      return;
   }
   keepThreadState();
   PyRef const result = PyRef::steal( PyObject_CallObject( function, nullptr ) );
   if( !result ) {
      endWithPythonError( "PyClockNotifiee::handleNotification's handler raised an exception" );
   }
}

} // namespace Kel
