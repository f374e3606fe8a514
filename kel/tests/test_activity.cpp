#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <thread>

#include <kel/Activity.h>
#include <kel/Clock.h>
#include <kel/Exception.h>
#include <kel/System.h>

#include "ActivityHelp.h"
#include "GenericHelp.h"
#include "TestUnit.h"

using namespace Kel;
using namespace Unit;

namespace {

class Reactor : public GenericIf::NotifieeConst {
 public:
   using React = std::function< void( KelAttr, GenericIf const* key ) >;

   Reactor( Ptr< GenericIf const > notifier, React react )
      : GenericIf::NotifieeConst( std::move( notifier ) ), react_( std::move( react ) ) {}
   void onAttribute( KelAttr attr, Ptr< GenericIf const > const& key ) override {
      react_( attr, key.get() );
   }
   void onZeroReferences() override { react_( KelAttr(), nullptr ); }

 private:
   React react_;
};

class Timer : public Clock::NotifieeConst {
 public:
   explicit Timer( std::function< void( Timer& ) > react ) : react_( std::move( react ) ) {
      notifierIs( Clock::instance() );
   }
   void onAttribute( AttributeId id, void const* ) override {
      EXPECT_EQ( id, 258u );
      react_( *this );
   }

 private:
   std::function< void( Timer& ) > react_;
};

struct Activity : testing::Test {
   Locked locked;
   Ptr< GenericIf > box = make( "Unit::Box", { text( "box" ), generic( U32( 3 ) ) } );
   std::string seen;

   Box& object() { return *static_cast< Box* >( box->voidPtrIs( kelType< Box >() ) ); }
   Ptr< Reactor > reactor() {
      return newObject< Reactor >( box, [this]( KelAttr attr, GenericIf const* key ) {
         seen += attr ? attr.name() : "zombie";
         seen += key ? ":" + key->strRep().stdString() + " " : " ";
      } );
   }
};

Seconds in( double seconds ) {
   return Seconds( System::currentTime().value() + seconds );
}

} // namespace

TEST_F( Activity, delivers_changes_in_order_and_never_inside_the_change ) {
   auto one = reactor();
   object().priceIs( { 1 } );
   object().priceIs( { 2 } );
   set( box, "level", kelType< Level >().attr( "high" ).genericIfGet( nullptr, nullptr ) );
   EXPECT_EQ( seen, "" );
   manager().runUntilIdle();
   EXPECT_EQ( seen, "price price level " );
}

TEST_F( Activity, hands_the_key_of_keyed_collections_and_sets_alone ) {
   auto one = reactor();
   object().stock.set( "a", 1 );
   object().stock.del( "a" );
   object().tag.add( "t" );
   object().order.add( "o" );
   attr( box, "made" ).genericIfSet( box, ArgVector{ text( "m" ) } );
   manager().runUntilIdle();
   EXPECT_EQ( seen, "stock:a stock:a tag:t order made:m " );
}

TEST_F( Activity, is_silent_where_nothing_changed ) {
   auto one = reactor();
   object().priceIs( object().price() );
   set( box, "level", kelType< Level >().attr( "none" ).genericIfGet( nullptr, nullptr ) );
   object().stock.del( "absent" );
   manager().runUntilIdle();
   EXPECT_EQ( seen, "" );
}

TEST_F( Activity, reaches_only_notifiees_that_stood_before_the_change_and_stand_still ) {
   auto early = reactor();
   object().priceIs( { 1 } );
   auto late = reactor();
   manager().runUntilIdle();
   EXPECT_EQ( seen, "price " );
   object().priceIs( { 2 } );
   early = nullptr;
   manager().runUntilIdle();
   EXPECT_EQ( seen, "price price " );
   late->hasNotificationActiveIs( false );
   object().priceIs( { 3 } );
   manager().runUntilIdle();
   EXPECT_EQ( seen, "price price " );
}

TEST_F( Activity, lets_a_reactor_drop_itself_and_others_and_make_new_ones ) {
   std::vector< Ptr< Reactor > > all;
   auto react = [&]( KelAttr, GenericIf const* ) {
      seen += "x";
      all.clear();
      all.push_back( reactor() );
      object().priceIs( { 77 } );
   };
   all.push_back( newObject< Reactor >( box, react ) );
   all.push_back( newObject< Reactor >( box, react ) );
   object().priceIs( { 1 } );
   manager().runUntilIdle();
   EXPECT_EQ( seen, "xprice " );
}

TEST_F( Activity, reaches_those_behind_one_that_a_reactor_drops ) {
   Ptr< Reactor > second;
   auto const first = newObject< Reactor >( box, [&]( KelAttr, GenericIf const* ) {
      seen += "x ";
      second = nullptr;
   } );
   second = reactor();
   auto const third = reactor();
   object().priceIs( { 1 } );
   manager().runUntilIdle();
   EXPECT_EQ( seen, "x price " );
}

TEST_F( Activity, still_reaches_the_others_once_one_is_gone ) {
   auto const first = reactor();
   reactor(); // ends here
   object().priceIs( { 1 } );
   manager().runUntilIdle();
   EXPECT_EQ( seen, "price " );
}

TEST_F( Activity, tells_notifiees_of_a_zombie_once ) {
   auto dir = newObject< Dir >( String( "d" ) );
   auto member = dir->createEntity( "Unit::Box", "m" );
   box = KelType::genericIf( member.get(), false );
   auto one = reactor();
   EXPECT_TRUE( dir->deleteEntity( "m" ) );
   member->kelMarkedForDeletionIs( true );
   manager().runUntilIdle();
   EXPECT_EQ( seen, "zombie " );
   EXPECT_EQ( member->fullName(), String( "d/m" ) );
}

