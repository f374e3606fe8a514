#include <kel/Watchdog.h>

#include <signal.h>
#include <time.h>

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>

#include <kel/Exception.h>
#include <kel/Fork.h>
#include <kel/Lock.h>
#include <kel/Schema.h>

#include "LockReport.h"
#include "ThreadStack.h"

namespace Kel {

namespace {

using Impl::Time;
using Clock = std::chrono::steady_clock;

constexpr double longest = 1e9; // seconds; a thread can wait for no more

// What the thread and those who set it share. It lives as long as the process, since the thread
// does.
class Wish {
 public:
   double seconds() {
      std::lock_guard const locked( mutex_ );
      return seconds_;
   }

   void secondsIs( double seconds ) {
      std::lock_guard const locked( mutex_ );
      seconds_ = seconds;
      changed_.notify_all();
   }

   // The time that is wanted, as soon as one is.
   Time waitForSome() {
      std::unique_lock locked( mutex_ );
      changed_.wait( locked, [this] { return seconds_ > 0; } );
      return Time( seconds_ );
   }

   // Returns early where the wish changes.
   void pause( Time time ) {
      std::unique_lock locked( mutex_ );
      changed_.wait_for( locked, time, [this, before = seconds_] { return seconds_ != before; } );
   }

 private:
   std::mutex mutex_;
   std::condition_variable changed_;
   double seconds_ = 0;
};

// Null until the watchdog is wanted for the first time. Activity lock.
constinit Wish* wish = nullptr;

// Waits in a line with others, for so long.
bool lockCanBeHad( Time limit ) {
   timespec until = {};
   clock_gettime( CLOCK_REALTIME, &until );
   auto const nanoseconds = until.tv_nsec + std::lround( limit.count() * 1e9 );
   until.tv_sec += nanoseconds / 1'000'000'000;
   until.tv_nsec = nanoseconds % 1'000'000'000;
   if( pthread_mutex_timedlock( activityLock()->mutex(), &until ) != 0 ) {
      return false;
   }
   pthread_mutex_unlock( activityLock()->mutex() );
   return true;
}

// Looks at the owner from time to time, which costs nobody anything. Where that has been the same
// thread for half of the time, it may have given the lock up in between: the watchdog waits for it,
// then, and tells only of what kept it waiting as well.
class Watch {
 public:
   void look( Time limit ) {
      pid_t const owner = activityLock()->ownerThread();
      if( owner != owner_ ) {
         ownerIs( owner );
      } else if( owner_ != 0 && !told_ && held() >= limit ) {
         Impl::reportHolder( owner_, held() );
         told_ = true;
      }
   }

   bool suspects( Time limit ) const { return owner_ != 0 && held() >= limit / 2; }

   void waitForLock( Time limit ) {
      if( lockCanBeHad( limit ) ) {
         ownerIs( 0 );
      }
   }

   // Time in which the process as a whole did not run, say for a SIGSTOP, is no one's fault.
   void stepTook( Time time, Time planned ) {
      if( time > 2 * planned ) {
         since_ += std::chrono::duration_cast< Clock::duration >( time - planned );
      }
   }

   void ownerIs( pid_t owner ) {
      if( told_ ) {
         Impl::reportRelease( owner_, held() );
      }
      owner_ = owner;
      since_ = Clock::now();
      told_ = false;
   }

 private:
   Time held() const { return Clock::now() - since_; }

   pid_t owner_ = 0;
   Clock::time_point since_;
   bool told_ = false;
};

[[noreturn]] void watch( Wish& wished ) {
   Watch watch;
   for( ;; ) {
      if( wished.seconds() == 0 ) {
         watch = Watch();
      }
      Time const limit = wished.waitForSome();
      Time const pause = std::clamp( limit / 8, Time( 0.001 ), Time( 1 ) );
      auto const begun = Clock::now();
      if( watch.suspects( limit ) ) {
         watch.waitForLock( pause );
      } else {
         wished.pause( pause );
      }
      watch.stepTook( Clock::now() - begun, pause );
      watch.look( limit );
   }
}

void startThread( Wish& wished ) {
   // No handler runs on the thread: it is not the one to be interrupted.
   sigset_t all, kept;
   sigfillset( &all );
   pthread_sigmask( SIG_SETMASK, &all, &kept );
   int error = 0;
   try {
      std::thread( [&wished] {
         pthread_setname_np( pthread_self(), "watchdog" );
         watch( wished );
      } ).detach();
   } catch( std::system_error const& failure ) {
      error = failure.code().value();
   }
   pthread_sigmask( SIG_SETMASK, &kept, nullptr );
   if( error != 0 ) {
      throw ErrnoException( error, "cannot start the watchdog" );
   }
}

// The thread is the parent's.
void forgetWatchdog() {
   wish = nullptr;
}

Wish* newWish() {
   static bool const forks = [] {
      registerAtForkHandler( nullptr, nullptr, forgetWatchdog, 10 );
      return true;
   }();
   static_cast< void >( forks );
   Impl::takeStackSignal();
   auto* const made = new Wish;
   startThread( *made );
   return made;
}

} // namespace

Watchdog::Watchdog() : Entity( String( "watchdog" ) ) {}

Watchdog* Watchdog::instance() {
   static Watchdog* const watchdog = [] {
      auto made = newObject< Watchdog >();
      Entity::singletonIs( made );
      return made.get();
   }();
   return watchdog;
}

Seconds Watchdog::seconds() const {
   return Seconds( wish ? wish->seconds() : 0 );
}

void Watchdog::secondsIs( Seconds seconds ) {
   if( !( seconds.value() >= 0 && seconds.value() <= longest ) ) {
      throw RangeException( "a watchdog waits for a time from 0 to 1e9 seconds" );
   }
   if( !wish && seconds.value() > 0 ) {
      wish = newWish();
   }
   if( wish ) {
      wish->secondsIs( seconds.value() );
   }
}

KEL_UNIT( _Watchdog_7c2e90d5_kelModule,
   entity< Watchdog, Entity >(
      notMade, attr< &Watchdog::seconds, &Watchdog::secondsIs >( "seconds" ) ) )

namespace {
[[maybe_unused]] bool const watchdogExistsFromLoad = Watchdog::instance() != nullptr;
} // namespace

} // namespace Kel
