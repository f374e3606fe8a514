#include <kel/Clock.h>

#include <cmath>

#include <kel/ActivityLoop.h>
#include <kel/Exception.h>
#include <kel/Schema.h>
#include <kel/System.h>

namespace Kel {

Clock::Clock() : Entity( String( "clock" ) ) {}

Seconds Clock::now() const {
   return System::currentTime();
}

Clock* Clock::instance() {
   static Clock* const clock = [] {
      auto clock = newObject< Clock >();
      Entity::singletonIs( clock );
      return clock.get();
   }();
   return clock;
}

Clock::NotifieeConst::NotifieeConst() = default;

Clock::NotifieeConst::~NotifieeConst() {
   timeMinIs( Seconds( 0 ) );
}

void Clock::NotifieeConst::timeMinIs( Seconds time ) {
   // It would stand in no order to the others.
   if( std::isnan( time.value() ) ) {
      throw RangeException( "the time of a timer must be a number" );
   }
   auto& timers = ActivityLoop::instance().timers();
   timers.remove( this );
   timeMin_ = time;
   if( time.value() != 0 && notifier() ) {
      try {
         timers.add( this );
      } catch( ... ) {
         // Without memory it waits for no time, and says so.
         timeMin_ = Seconds( 0 );
         throw;
      }
      // A loop that waits does so until the time of the first.
      if( timers.isFirst( this ) ) {
         ActivityLoop::instance().wake();
      }
   }
}

void Clock::NotifieeConst::notifierIs( PtrInterface const* clock ) {
   PtrInterface::NotifieeConst::notifierIs( clock );
   timeMinIs( timeMin_ );
}

void Clock::NotifieeConst::onAttribute( AttributeId, void const* ) {}

void Clock::NotifieeConst::kelDoZombieReactors( bool zombie ) {
   kelMarkedForDeletionIs( zombie );
}

KEL_UNIT( _Clock_f476dd55_kelModule,
   entity< Clock, Entity >( notMade, attr< &Clock::now >( "now" ).withId( Clock::reachedTime ) ) )

namespace {
[[maybe_unused]] Clock* const clockExistsFromLoad = Clock::instance();
} // namespace

} // namespace Kel
