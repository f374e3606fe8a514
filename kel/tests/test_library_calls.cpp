// What becomes of the runtime's work where the C library refuses a call, where a call is
// interrupted, and where another thread changes something within it.
#include "LibraryCalls.h"

#ifndef KEL_SANITIZED

#include <gtest/gtest.h>

#include <fcntl.h>
#include <malloc.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <thread>

#include <kel/Activity.h>
#include <kel/AllocTrack.h>
#include <kel/Backtrace.h>
#include <kel/CrashReport.h>
#include <kel/Exception.h>
#include <kel/Fork.h>
#include <kel/Notifiee.h>
#include <kel/Trace.h>

#include "ActivityHelp.h"
#include "ChildProcess.h"
#include "GenericHelp.h"
#include "TestUnit.h"

using namespace Kel;
using namespace Kel::Testing;
using namespace Unit;

namespace {

// Stops the loop at the first change.
class Stopper : public GenericIf::NotifieeConst {
 public:
   using GenericIf::NotifieeConst::NotifieeConst;
   void onAttribute( KelAttr, Ptr< GenericIf const > const& ) override {
      ++told;
      manager().stop();
   }

   int told = 0;
};

// A loop that waits on a thread of its own, where reads meet what is given.
class WaitingLoop {
 public:
   explicit WaitingLoop( std::function< int() > meet ) {
      {
         UnlockAnchor const unlocked( activityLock() );
         std::atomic< bool > begins = false;
         thread_ = std::thread( [this, &begins, meet = std::move( meet )] {
            LockAnchor const locked( activityLock() );
            begins = true;
            OnCall const reading( Call::read, meet );
            manager().run();
            reads_ = reading.met();
         } );
         while( !begins ) {
            std::this_thread::yield();
         }
      }
      manager().runUntilIdle(); // it waits by then
   }
   // The reads until it was stopped.
   unsigned ends() {
      UnlockAnchor const unlocked( activityLock() );
      thread_.join();
      return reads_;
   }

 private:
   std::thread thread_;
   unsigned reads_ = 0;
};

struct LibraryCalls : testing::Test {
   Locked locked;
   Ptr< Box > box = newObject< Box >( String( "box" ) );
   Ptr< Stopper > stopper = newObject< Stopper >( KelType::genericIf( box.get(), false ) );

   void change() { box->priceIs( { box->price().cents + 1 } ); }
   // Leaves nothing to read of what woke the loop of an earlier test.
   void readWhatIsLeft() {
      WaitingLoop loop( failing( 1000, EINTR ) );
      change();
      loop.ends();
      stopper->told = 0;
   }
};

[[gnu::noinline]] void writeTo( std::uintptr_t address ) {
   asm volatile( "" : "+r"( address ) ); // keeps the compilers from seeing the fault
   *reinterpret_cast< char volatile* >( address ) = 1;
}

bool contains( Outcome const& outcome, char const* text ) {
   return outcome.errors.find( text ) != std::string::npos;
}

void sayHook( int fd ) {
   [[maybe_unused]] auto const written = write( fd, "the hook\n", 9 );
}

} // namespace

TEST_F( LibraryCalls, that_are_interrupted_are_made_again_by_a_loop_and_by_those_who_wake_it ) {
   readWhatIsLeft();
   WaitingLoop loop( failing( 0, EINTR ) );
   OnCall const writing( Call::write, failing( 0, EINTR ) );
   errno = EBADMSG;
   change();
   EXPECT_EQ( errno, EBADMSG );
   EXPECT_EQ( writing.met(), 2u );
   EXPECT_EQ( loop.ends(), 2u );
   EXPECT_EQ( stopper->told, 1 );
}

TEST_F( LibraryCalls, that_are_refused_keep_no_loop_from_its_work ) {
   readWhatIsLeft();
   WaitingLoop loop( failing( 0, EAGAIN ) );
   {
      OnCall const writing( Call::write, failing( 0, EAGAIN ) );
      change();
      EXPECT_EQ( writing.met(), 1u ); // as if the descriptor were full, and the loop awake
   }
   change();
   EXPECT_EQ( loop.ends(), 1u );
   EXPECT_EQ( stopper->told, 1 );
   manager().runUntilIdle();
   EXPECT_EQ( stopper->told, 2 );
}

