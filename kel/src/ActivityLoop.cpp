#include <kel/ActivityLoop.h>

#include <cerrno>
#include <cmath>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <kel/Activity.h>
#include <kel/Assert.h>
#include <kel/CrashReport.h>
#include <kel/Exception.h>
#include <kel/Fork.h>
#include <kel/Lock.h>
#include <kel/Notifiee.h>
#include <kel/System.h>

namespace Kel {

void TimerQueue::add( Clock::NotifieeConst* timer ) {
   timer->order_ = ++lastOrder_;
   timers_.insert( { timer->timeMin().value(), timer->order_, timer } );
}

void TimerQueue::remove( Clock::NotifieeConst* timer ) {
   if( timer->order_ ) {
      timers_.erase( { timer->timeMin().value(), timer->order_, timer } );
      timer->order_ = 0;
   }
}

Clock::NotifieeConst* TimerQueue::due( double now ) const {
   return !timers_.empty() && timers_.begin()->time <= now ? timers_.begin()->timer : nullptr;
}

// Never destroyed: objects that end at the end of the process still look in here.
ActivityLoop& ActivityLoop::instance() {
   static auto* const loop = new ActivityLoop();
   return *loop;
}

ActivityLoop::ActivityLoop() : wakeDescriptor_( eventfd( 0, EFD_CLOEXEC | EFD_NONBLOCK ) ) {
   KEL_ASSERT( wakeDescriptor_ >= 0 );
   initializeAtForkHandler();
   registerAtForkHandler( nullptr, nullptr, afterForkInChild, 0 );
}

void ActivityLoop::queueChange(
   PtrInterface const* notifier, AttributeId attribute, Ptr< GenericIf const > key ) {
   changes_.push_back(
      { ++lastChange_, Ptr< PtrInterface const >( notifier ), attribute, std::move( key ) } );
   wake();
}

void ActivityLoop::queueZombie( PtrInterface const* notifier ) {
   queueChange( notifier, 0, nullptr );
}

void ActivityLoop::wake() noexcept {
   if( waiting_.load( std::memory_order_seq_cst ) ) {
      std::uint64_t one = 1;
      int kept = errno;
      while( ::write( wakeDescriptor_, &one, sizeof( one ) ) < 0 && errno == EINTR ) {
      }
      errno = kept;
   }
}

void ActivityLoop::deliver( Change const& change ) {
   auto* list = change.notifier->notifieeList();
   if( !list ) {
      return;
   }
   if( !change.attribute ) {
      list->deliverZombie( change.number );
   } else if( KelAttr attr = change.notifier->fwkType().attr( change.attribute ) ) {
      list->deliver( change.number, attr, change.key );
   }
}

void ActivityLoop::fire( Clock::NotifieeConst* timer ) {
   Ptr< Clock::NotifieeConst > kept( timer );
   timer->timeMinIs( Seconds( 0 ) );
   if( timer->isRegisteredNotifiee() && timer->hasNotificationActive() &&
       !timer->kelMarkedForDeletion() ) {
      timer->onAttribute( Clock::reachedTime, nullptr );
   }
}

bool ActivityLoop::isPending() const {
   return !changes_.empty() || timers_.due( System::currentTime().value() );
}

// One change or one due timer; false if nothing is pending. The changes of a round go first, since
// a timer may be armed for ever in the past; then comes one timer, since a reactor may change
// something each time that it is told. What they change belongs to the next round.
bool ActivityLoop::reactOnce() {
   if( changes_.empty() || changes_.front().number > roundEnd_ ) {
      auto* const timer = timers_.due( System::currentTime().value() );
      if( timer ) {
         fire( timer );
      }
      roundEnd_ = lastChange_;
      if( timer || changes_.empty() ) {
         return timer;
      }
   }
   Change const change = std::move( changes_.front() );
   changes_.pop_front();
   deliver( change );
   return true;
}

void ActivityLoop::enter() {
   if( running_ ) {
      throw InternalException( "the activity loop runs already" );
   }
   running_ = true;
   idle_ = false;
   roundEnd_ = lastChange_;
   loopThread_ = std::this_thread::get_id();
}

void ActivityLoop::leave() {
   running_ = false;
   idle_ = true;
   loopThread_ = {};
}

void ActivityLoop::loopUntilStopped() {
   struct Leave {
      ActivityLoop* loop;
      ~Leave() { loop->leave(); }
   } leave{ this };
   auto* config = ActivityFacility::activityManagerConfig();
   while( !stopWanted_ ) {
      if( reactOnce() ) {
         continue;
      }
      if( config->stopOnQuiesce() ) {
         break;
      }
      wait();
   }
   stopWanted_ = false;
}

// Gives the lock up until a change, a timer or a wish to stop. The flag goes up before the last
// look, so that a signal handler that comes between is not missed.
void ActivityLoop::wait() {
   waiting_.store( true, std::memory_order_seq_cst );
   idle_ = true;
   if( !ActivityFacility::activityManagerConfig()->stopOnQuiesce() && !stopWanted_ ) {
      timespec time{};
      timespec* limit = nullptr;
      if( !timers_.empty() ) {
         double left =
            std::max( 0.0, std::min( timers_.firstTime() - System::currentTime().value(), 1e9 ) );
         time.tv_sec = static_cast< time_t >( left );
         time.tv_nsec = static_cast< long >( ( left - std::floor( left ) ) * 1e9 );
         limit = &time;
      }
      UnlockAnchor unlocked( activityLock() );
      pollfd wake{ wakeDescriptor_, POLLIN, 0 };
      if( ::ppoll( &wake, 1, limit, nullptr ) > 0 ) {
         std::uint64_t count;
         while( ::read( wakeDescriptor_, &count, sizeof( count ) ) < 0 && errno == EINTR ) {
         }
      }
   }
   idle_ = false;
   roundEnd_ = lastChange_;
   waiting_.store( false, std::memory_order_seq_cst );
}

void ActivityLoop::run() {
   LockAnchor locked( activityLock() );
   joinOldThread();
   enter();
   loopUntilStopped();
}

void ActivityLoop::runUntilIdle() {
   LockAnchor locked( activityLock() );
   if( running_ && loopThread_ != std::this_thread::get_id() ) {
      waitForOtherLoop();
      return;
   }
   enter();
   struct Leave {
      ActivityLoop* loop;
      ~Leave() { loop->leave(); }
   } leave{ this };
   while( !stopWanted_ && reactOnce() ) {
   }
   stopWanted_ = false;
}

// The loop's own thread has the lock whenever it has work, so to see it idle once is enough.
void ActivityLoop::waitForOtherLoop() {
   while( running_ && ( !idle_ || isPending() ) ) {
      UnlockAnchor unlocked( activityLock() );
      timespec pause{ 0, 200'000 };
      ::nanosleep( &pause, nullptr );
   }
}

void ActivityLoop::stop() {
   LockAnchor locked( activityLock() );
   if( running_ ) {
      stopWanted_ = true;
      wake();
   }
}

void ActivityLoop::start() {
   LockAnchor locked( activityLock() );
   joinOldThread();
   enter();
   loopThread_ = {};
   try {
      ownThread_ = new std::thread( [this] {
         crashStackForThread();
         LockAnchor locked( activityLock() );
         loopThread_ = std::this_thread::get_id();
         loopUntilStopped();
      } );
   } catch( ... ) {
      leave();
      throw;
   }
}

// A thread whose loop has ended is joined by the next to run one; it needs no lock any more by
// then, except to let it go.
void ActivityLoop::joinOldThread() {
   if( ownThread_ && !running_ && ownThread_->get_id() != std::this_thread::get_id() ) {
      auto* thread = std::exchange( ownThread_, nullptr );
      UnlockAnchor unlocked( activityLock() );
      thread->join();
      delete thread;
   }
}

// The child has the forking thread alone: a loop that ran on another one is no more, in the middle
// of a delivery perhaps. Its thread object, also that of a loop that has ended, is left as it is,
// for there is nothing to join.
void ActivityLoop::afterForkInChild() {
   auto& loop = instance();
   auto const self = std::this_thread::get_id();
   loop.waiting_ = false;
   if( loop.running_ && loop.loopThread_ != self ) {
      loop.leave();
      loop.stopWanted_ = false;
      NotifieeList::forgetDeliveries();
   }
   if( loop.ownThread_ && loop.ownThread_->get_id() != self ) {
      loop.ownThread_ = nullptr;
   }
   // The eventfd is shared with the parent until now.
   int descriptor = eventfd( 0, EFD_CLOEXEC | EFD_NONBLOCK );
   if( descriptor >= 0 ) {
      ::close( loop.wakeDescriptor_ );
      loop.wakeDescriptor_ = descriptor;
   }
}

} // namespace Kel
