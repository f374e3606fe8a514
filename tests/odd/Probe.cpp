#include <odd/Probe.h>

#include <dlfcn.h>

#include <kel/Lock.h>
#include <kel/Schema.h>

namespace Odd {

namespace {

void* symbol( char const* name ) {
   return dlsym( RTLD_DEFAULT, name );
}

} // namespace

// The interpreter keeps the state of the thread that holds the GIL in a global variable, null while
// nobody does. Only the thread's own state, which no other can put there, is looked for.
bool Probe::gilHeld() const {
   static auto* const current = static_cast< void** >( symbol( "_PyThreadState_Current" ) );
   static auto* const mine =
      reinterpret_cast< void* (*)() >( symbol( "PyGILState_GetThisThreadState" ) );
   if( !current || !mine ) {
      return false;
   }
   void* holder = __atomic_load_n( current, __ATOMIC_RELAXED );
   return holder && holder == mine();
}

bool Probe::activityLockHeld() const {
   return Kel::activityLock()->ownerThread() == Kel::Impl::gettid();
}

S64 Probe::thread() const {
   return Kel::Impl::gettid();
}

KEL_UNIT( _Odd_Probe_kelModule,
   pointer< Probe >( function< &Probe::gilHeld >( "gilHeld" ),
      function< &Probe::activityLockHeld >( "activityLockHeld" ),
      function< &Probe::thread >( "thread" ), attr< &Probe::gilHeld >( "gilOnRead" ),
      attr< &Probe::gilAtWrite, &Probe::gilOnWriteIs >( "gilOnWrite" ),
      attr< &Probe::gilAtWrite >( "gilAtWrite" ) ) )

} // namespace Odd