TEST_F( Activity, refuses_a_value_as_notifier ) {
   EXPECT_THROW( newObject< Reactor >( generic( U32( 1 ) ), nullptr ), TypeException );
}

TEST_F( Activity, fires_timers_in_order_of_time_and_those_of_the_past_at_once ) {
   std::vector< Ptr< Timer > > timers;
   for( int i : { 3, 1, 2, 0 } ) {
      timers.push_back(
         newObject< Timer >( [this, i]( Timer& ) { seen += std::to_string( i ); } ) );
      timers.back()->timeMinIs( in( i * 0.001 - 1 ) );
   }
   auto far = newObject< Timer >( [this]( Timer& ) { seen += "far"; } );
   far->timeMinIs( in( 3600 ) );
   manager().runUntilIdle();
   EXPECT_EQ( seen, "0123" );
   EXPECT_EQ( timers[0]->timeMin().value(), 0 );
}

TEST_F( Activity, lets_a_timer_arm_itself_again_and_be_disarmed ) {
   int left = 3;
   auto again = newObject< Timer >( [&]( Timer& timer ) {
      seen += "t";
      if( --left ) {
         timer.timeMinIs( in( 0 ) );
      }
   } );
   auto off = newObject< Timer >( [this]( Timer& ) { seen += "off"; } );
   again->timeMinIs( in( 0 ) );
   off->timeMinIs( in( 0 ) );
   off->timeMinIs( Seconds( 0 ) );
   auto zombie = newObject< Timer >( [this]( Timer& ) { seen += "zombie"; } );
   zombie->timeMinIs( in( 0 ) );
   zombie->kelDoZombieReactors( true );
   manager().runUntilIdle();
   EXPECT_EQ( seen, "ttt" );
}

TEST_F( Activity, run_ends_by_stop_and_keeps_what_is_queued_for_the_next_run ) {
   auto stopper = newObject< Reactor >( box, [this]( KelAttr, GenericIf const* ) {
      seen += "s";
      manager().stop();
   } );
   object().priceIs( { 1 } );
   object().priceIs( { 2 } );
   manager().run();
   EXPECT_EQ( seen, "s" );
   manager().run();
   EXPECT_EQ( seen, "ss" );
}

TEST_F( Activity, run_with_stop_on_quiesce_ends_once_nothing_is_due ) {
   auto far = newObject< Timer >( []( Timer& ) {} );
   far->timeMinIs( in( 3600 ) );
   auto one = reactor();
   object().priceIs( { 1 } );
   auto* config = ActivityFacility::activityManagerConfig();
   config->stopOnQuiesceIs( true );
   manager().run();
   config->stopOnQuiesceIs( false );
   EXPECT_EQ( seen, "price " );
}

TEST_F( Activity, does_not_nest ) {
   auto nested = newObject< Reactor >( box, [&]( KelAttr, GenericIf const* ) {
      EXPECT_THROW( manager().run(), InternalException );
      EXPECT_THROW( manager().runUntilIdle(), InternalException );
      seen += "n";
   } );
   object().priceIs( { 1 } );
   manager().runUntilIdle();
   EXPECT_EQ( seen, "n" );
}

TEST( ActivityThread, waits_without_the_lock_and_wakes_for_changes_timers_and_stop ) {
   std::string seen;
   Ptr< GenericIf > box;
   Ptr< Reactor > reactor;
   Ptr< Timer > timer;
   {
      Locked locked;
      box = make( "Unit::Box", { text( "box" ), generic( U32( 3 ) ) } );
      reactor = newObject< Reactor >( box, [&]( KelAttr attr, GenericIf const* ) {
         EXPECT_EQ( activityLock()->ownerThread(), Impl::gettid() );
         seen += attr.name();
      } );
      timer = newObject< Timer >( [&]( Timer& ) { seen += "t"; } );
      manager().start();
      EXPECT_TRUE( manager().isRunning() );
      EXPECT_THROW( manager().start(), InternalException );
   }
   for( U32 cents : { 1u, 2u } ) {
      Locked locked;
      set( box, "price", generic( Money{ cents } ) );
      manager().runUntilIdle();
   }
   while( true ) {
      Locked locked;
      if( seen == "pricepriceT" || seen == "pricepricet" ) {
         break;
      }
      if( timer->timeMin().value() == 0 ) {
         timer->timeMinIs( in( 0.001 ) );
      }
   }
   manager().stop();
   while( true ) {
      Locked locked;
      if( !manager().isRunning() ) {
         break;
      }
   }
   Locked locked;
   manager().runUntilIdle();
   reactor = nullptr;
   timer = nullptr;
   box = nullptr;
}

TEST( ActivityThread, is_stopped_by_a_signal_handler_while_it_waits ) {
   auto old = ::signal(
      SIGUSR1, []( int ) { ActivityFacility::activityManagerConfig()->stopOnQuiesceIs( true ); } );
   std::thread other( [main = ::pthread_self()] {
      while( true ) {
         ::usleep( 1000 );
         Locked locked;
         if( manager().isRunning() ) {
            break;
         }
      }
      ::pthread_kill( main, SIGUSR1 );
   } );
   manager().run();
   other.join();
   ActivityFacility::activityManagerConfig()->stopOnQuiesceIs( false );
   ::signal( SIGUSR1, old );
}