TEST_F( LibraryCalls, that_give_a_child_no_descriptor_leave_it_the_parents ) {
   OnCall const eventfd( Call::eventfd, failingAlways( EMFILE ) );
   auto const outcome = inChild( [this] {
      WaitingLoop loop( failing( 1000, EINTR ) );
      change();
      loop.ends();
      return stopper->told;
   } );
   EXPECT_EQ( outcome.exitCode(), 1 );
   EXPECT_EQ( eventfd.met(), 0u ); // here, but for the child
}

TEST_F( LibraryCalls, that_are_interrupted_lose_no_trace_line ) {
   auto const line = []( int error ) {
      return inChild( [error] {
         TraceHandle handle( "Calls", true );
         OnCall const writing( Call::write, failing( 0, error ) );
         TraceHelper( handle, trace0, "f.cpp", 7, "g" ).stream() << "the message";
         return static_cast< int >( writing.met() );
      } );
   };
   auto const interrupted = line( EINTR );
   EXPECT_EQ( interrupted.exitCode(), 2 );
   EXPECT_TRUE( interrupted.errors.ends_with( " Calls 0 f.cpp:7 g: the message\n" ) );
   auto const refused = line( ENOSPC );
   EXPECT_EQ( refused.exitCode(), 1 );
   EXPECT_EQ( refused.errors, "" );
}

TEST_F( LibraryCalls, that_find_no_stack_give_a_backtrace_without_frames ) {
   OnCall const looking( Call::backtrace, failingAlways( ENOMEM ) );
   auto const backtrace = Backtrace::capture();
   EXPECT_EQ( looking.met(), 1u );
   EXPECT_EQ( backtrace->frames(), 0u );
}

TEST_F( LibraryCalls, that_fault_inside_of_a_report_end_it_by_its_signal_without_a_hook ) {
   auto const outcome = inChild( [] {
      printBacktraceFn = nullptr;
      OnCall const looking( Call::backtrace, [] {
         writeTo( 0x123 );
         return 0;
      } );
      raise( SIGFPE );
      return 0;
   } );
   EXPECT_TRUE( outcome.killedBy( SIGFPE ) ) << outcome.status;
   EXPECT_TRUE( contains( outcome, "fatal signal 8 (SIGFPE)" ) );
   EXPECT_FALSE( contains( outcome, "SIGSEGV" ) );
}

TEST_F( LibraryCalls, that_give_a_report_no_timer_leave_it_complete ) {
   auto const outcome = inChild( [] {
      printBacktraceFn = sayHook;
      OnCall const timer( Call::timerCreate, failingAlways( EAGAIN ) );
      raise( SIGFPE );
      return 0;
   } );
   EXPECT_TRUE( outcome.killedBy( SIGFPE ) ) << outcome.status;
   EXPECT_TRUE( contains( outcome, "the hook\n" ) );
}

// The one that reports hangs, and the other's patience is over at once.
TEST_F( LibraryCalls, a_thread_that_crashes_waits_for_a_report_that_hangs_no_longer_than_it_may ) {
   auto const outcome = inChild( [] {
      static std::atomic< bool > reports = false;
      printBacktraceFn = []( int ) {
         reports = true;
         for( ;; ) {
            pause();
         }
      };
      std::thread first( [] { raise( SIGFPE ); } );
      std::thread second( [] {
         while( !reports ) {
            std::this_thread::yield();
         }
         OnCall const sleeping( Call::nanosleep, failingAlways( EINTR ) );
         raise( SIGBUS );
      } );
      first.join();
      second.join();
      return 0;
   } );
   EXPECT_TRUE( outcome.killedBy( SIGBUS ) ) << outcome.status;
   EXPECT_FALSE( contains( outcome, "(SIGBUS)" ) );
}

