#include <kel/Fork.h>

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <memory>
#include <vector>

#include <kel/Assert.h>
#include <kel/Exception.h>
#include <kel/Lock.h>

namespace Kel {

namespace {

struct Handlers {
   AtForkHandler prepare;
   AtForkHandler parent;
   AtForkHandler child;
   unsigned priority;
};

// From the lowest priority to the highest. Immutable: a registration publishes a new table, which
// keeps the one before alive for forks under way.
struct HandlerTable {
   std::vector< Handlers > handlers;
   std::unique_ptr< HandlerTable const > before;
};

constinit std::atomic< HandlerTable const* > handlerTable{ nullptr };
constinit std::atomic< bool > initialized{ false };

// What this thread has arranged for its next fork, and the fork under way.
struct ForkState {
   bool grabbed;  // the activity lock was taken for the fork
   bool skip;     // the next fork leaves the lock alone
   bool ownsLock; // the thread itself owned the lock when the fork began
   HandlerTable const* table;
};

constinit thread_local ForkState forkState{};

bool ownsActivityLock() {
   return activityLock()->ownerThread() == Impl::gettid();
}

// True if this call took the lock, false if the thread had it.
bool takeActivityLock() {
   int const error = pthread_mutex_lock( activityLock()->mutex() );
   if( error != 0 && error != EDEADLK ) {
      Lock::throwFailedLock( error );
   }
   return error == 0;
}

void prepareLock( ForkState& state ) {
   // A lock grabbed for a fork that never came may have been released since.
   state.grabbed = state.grabbed && ownsActivityLock();
   if( !state.grabbed && !state.skip ) {
      state.grabbed = takeActivityLock();
   }
   state.ownsLock = !state.grabbed && ownsActivityLock();
}

void prepareFork() noexcept {
   ForkState& state = forkState;
   state.table = handlerTable.load( std::memory_order_acquire );
   if( state.table ) {
      auto const& handlers = state.table->handlers;
      std::for_each( handlers.rbegin(), handlers.rend(), []( Handlers const& each ) {
         if( each.prepare ) {
            each.prepare();
         }
      } );
   }
   prepareLock( state );
}

void runAfterFork( ForkState& state, AtForkHandler Handlers::*which ) {
   HandlerTable const* table = state.table;
   state = {};
   if( table ) {
      for( Handlers const& each : table->handlers ) {
         if( AtForkHandler handler = each.*which ) {
            handler();
         }
      }
   }
}

void afterForkInParent() noexcept {
   ForkState& state = forkState;
   if( state.grabbed ) {
      int const unlockError = pthread_mutex_unlock( activityLock()->mutex() );
      KEL_ASSERT( unlockError == 0 );
   }
   runAfterFork( state, &Handlers::parent );
}

void afterForkInChild() noexcept {
   Impl::forgetThreadId();
   ForkState& state = forkState;
   activityLock()->resetAfterFork( state.ownsLock );
   runAfterFork( state, &Handlers::child );
}

} // namespace

void initializeAtForkHandler() {
   if( initialized.exchange( true ) ) {
      return;
   }
   if( int const error = pthread_atfork( prepareFork, afterForkInParent, afterForkInChild ) ) {
      initialized = false;
      throw ErrnoException( error, "cannot register fork handlers" );
   }
}

void registerAtForkHandler(
   AtForkHandler prepare, AtForkHandler parent, AtForkHandler child, unsigned priority ) {
   initializeAtForkHandler();
   auto const isBelow = []( unsigned wanted, Handlers const& each ) {
      return wanted < each.priority;
   };
   HandlerTable const* present = handlerTable.load( std::memory_order_acquire );
   for( ;; ) {
      auto next = std::make_unique< HandlerTable >();
      if( present ) {
         next->handlers = present->handlers;
      }
      auto& handlers = next->handlers;
      handlers.insert( std::upper_bound( handlers.begin(), handlers.end(), priority, isBelow ),
         Handlers{ prepare, parent, child, priority } );
      next->before.reset( present );
      if( handlerTable.compare_exchange_strong( present, next.get(), std::memory_order_acq_rel ) ) {
         static_cast< void >( next.release() ); // the table has it
         return;
      }
      static_cast< void >( next->before.release() ); // the table that stands has it
   }
}

void grabActivityLockBeforeFork() {
   ForkState& state = forkState;
   if( state.grabbed && ownsActivityLock() ) {
      return;
   }
   state.grabbed = takeActivityLock();
}

void skipActivityLockForNextFork() noexcept {
   forkState.skip = true;
}

} // namespace Kel
