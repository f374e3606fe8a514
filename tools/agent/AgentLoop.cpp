#include <kelpy/core/PyLock.h>

#include "AgentLoop.h"

#include <time.h>

#include <optional>

#include <kel/Activity.h>
#include <kel/Clock.h>
#include <kel/Exception.h>
#include <kel/System.h>

#include "../common/CommandLine.h"
#include "EndSignals.h"
#include "Watcher.h"

namespace {

// It lives as long as the process. Set before anybody asks for it.
Kel::ActivityManager* manager = nullptr;

// What a handler of a signal in Python has ended the agent with. Main thread.
std::optional< int > handlerStatus;

// Called by the loop to let Python handle its signals: the main thread runs no Python otherwise, so
// that a signal would wait for the next change that a Python function reacts to.
class SignalTurn : public Kel::Clock::NotifieeConst {
 public:
   SignalTurn() { notifierIs( Kel::Clock::instance() ); }

   void onAttribute( Kel::AttributeId, void const* ) override {
      if( !handleSignals() ) {
         stopLoop();
      }
   }

 private:
   // Does nothing where the loop runs on another thread than the main one.
   static bool handleSignals() {
      Kel::UnlockAnchor const unlocked( Kel::activityLock() );
      Kel::GilAnchor const gil;
      if( PyErr_CheckSignals() == 0 ) {
         return true;
      }
      handlerStatus = statusOfInterruption();
      return false;
   }
};

// Made before the watcher may ask for it, and kept for good. Activity lock.
SignalTurn* signalTurn = nullptr;

void prepareLoop() {
   Kel::GilUnlockAnchor const gil;
   Kel::LockAnchor const locked( Kel::activityLock() );
   manager = static_cast< Kel::ActivityManager* >(
      Kel::Entity::singleton( "Kel::ActivityManager" ).get() );
   signalTurn = Kel::newObject< SignalTurn >().release();
}

bool loopRuns() {
   Kel::GilUnlockAnchor const gil;
   Kel::LockAnchor const locked( Kel::activityLock() );
   return manager->isRunning();
}

// The loop is on another thread; this one is there for signals.
void waitForLoop() {
   constexpr timespec pause = { 0, 50'000'000 };
   while( loopRuns() ) {
      {
         Kel::GilUnlockAnchor const gil;
         nanosleep( &pause, nullptr );
      }
      if( PyErr_CheckSignals() < 0 ) {
         handlerStatus = statusOfInterruption();
         Kel::GilUnlockAnchor const gil;
         manager->stop();
      }
   }
}

void runLoop() {
   Kel::GilUnlockAnchor const gil;
   manager->run();
}

} // namespace

int serveLoop() {
   prepareLoop();
   watcherServesLoopIs( true );
   if( !letSignalsEndTheLoop() ) {
      return statusOfInterruption();
   }
   try {
      if( loopRuns() ) {
         waitForLoop();
      } else {
         runLoop();
      }
   } catch( Kel::Exception const& exception ) {
      return complain( "kel-agent", exception.message().stdString(), 1 );
   }
   watcherServesLoopIs( false );
   return handlerStatus.value_or( 0 );
}

void stopLoop() {
   manager->stop();
}

void letPythonHandleSignals() {
   signalTurn->timeMinIs( Kel::System::currentTime() );
}
