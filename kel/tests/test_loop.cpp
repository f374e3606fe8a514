// What the activity loop withstands: reactors that throw or never come to rest, threads that fail
// to start, forks in the middle of its work.
#include <gtest/gtest.h>

#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <future>
#include <system_error>
#include <thread>

#include <kel/Activity.h>
#include <kel/ActivityLoop.h>
#include <kel/Clock.h>
#include <kel/Notifiee.h>
#include <kel/System.h>

#include "ActivityHelp.h"
#include "ChildProcess.h"
#include "GenericHelp.h"
#include "TestUnit.h"

using namespace Kel;
using namespace Unit;

namespace {

constexpr Seconds past( 1 );

class Reactor : public GenericIf::NotifieeConst {
 public:
   Reactor( Ptr< GenericIf const > notifier, std::function< void() > react )
      : GenericIf::NotifieeConst( std::move( notifier ) ), react_( std::move( react ) ) {}
   void onAttribute( KelAttr, Ptr< GenericIf const > const& ) override { react_(); }

 private:
   std::function< void() > react_;
};

class Timer : public Clock::NotifieeConst {
 public:
   explicit Timer( std::function< void() > react ) : react_( std::move( react ) ) {
      notifierIs( Clock::instance() );
   }
   void onAttribute( AttributeId, void const* ) override { react_(); }

 private:
   std::function< void() > react_;
};

struct Loop : testing::Test {
   Locked locked;
   Ptr< Box > box = newObject< Box >( String( "box" ) );
   std::string seen;