// Of a thread that asks for a stack for its crashes: whether it has one, and whether it gets one
// when it asks again.
std::pair< bool, bool > stackWhen( Call call, unsigned number ) {
   std::pair< bool, bool > has;
   std::thread( [&] {
      auto const asks = [] {
         crashStackForThread();
         stack_t now{};
         sigaltstack( nullptr, &now );
         return !( now.ss_flags & SS_DISABLE );
      };
      {
         OnCall const refused( call, failing( number, ENOMEM ) );
         has.first = asks();
      }
      has.second = asks();
   } ).join();
   return has;
}

TEST_F( LibraryCalls, that_give_a_thread_no_stack_for_crashes_are_made_again_when_it_asks_again ) {
   auto const later = std::pair( false, true );
   EXPECT_EQ( stackWhen( Call::sigaltstack, 0 ), later );
   EXPECT_EQ( stackWhen( Call::sigaltstack, 1 ), later );
   EXPECT_EQ( stackWhen( Call::mmap, 0 ), later );
}

TEST_F( LibraryCalls, that_give_a_thread_no_stack_let_it_end ) {
   std::thread( [] {
      OnCall const refused( Call::mmap, failingAlways( ENOMEM ) );
      crashStackForThread();
      EXPECT_EQ( refused.met(), 1u );
   } ).join();
}

TEST_F( LibraryCalls, that_give_no_buckets_leave_a_collection_as_it_was ) {
   Map< U32, U32 > map;
   {
      OnCall const refused( Call::calloc, failing( 0, ENOMEM ) );
      EXPECT_THROW( map.set( 1, 2 ), MemoryException );
   }
   EXPECT_EQ( map.members(), 0u );
   EXPECT_EQ( map.find( 1 ), nullptr );
   map.set( 1, 2 );
   EXPECT_EQ( *map.find( 1 ), 2u );
}

TEST_F( LibraryCalls, that_give_no_memory_leave_an_entity_in_its_directory_or_free_to_come_again ) {
   auto const rack = newObject< Rack >( String( "rack" ) );
   auto const told = newObject< Stopper >( KelType::genericIf( rack.get(), false ) );
   unsigned failures = 0;
   for( bool failed = true; failed; ) {
      auto const entity = newObject< Box >( String( "member" ) );
      failed = false;
      {
         OnCall const memory( Call::malloc, failing( failures, ENOMEM ) );
         try {
            rack->entities().addMember( entity );
         } catch( MemoryException const& ) {
            failed = true;
         } catch( std::bad_alloc const& ) {
            failed = true;
         }
      }
      failures += failed;
      if( rack->entities().exist( "member" ) ) {
         EXPECT_EQ( entity->parent(), rack.get() );
      } else {
         EXPECT_EQ( entity->parent(), nullptr );
         rack->entities().addMember( entity );
      }
      EXPECT_TRUE( rack->entities().del( "member" ) );
   }
   EXPECT_GT( failures, 0u );
   manager().runUntilIdle();
}

TEST_F( LibraryCalls, that_give_no_memory_for_its_stack_leave_an_exception_without ) {
   std::thread( [] { // whose lists of free blocks are empty
      Exception::captureBacktracesIs( true );
      String const message( "a message" );
      OnCall const refused( Call::malloc, failingAlways( ENOMEM ) );
      RangeException const exception( message );
      Exception::captureBacktracesIs( false );
      EXPECT_GT( refused.met(), 0u );
      EXPECT_FALSE( exception.backtrace() );
      EXPECT_EQ( exception.message(), message );
   } )
      .join();
}

TEST_F( LibraryCalls, that_give_a_trace_line_no_memory_make_nothing_fail ) {
   auto const outcome = inChild( [] {
      TraceHandle handle( "Calls", true );
      EXPECT_TRUE( handle.levelOn( trace0 ) );
      std::optional< TraceHelper > helper;
      helper.emplace( handle, trace0, "f.cpp", 7, "g" );
      helper->stream() << "the message";
      OnCall const refused( Call::malloc, failingAlways( ENOMEM ) );
      helper.reset();
      return refused.met() > 0 ? 5 : 6;
   } );
   EXPECT_EQ( outcome.exitCode(), 5 );
   EXPECT_EQ( outcome.errors, "" );
}

