#include <kel/Activity.h>

#include <kel/ActivityLoop.h>
#include <kel/Schema.h>

namespace Kel {

namespace {

constinit ActivityManagerSm stateMachine;
// Set at load, before any signal handler can ask for it.
ActivityManagerConfig* const config = [] {
   auto config = newObject< ActivityManagerConfig >();
   Entity::singletonIs( config );
   Entity::singletonIs( newObject< ActivityManager >() );
   // Made now, so that the signal handler only writes to its descriptor.
   ActivityLoop::instance();
   return config.get();
}();

} // namespace

ActivityManagerSm* ActivityImplFacility::activityManagerSm() {
   return &stateMachine;
}

ActivityManagerConfig* ActivityFacility::activityManagerConfig() {
   return config;
}

ActivityManager::ActivityManager() : Entity( String( "activityManager" ) ) {}

void ActivityManager::run() {
   ActivityLoop::instance().run();
}
void ActivityManager::runUntilIdle() {
   ActivityLoop::instance().runUntilIdle();
}
void ActivityManager::stop() {
   ActivityLoop::instance().stop();
}
void ActivityManager::start() {
   ActivityLoop::instance().start();
}
bool ActivityManager::isRunning() const {
   return ActivityLoop::instance().isRunning();
}

ActivityManagerConfig::ActivityManagerConfig() : Entity( String( "activityManagerConfig" ) ) {}

void ActivityManagerConfig::stopOnQuiesceIs( bool stop ) {
   stopOnQuiesce_.store( stop, std::memory_order_seq_cst );
   if( stop ) {
      ActivityLoop::instance().wake();
   }
}

KEL_UNIT( _Activity_6d1c04e2_kelModule,
   entity< ActivityManager, Entity >( notMade, function< &ActivityManager::run >( "run" ),
      function< &ActivityManager::runUntilIdle >( "runUntilIdle" ),
      function< &ActivityManager::stop >( "stop" ), function< &ActivityManager::start >( "start" ),
      attr< &ActivityManager::isRunning >( "isRunning" ) ),
   entity< ActivityManagerConfig, Entity >( notMade,
      attr< &ActivityManagerConfig::stopOnQuiesce, &ActivityManagerConfig::stopOnQuiesceIs >(
         "stopOnQuiesce" ) ) )

} // namespace Kel