   Ptr< Reactor > reactor( std::function< void() > react ) {
      return newObject< Reactor >( KelType::genericIf( box.get(), false ), std::move( react ) );
   }
   Ptr< Reactor > noting( char const* what ) {
      return reactor( [this, what] { seen += what; } );
   }
   void change() { box->priceIs( { box->price().cents + 1 } ); }
};

// Overwrites what a function that has returned, or a thread that is gone, left on its stack.
[[gnu::noinline]] void overwriteStack( std::function< void() > const& meanwhile ) {
   char used[200'000];
   std::memset( used, 0xab, sizeof used );
   meanwhile();
   asm volatile( "" : : "r"( used ) : "memory" );
}

// Where overwriteStack reaches on a stack of the same place.
[[gnu::noinline]] void runDownTheStack() {
   char unused[50'000];
   manager().run();
   asm volatile( "" : : "r"( unused ) : "memory" );
}

void waitUntilStopped() {
   for( bool running = true; running; ) {
      UnlockAnchor const unlocked( activityLock() );
      std::this_thread::yield();
      LockAnchor const locked( activityLock() );
      running = manager().isRunning();
   }
}

} // namespace

TEST_F( Loop, lets_out_what_a_reactor_throws_and_goes_on_in_the_next_run ) {
   auto throwing = reactor( [this] {
      seen += "x";
      throw 7;
   } );
   auto const other = noting( "o" );
   change();
   change();
   EXPECT_THROW( manager().runUntilIdle(), int );
   EXPECT_FALSE( manager().isRunning() );
   overwriteStack( [&] { throwing = nullptr; } );
   manager().runUntilIdle();
   EXPECT_EQ( seen, "xo" );
}

TEST_F( Loop, fires_timers_among_changes_that_never_end ) {
   int changes = 0;
   bool fired = false;
   auto const endless = reactor( [&] {
      if( ++changes < 1000 && !fired ) {
         change();
      }
   } );
   auto const timer = newObject< Timer >( [&] { fired = true; } );
   timer->timeMinIs( past );
   change();
   manager().runUntilIdle();
   EXPECT_TRUE( fired );
   EXPECT_EQ( changes, 2 );
}

TEST_F( Loop, tells_of_what_a_timer_changed_before_the_next_timer_fires ) {
   auto const told = noting( "c" );
   std::vector< Ptr< Timer > > timers;
   for( int i = 0; i < 3; ++i ) {
      timers.push_back( newObject< Timer >( [this] {
         seen += "t";
         change();
         change();
      } ) );
      timers.back()->timeMinIs( past );
   }
   change();
   manager().runUntilIdle();
   EXPECT_EQ( seen, "ctcctcctcc" );
}

TEST_F( Loop, does_not_fire_a_timer_that_is_not_registered ) {
   auto const timer = newObject< Timer >( [this] { seen += "t"; } );
   timer->isRegisteredNotifieeIs( false );
   timer->timeMinIs( past );
   manager().runUntilIdle();
   EXPECT_EQ( seen, "" );
   timer->isRegisteredNotifieeIs( true );
   timer->timeMinIs( past );
   manager().runUntilIdle();
   EXPECT_EQ( seen, "t" );
}

TEST_F( Loop, keeps_nothing_of_an_object_that_is_gone ) {
   auto one = noting( "1" );
   PtrInterface const* const address = box.get();
   EXPECT_EQ( NotifieeList::find( address ), box->notifieeList() );
   one = nullptr;
   EXPECT_TRUE( !box->notifieeList() || box->notifieeList()->empty() );
   box = nullptr;
   EXPECT_EQ( NotifieeList::find( address ), nullptr );
}

TEST_F( Loop, that_gets_no_thread_can_be_started_again ) {
   if( !Testing::childrenHaveThreads ) {
      GTEST_SKIP();
   }
   auto const outcome = Testing::inChild( [] {
      pthread_attr_t usual, huge;
      pthread_getattr_default_np( &usual );
      pthread_attr_init( &huge );
      pthread_attr_setstacksize( &huge, std::size_t( 1 ) << 60 );
      pthread_setattr_default_np( &huge );
      try {
         manager().start();
         return 1;
      } catch( std::system_error const& ) {
      }
      pthread_setattr_default_np( &usual );
      if( manager().isRunning() ) {
         return 2;
      }
      manager().start();
      manager().stop();
      waitUntilStopped();
      return 0;
   } );
   EXPECT_EQ( outcome.exitCode(), 0 );
}

// A child has none of the threads of its parent.

TEST_F( Loop, of_another_thread_is_over_in_a_child_in_the_middle_of_a_reaction_too ) {
   if( !Testing::childrenHaveThreads ) {
      GTEST_SKIP();
   }
   std::promise< void > reached, forked;
   bool isParent = true;
   auto const one = reactor( [&] {
      if( !isParent ) {
         seen += "1";
         return;
      }
      UnlockAnchor const unlocked( activityLock() );
      reached.set_value();
      forked.get_future().wait();
   } );
   auto two = noting( "2" );
   change();
   std::thread loop( runDownTheStack );
   {
      UnlockAnchor const unlocked( activityLock() );
      reached.get_future().wait();
   }
   auto const outcome = Testing::inChild( [&] {
      // On the stack of the thread that is gone, as the C library keeps it.
      std::thread( overwriteStack, [&] { two = nullptr; } ).join();
      if( manager().isRunning() ) {
         return 1;
      }
      isParent = false;
      auto const three = noting( "3" );
      change();
      manager().runUntilIdle();
      return seen == "13" ? 0 : 2;
   } );
   EXPECT_EQ( outcome.exitCode(), 0 );
   forked.set_value();
   manager().stop();
   UnlockAnchor const unlocked( activityLock() );
   loop.join();
}

TEST_F( Loop, of_a_child_waits_for_no_thread_of_its_parent ) {
   if( !Testing::childrenHaveThreads ) {
      GTEST_SKIP();
   }
   manager().start();
   manager().stop();
   waitUntilStopped();
   auto const outcome = Testing::inChild( [] {
      // It may get the place of the one that ran the loop in the parent.
      std::promise< void > end;
      std::thread other( [&] { end.get_future().wait(); } );
      manager().start();
      manager().stop();
      waitUntilStopped();
      end.set_value();
      other.join();
      return 0;
   } );
   EXPECT_EQ( outcome.exitCode(), 0 );
   manager().runUntilIdle();
}

TEST_F( Loop, that_a_reactor_forks_goes_on_in_the_child ) {
   Testing::Outcome outcome{};
   bool isChild = false;
   auto const forking = reactor( [&] {
      if( !outcome.status && !isChild ) {
         outcome = Testing::inChild( [&] {
            isChild = true;
            change();
            return manager().isRunning() ? 3 : 4;
         } );
      }
   } );
   change();
   manager().runUntilIdle();
   EXPECT_EQ( outcome.exitCode(), 3 );
}

TEST_F( Loop, of_its_own_thread_goes_on_in_a_child_that_its_reactor_forks ) {
   if( !Testing::childrenHaveThreads ) {
      GTEST_SKIP();
   }
   auto const outcome = Testing::inChild( [this] {
      std::promise< int > status;
      bool isChild = false;
      auto const forking = reactor( [&] {
         if( isChild ) {
            _exit( 9 ); // told of its own change
         }
         pid_t const child = fork();
         if( child == 0 ) {
            alarm( 20 );
            isChild = true;
            change();
            return;
         }
         int ended = 0;
         waitpid( child, &ended, 0 );
         status.set_value( WIFEXITED( ended ) ? WEXITSTATUS( ended ) : -1 );
         manager().stop();
      } );
      change();
      manager().start();
      UnlockAnchor const unlocked( activityLock() );
      return status.get_future().get();
   } );
   EXPECT_EQ( outcome.exitCode(), 9 );
}

TEST_F( Loop, passes_over_a_change_of_what_is_no_attribute ) {
   auto const told = noting( "1" );
   box->notify( attrId( "nothing" ) );
   manager().runUntilIdle();
   EXPECT_EQ( seen, "" );
   change();
   manager().runUntilIdle();
   EXPECT_EQ( seen, "1" );
}

TEST_F( Loop, passes_over_a_change_of_what_nobody_asks_about ) {
   auto const live = Part::live;
   auto part = newObject< Part >( String( "p" ) );
   ActivityLoop::instance().queueChange( part.get(), attrId( "weight" ), nullptr );
   part = nullptr;
   EXPECT_EQ( Part::live, live + 1 );
   manager().runUntilIdle();
   EXPECT_EQ( Part::live, live );
}

TEST_F( Loop, tells_a_timer_of_no_change_of_the_clock ) {
   auto const timer = newObject< Timer >( [this] { seen += "t"; } );
   Clock::instance()->notify( Clock::reachedTime );
   manager().runUntilIdle();
   EXPECT_EQ( seen, "" );
}

TEST_F( Loop, tells_no_zombie_and_no_timer_that_is_one ) {
   auto const told = noting( "1" );
   auto const timer = newObject< Timer >( [this] { seen += "t"; } );
   told->kelMarkedForDeletionIs( true );
   timer->kelDoZombieReactors( true );
   change();
   timer->timeMinIs( past );
   manager().runUntilIdle();
   EXPECT_EQ( seen, "" );
   told->kelMarkedForDeletionIs( false );
   change();
   manager().runUntilIdle();
   EXPECT_EQ( seen, "1" );
}

TEST_F( Loop, that_stops_lets_go_who_waits_for_it ) {
   std::promise< void > waits;
   auto const stopping = reactor( [&] {
      UnlockAnchor const unlocked( activityLock() );
      waits.get_future().wait();
      manager().stop();
   } );
   change();
   manager().start();
   // It reacts by the time that this one begins to wait, and is stopped in the middle of it.
   std::thread( [&] {
      LockAnchor const held( activityLock() );
      waits.set_value();
   } ).detach();
   manager().runUntilIdle();
   waitUntilStopped();
   EXPECT_FALSE( manager().isRunning() );
}

namespace {

// Runs a loop as its thread ends.
struct RunsAtThreadsEnd {
   ~RunsAtThreadsEnd() {
      if( ended ) {
         LockAnchor const locked( activityLock() );
         ActivityFacility::activityManagerConfig()->stopOnQuiesceIs( true );
         manager().run();
         ended->set_value();
      }
   }

   std::promise< void >* ended = nullptr;
};
thread_local RunsAtThreadsEnd runsAtThreadsEnd;

} // namespace

TEST_F( Loop, may_run_once_more_on_its_own_thread_as_that_ends ) {
   if( !Testing::childrenHaveThreads ) {
      GTEST_SKIP();
   }
   auto const outcome = Testing::inChild( [this] {
      std::promise< void > ended;
      auto const stopping = reactor( [&] {
         seen += "1";
         if( !runsAtThreadsEnd.ended ) {
            runsAtThreadsEnd.ended = &ended;
            manager().stop();
            change();
         }
      } );
      change();
      manager().start();
      UnlockAnchor const unlocked( activityLock() );
      ended.get_future().wait();
      return seen == "11" ? 0 : 1;
   } );
   EXPECT_EQ( outcome.exitCode(), 0 ) << outcome.errors;
}