// What another thread does between two steps, done within an allocation that stands there.

TEST_F( LibraryCalls, two_threads_at_the_first_allocation_of_a_type_make_one_record ) {
   AllocTrackTypeInfo* slot = nullptr;
   auto const track = [&slot] {
      AllocTrackTypeInfo::_trackAllocation( &slot, typeid( LibraryCalls ), 64, 8 );
   };
   AllocTrackTypeInfo* others = nullptr;
   {
      OnCall const meeting( Call::malloc, meanwhile( 0, [&] {
         track();
         others = slot;
      } ) );
      track();
   }
   ASSERT_NE( slot, nullptr );
   EXPECT_EQ( slot, others );
   EXPECT_EQ( slot->live(), 2u );
   auto const all = AllocTrackTypeInfo::all();
   EXPECT_EQ( std::count( all.begin(), all.end(), slot ), 1 );
   AllocTrackTypeInfo::trackDeallocation( slot );
   AllocTrackTypeInfo::trackDeallocation( slot );
}

TEST_F( LibraryCalls, two_threads_that_register_for_forks_are_both_told ) {
   auto const outcome = inChild( [] {
      static int told = 0;
      {
         OnCall const meeting( Call::malloc, meanwhile( 0, [] {
            registerAtForkHandler( [] { told += 1; }, nullptr, nullptr, 5 );
         } ) );
         registerAtForkHandler( [] { told += 10; }, nullptr, nullptr, 5 );
      }
      return inChild( [] { return told; } ).exitCode();
   } );
   EXPECT_EQ( outcome.exitCode(), 11 );
}

TEST_F( LibraryCalls, a_text_whose_other_owner_lets_go_as_it_grows_gives_its_memory_back ) {
   auto const used = [] {
      auto const info = mallinfo2();
      return info.uordblks + info.hblkhd;
   };
   std::string const long_( 100'000, 'x' );
   auto const before = used();
   {
      String text( long_ ), other( text );
      OnCall const meeting( Call::malloc, meanwhile( 0, [&other] { other = String(); } ) );
      text += "y";
      EXPECT_EQ( meeting.met(), 1u );
      EXPECT_TRUE( other.empty() );
      EXPECT_EQ( text, long_ + "y" );
   }
   EXPECT_EQ( used(), before );
}

namespace {

int openDescriptors() {
   int count = 0;
   for( int descriptor = 0; descriptor < 256; ++descriptor ) {
      count += fcntl( descriptor, F_GETFD ) >= 0;
   }
   return count;
}

// In a process of its own, for the file is opened once.
[[noreturn]] void readConfigurationTwice() {
   TraceHandle one( "One", true ), other( "Other", true );
   int const before = openDescriptors();
   bool shown = false;
   {
      OnCall const meeting(
         Call::malloc, meanwhile( 0, [&] { shown = other.levelOn( trace0 ); } ) );
      shown = one.levelOn( trace0 ) && shown;
   }
   _exit( shown ? openDescriptors() - before : 8 );
}

} // namespace

TEST( TraceConfiguration, readByTwoThreadsAtOnceOpensItsFileOnce ) {
   GTEST_FLAG_SET( death_test_style, "threadsafe" );
   setenv( "KEL_TRACE", "", 1 );
   setenv( "KEL_TRACE_FILE", "/dev/null", 1 );
   EXPECT_EXIT( readConfigurationTwice(), testing::ExitedWithCode( 1 ), "^$" );
   setenv( "KEL_TRACE_FILE", "", 1 ); // standard error stays open
   EXPECT_EXIT( readConfigurationTwice(), testing::ExitedWithCode( 0 ), "^$" );
   unsetenv( "KEL_TRACE" );
   unsetenv( "KEL_TRACE_FILE" );
}

#endif
