#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <numeric>
#include <random>
#include <utility>
#include <vector>

#include <kel/Activity.h>
#include <kel/Clock.h>
#include <kel/Exception.h>
#include <kel/System.h>

#include "GenericHelp.h"

using namespace Kel;
using namespace Unit;

namespace {

constexpr double past = 1;
constexpr double far = 1e9;
constexpr int many = 100'000;
#ifdef KEL_SANITIZED // slow, and there to look at other faults
constexpr int rounds = 1;
#else
constexpr int rounds = 5;
#endif

// Notes its number when it fires, and then does what it was given.
class Timer : public Clock::NotifieeConst {
 public:
   using React = std::function< void() >;

   Timer( std::vector< int >& fired, int number, React react )
      : fired_( fired ), number_( number ), react_( std::move( react ) ) {
      notifierIs( Clock::instance() );
   }
   void onAttribute( AttributeId, void const* ) override {
      fired_.push_back( number_ );
      if( react_ ) {
         react_();
      }
   }

 private:
   std::vector< int >& fired_;
   int const number_;
   React const react_;
};

struct Timers : testing::Test {
   Locked locked;
   std::vector< int > fired;

   Ptr< Timer > timer( int number, double time = 0, Timer::React react = nullptr ) {
      auto made = newObject< Timer >( fired, number, std::move( react ) );
      made->timeMinIs( Seconds( time ) );
      return made;
   }
   // Numbers fired since the last time.
   std::vector< int > run() {
      static_cast< ActivityManager* >( Entity::singleton( "Kel::ActivityManager" ).get() )
         ->runUntilIdle();
      return std::exchange( fired, {} );
   }
};

std::vector< int > numbers( int count ) {
   std::vector< int > all( count );
   std::iota( all.begin(), all.end(), 0 );
   return all;
}

} // namespace

TEST_F( Timers, of_one_time_fire_in_the_order_of_their_arming ) {
   std::vector< Ptr< Timer > > made;
   for( int i = 0; i < 50; ++i ) {
      made.push_back( timer( i ) );
   }
   // Neither the order of their making nor that of their addresses.
   std::vector< int > order = numbers( 50 );
   std::shuffle( order.begin(), order.end(), std::mt19937( 7 ) );
   for( int i : order ) {
      made[i]->timeMinIs( Seconds( past ) );
   }
   EXPECT_EQ( run(), order );
}

TEST_F( Timers, armed_anew_for_the_time_that_they_have_go_behind_the_others_of_that_time ) {
   auto const first = timer( 1, past ), second = timer( 2, past ), third = timer( 3, past );
   first->timeMinIs( Seconds( past ) );
   EXPECT_EQ( run(), ( std::vector< int >{ 2, 3, 1 } ) );
}

TEST_F( Timers, fire_by_their_last_time_alone ) {
   auto const moved = timer( 1, past ), still = timer( 2, past + 1 );
   moved->timeMinIs( Seconds( far ) );
   moved->timeMinIs( Seconds( past + 2 ) );
   EXPECT_EQ( run(), ( std::vector< int >{ 2, 1 } ) );
   EXPECT_EQ( run(), std::vector< int >() );
}

TEST_F( Timers, are_armed_and_disarmed_by_the_reactors_of_others ) {
   Ptr< Timer > dropped, disarmed, armed;
   auto const first = timer( 1, past, [&] {
      dropped = nullptr;
      disarmed->timeMinIs( Seconds( 0 ) );
      armed->timeMinIs( Seconds( past ) );
   } );
   dropped = timer( 2, past );
   disarmed = timer( 3, past );
   armed = timer( 4 );
   auto const last = timer( 5, past );
   EXPECT_EQ( run(), ( std::vector< int >{ 1, 5, 4 } ) );
}

TEST_F( Timers, armed_again_by_their_reactors_let_others_of_that_time_go_first ) {
   Ptr< Timer > again;
   again = timer( 1, past, [&] {
      if( fired.size() < 5 ) {
         again->timeMinIs( Seconds( past ) );
      }
   } );
   auto const other = timer( 2, past );
   EXPECT_EQ( run(), ( std::vector< int >{ 1, 2, 1, 1, 1 } ) );
}

TEST_F( Timers, of_the_past_and_of_negative_times_are_due_at_once ) {
   double const infinity = std::numeric_limits< double >::infinity();
   auto const one = timer( 1, past ), two = timer( 2, -5 ), three = timer( 3, -infinity ),
              four = timer( 4, System::currentTime().value() ), never = timer( 5, infinity );
   EXPECT_EQ( run(), ( std::vector< int >{ 3, 2, 1, 4 } ) );
   EXPECT_EQ( never->timeMin().value(), infinity );
}

TEST_F( Timers, refuse_a_time_that_is_no_number_and_keep_the_one_they_have ) {
   double const nan = std::numeric_limits< double >::quiet_NaN();
   auto const wrong = timer( 1 ), right = timer( 2, past );
   EXPECT_THROW( wrong->timeMinIs( Seconds( nan ) ), RangeException );
   EXPECT_THROW( right->timeMinIs( Seconds( nan ) ), RangeException );
   EXPECT_EQ( wrong->timeMin().value(), 0 );
   EXPECT_EQ( right->timeMin().value(), past );
   EXPECT_EQ( run(), std::vector< int >{ 2 } );
}

TEST_F( Timers, are_passed_over_while_their_notifications_are_off ) {
   auto const silent = timer( 1, past );
   auto const other = timer( 2, past );
   silent->hasNotificationActiveIs( false );
   EXPECT_EQ( run(), std::vector{ 2 } );
   silent->hasNotificationActiveIs( true );
   silent->timeMinIs( Seconds( past ) );
   EXPECT_EQ( run(), std::vector{ 1 } );
}

TEST_F( Timers, wait_for_a_clock ) {
   auto const made = timer( 1 );
   made->notifierIs( nullptr );
   made->timeMinIs( Seconds( past ) );
   EXPECT_EQ( run(), std::vector< int >() );
   EXPECT_EQ( made->timeMin().value(), past );
   made->notifierIs( Clock::instance() );
   EXPECT_EQ( run(), std::vector< int >{ 1 } );
}

// A scan of those that are pending, at each arming, would take this past the deadline of a test.
TEST_F( Timers, by_the_hundred_thousand_are_armed_over_and_over_and_fire_in_order ) {
   std::vector< int > order = numbers( many );
   std::mt19937 random( 7 );
   std::vector< Ptr< Timer > > made;
   for( int i : order ) {
      made.push_back( timer( i ) );
   }
   for( int round = 0; round < rounds; ++round ) {
      std::shuffle( order.begin(), order.end(), random );
      for( int i : order ) {
         made[i]->timeMinIs( Seconds( far + i ) );
      }
   }
   EXPECT_EQ( run(), std::vector< int >() );
   for( int i : order ) {
      made[i]->timeMinIs( Seconds( past + i / double( many ) ) );
   }
   EXPECT_EQ( run(), numbers( many ) );
}
