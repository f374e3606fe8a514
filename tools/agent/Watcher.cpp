#include "Watcher.h"

#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <thread>

#include <kel/Lock.h>

#include "AgentLoop.h"
#include "Leavings.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds grace( 1000 );
constexpr milliseconds step( 50 );

constinit std::atomic< bool > servesLoop = false;
constinit std::atomic< Leavings const* > leavings = nullptr;

// Holds the activity lock for its lifetime, if it could be had soon.
class TimedLockAnchor {
 public:
   explicit TimedLockAnchor( milliseconds limit ) {
      timespec until = {};
      clock_gettime( CLOCK_REALTIME, &until );
      until.tv_nsec += limit.count() * 1'000'000;
      until.tv_sec += until.tv_nsec / 1'000'000'000;
      until.tv_nsec %= 1'000'000'000;
      held_ = pthread_mutex_timedlock( Kel::activityLock()->mutex(), &until ) == 0;
   }
   TimedLockAnchor( TimedLockAnchor const& ) = delete;
   TimedLockAnchor& operator=( TimedLockAnchor const& ) = delete;
   ~TimedLockAnchor() {
      if( held_ ) {
         pthread_mutex_unlock( Kel::activityLock()->mutex() );
      }
   }

   explicit operator bool() const { return held_; }

 private:
   bool held_ = false;
};

// Signals that come meanwhile are written to the pipe, which nobody reads any more.
[[noreturn]] void endAtOnce( int number ) {
   if( Leavings const* const known = leavings ) {
      known->remove();
   }
   _exit( 128 + number );
}

class Watcher {
 public:
   explicit Watcher( int pipe ) : pipe_( pipe ) {}

   [[noreturn]] void run() {
      for( ;; ) {
         wait();
         takeBytes();
         actOnLoop();
      }
   }

 private:
   bool stopIsDue() const { return askedAt_ && Clock::now() >= *askedAt_ + grace; }

   void wait() const {
      bool const waitsForTime = turnIsWanted_ || askedAt_;
      pollfd bytes{ pipe_, POLLIN, 0 };
      poll( &bytes, 1, waitsForTime ? static_cast< int >( step.count() ) : -1 );
   }

   void takeBytes() {
      char bytes[64];
      ssize_t const length = read( pipe_, bytes, sizeof( bytes ) );
      for( ssize_t i = 0; i < length; ++i ) {
         takeByte( bytes[i] );
      }
   }

   void takeByte( char byte ) {
      if( byte == 0 ) {
         turnIsWanted_ = servesLoop;
      } else if( !askedAt_ ) {
         askedAt_ = Clock::now();
      } else if( stopIsDue() ) {
         endAtOnce( byte );
      }
   }

   // The lock may be held for long; the next step tries again.
   void actOnLoop() {
      bool const stops = servesLoop && stopIsDue();
      if( !turnIsWanted_ && !stops ) {
         return;
      }
      TimedLockAnchor const locked( step );
      if( !locked ) {
         return;
      }
      if( turnIsWanted_ ) {
         letPythonHandleSignals();
         turnIsWanted_ = false;
      }
      if( stops ) {
         stopLoop();
      }
   }

   int const pipe_;
   std::optional< Clock::time_point > askedAt_;
   bool turnIsWanted_ = false;
};

} // namespace

int startWatcher() {
   int ends[2];
   if( pipe2( ends, O_CLOEXEC | O_NONBLOCK ) != 0 ) {
      return -1;
   }
   // No handler runs on the thread: it is not the one to be interrupted.
   sigset_t all;
   sigset_t kept;
   sigfillset( &all );
   pthread_sigmask( SIG_SETMASK, &all, &kept );
   std::thread( [pipe = ends[0]] { Watcher( pipe ).run(); } ).detach();
   pthread_sigmask( SIG_SETMASK, &kept, nullptr );
   return ends[1];
}

void watcherServesLoopIs( bool serves ) {
   servesLoop = serves;
}

void leavingsAre( std::string agentFile, std::string socket ) {
   leavings = new Leavings{ std::move( agentFile ), std::move( socket ) }; // for good
}
