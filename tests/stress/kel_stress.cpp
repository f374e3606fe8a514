// kel_stress: the part in C++ of the stress test. GIL.
#include <kelpy/core/PyPython.h>

#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include <kel/Lock.h>
#include <kelpy/core/PyLock.h>
#include <kelpy/core/PyRef.h>
#include <kelpy/objects/PyGenericIf.h>
#include <kelpy/objects/PyStage.h>

#include "Ledger.h"
#include "NativeThreads.h"
#include "Stacks.h"
#include "Watchdog.h"

namespace {

using Kel::activityLock;
using Kel::Ptr;
using Kel::PtrInterface;

// The permanent notifiees of the runtime's own kind. Activity lock.
std::vector< Ptr< Stress::Recorder > > recorders;

bool ownsLock() {
   return activityLock()->ownerThread() == Kel::Impl::gettid();
}

// The object behind a wrapper. Activity lock.
PtrInterface* objectOf( PyObject* wrapper ) {
   return PyGenericIfToGenericIf( reinterpret_cast< PyGenericIf* >( wrapper ) )->ptrInterface();
}

template< class T >
Ptr< T > objectAs( PyObject* wrapper ) {
   auto* const object = dynamic_cast< T* >( objectOf( wrapper ) );
   if( !object ) {
      Kel::throwWrongType( Kel::kelType< T >(), nullptr );
   }
   return object;
}

// Runs the body under the activity lock and without the GIL.
template< class Body >
PyObject* inRuntime( Body body ) {
   return underLocks(
      Kel::flags0, Stage( NoSubject(), "" ), noObject, [&]( Kel::PyLockAnchor& locks ) {
         body();
         locks.gilHeldIs( true );
         Py_RETURN_NONE;
      } );
}

PyObject* textList( std::vector< std::string > const& texts ) {
   PyRef list = PyRef::steal( PyList_New( 0 ) );
   for( std::string const& text : texts ) {
      PyRef const item = PyRef::steal( PyString_FromString( text.c_str() ) );
      if( !item || PyList_Append( list.get(), item.get() ) < 0 ) {
         return nullptr;
      }
   }
   return list.release();
}

PyObject* participant( PyObject*, PyObject* name ) {
   return PyInt_FromLong( Stress::newParticipant( PyString_AsString( name ) ) );
}

PyObject* step( PyObject*, PyObject* participant ) {
   Stress::stepMade( static_cast< int >( PyInt_AsLong( participant ) ) );
   Py_RETURN_NONE;
}

PyObject* done( PyObject*, PyObject* participant ) {
   Stress::participantDone( static_cast< int >( PyInt_AsLong( participant ) ) );
   Py_RETURN_NONE;
}

PyObject* watch( PyObject*, PyObject* seconds ) {
   Stress::startWatchdog( static_cast< unsigned >( PyInt_AsLong( seconds ) ) );
   Py_RETURN_NONE;
}

PyObject* unwatch( PyObject*, PyObject* ) {
   Stress::stopWatchdog();
   Py_RETURN_NONE;
}

PyObject* childDeadline( PyObject*, PyObject* seconds ) {
   Stress::childDeadlineIs(
      static_cast< unsigned >( PyInt_AsLong( seconds ) ), Stress::childStatus );
   Py_RETURN_NONE;
}

// note( wrapper, attribute, key ). The caller holds the activity lock since before the change.
PyObject* note( PyObject*, PyObject* args ) {
   PyObject* wrapper = nullptr;
   char const *attribute = nullptr, *key = nullptr;
   if( !PyArg_ParseTuple( args, "Osz:note", &wrapper, &attribute, &key ) ) {
      return nullptr;
   }
   if( !ownsLock() ) {
      PyErr_SetString( PyExc_AssertionError, "a change is noted without the activity lock" );
      return nullptr;
   }
   return inRuntime( [&] { Stress::note( objectOf( wrapper ), attribute, key ? key : "" ); } );
}

// How many changes are noted of the object.
PyObject* notedCount( PyObject*, PyObject* wrapper ) {
   std::size_t count = 0;
   inRuntime( [&] { count = Stress::noted( objectOf( wrapper ) ).size(); } );
   return PyInt_FromSize_t( count );
}

// noted( wrapper, first, last ): a list of (attribute, key).
PyObject* noted( PyObject*, PyObject* args ) {
   PyObject* wrapper = nullptr;
   Py_ssize_t first = 0, last = 0;
   if( !PyArg_ParseTuple( args, "Onn:noted", &wrapper, &first, &last ) ) {
      return nullptr;
   }
   Stress::Changes changes;
   inRuntime( [&] {
      auto const begin = Stress::noted( objectOf( wrapper ) ).begin();
      changes.assign( begin + first, begin + last );
   } );
   PyRef list = PyRef::steal( PyList_New( 0 ) );
   for( Stress::Change const& change : changes ) {
      char const* const key = change.key.empty() ? nullptr : change.key.c_str();
      PyRef const pair = PyRef::steal( Py_BuildValue( "(sz)", change.attribute.c_str(), key ) );
      if( !pair || PyList_Append( list.get(), pair.get() ) < 0 ) {
         return nullptr;
      }
   }
   return list.release();
}

PyObject* forgetNoted( PyObject*, PyObject* ) {
   return inRuntime( Stress::forgetNoted );
}

// startNative( strict, loose, store, item, args, threads, steps, forks )
PyObject* startNative( PyObject*, PyObject* args ) {
   PyObject *strict = nullptr, *loose = nullptr, *store = nullptr, *item = nullptr,
            *shared = nullptr;
   int threads = 0, steps = 0, forks = 0;
   if( !PyArg_ParseTuple( args, "OOOOOiii:startNative", &strict, &loose, &store, &item, &shared,
          &threads, &steps, &forks ) ) {
      return nullptr;
   }
   return inRuntime( [&] {
      Stress::startNativeThreads(
         { objectAs< Odd::Notes >( strict ), objectAs< Odd::Notes >( loose ),
            objectAs< Acme::Store >( store ), objectAs< Acme::Item >( item ),
            objectAs< Odd::Args >( shared ) },
         threads, steps, forks );
   } );
}

PyObject* joinNative( PyObject*, PyObject* ) {
   std::vector< std::string > failures;
   {
      Kel::GilUnlockAnchor const gil;
      failures = Stress::joinNativeThreads();
   }
   return textList( failures );
}

PyObject* nativeForks( PyObject*, PyObject* ) {
   return PyInt_FromLong( Stress::nativeForks() );
}

PyObject* give( PyObject*, PyObject* wrapper ) {
   return inRuntime( [&] { Stress::give( objectOf( wrapper ) ); } );
}

PyObject* record( PyObject*, PyObject* wrapper ) {
   return inRuntime(
      [&] { recorders.push_back( Kel::newObject< Stress::Recorder >( objectOf( wrapper ) ) ); } );
}

// What the permanent notifiees missed; they go.
PyObject* recordFaults( PyObject*, PyObject* ) {
   std::vector< std::string > faults;
   inRuntime( [&] {
      for( auto const& recorder : recorders ) {
         if( std::string fault = recorder->fault( true ); !fault.empty() ) {
            faults.push_back( std::move( fault ) );
         }
      }
      recorders.clear();
   } );
   return textList( faults );
}

// Both from the preloaded library; None where it is not.
PyObject* watchLockOrder( PyObject*, PyObject* ) {
   auto const watch = reinterpret_cast< void ( * )( pthread_mutex_t* ) >(
      dlsym( RTLD_DEFAULT, "kel_lock_order_watch" ) );
   if( watch ) {
      watch( activityLock()->mutex() );
   }
   return PyBool_FromLong( watch != nullptr );
}

PyObject* lockOrderViolations( PyObject*, PyObject* ) {
   auto const violations =
      reinterpret_cast< int ( * )() >( dlsym( RTLD_DEFAULT, "kel_lock_order_violations" ) );
   return PyInt_FromLong( violations ? violations() : 0 );
}

// The longest that a thread has waited for the GIL, for the activity lock and for a processor, in
// seconds, and how often the lock was taken; zeros without the preloaded library.
PyObject* lockFigures( PyObject*, PyObject* ) {
   using Figure = long ( * )( int );
   auto const figure = []( char const* name, int lock ) {
      auto const function = reinterpret_cast< Figure >( dlsym( RTLD_DEFAULT, name ) );
      return function ? function( lock ) : 0;
   };
   auto const seconds = [figure]( int lock ) {
      return static_cast< double >( figure( "kel_lock_order_longest_wait", lock ) ) / 1e9;
   };
   return Py_BuildValue( "(dddl)", seconds( 0 ), seconds( 1 ), Stress::longestDelay(),
      figure( "kel_lock_order_times_taken", 1 ) );
}

PyObject* ownsActivityLock( PyObject*, PyObject* ) {
   return PyBool_FromLong( ownsLock() );
}

// Lets others go first, now and then: without this a thread runs for long before another gets a
// lock that it gives up only to take it again.
PyObject* dawdle( PyObject*, PyObject* ) {
   {
      Kel::GilUnlockAnchor const gil;
      Stress::dawdle();
   }
   Py_RETURN_NONE;
}

PyObject* sanitizer( PyObject*, PyObject* ) {
#if defined( __SANITIZE_THREAD__ )
   return PyString_FromString( "thread" );
#elif defined( __SANITIZE_ADDRESS__ )
   return PyString_FromString( "address" );
#else
   return PyString_FromString( "none" );
#endif
}

// Planted faults.

// Waits until another thread than this has the lock, with or without the GIL.
void awaitOtherOwner( std::atomic< pid_t > const& other ) {
   while( other == 0 || activityLock()->ownerThread() != other ) {
      usleep( 1000 );
   }
}

// A thread of no use takes the lock and keeps it.
PyObject* keepLockForEver( PyObject*, PyObject* ) {
   static std::atomic< pid_t > keeper;
   std::thread( [] {
      Stress::threadNameIs( "keeper" );
      keeper = ::gettid();
      pthread_mutex_lock( activityLock()->mutex() );
      for( ;; ) {
         pause();
      }
   } ).detach();
   {
      Kel::GilUnlockAnchor const gil;
      awaitOtherOwner( keeper );
   }
   Py_RETURN_NONE;
}

// Wants the lock with the GIL held while another thread wants the GIL with the lock held.
PyObject* invertLocks( PyObject*, PyObject* ) {
   static std::atomic< pid_t > owner;
   std::thread( [] {
      Stress::threadNameIs( "inverter" );
      owner = ::gettid();
      pthread_mutex_lock( activityLock()->mutex() );
      PyGILState_Ensure();
   } ).detach();
   awaitOtherOwner( owner );
   pthread_mutex_lock( activityLock()->mutex() );
   Py_RETURN_NONE;
}

// Against the order of the locks.
PyObject* lockWithGil( PyObject*, PyObject* ) {
   pthread_mutex_lock( activityLock()->mutex() );
   pthread_mutex_unlock( activityLock()->mutex() );
   Py_RETURN_NONE;
}

PyObject* setActive( PyObject*, PyObject* args ) {
   PyObject* wrapper = nullptr;
   int active = 0;
   if( !PyArg_ParseTuple( args, "Oi:setActive", &wrapper, &active ) ) {
      return nullptr;
   }
   return inRuntime( [&] { objectOf( wrapper )->hasNotificationActiveIs( active ); } );
}

// Threads that copy a pointer without the lock.
PyObject* copyWithoutLock( PyObject*, PyObject* wrapper ) {
   return inRuntime( [&] {
      Ptr< PtrInterface > const object = objectOf( wrapper );
      auto const copy = [&object] {
         for( int i = 0; i < 1000; ++i ) {
            Ptr< PtrInterface > const one = object;
         }
      };
      std::thread one( copy );
      std::thread other( copy );
      one.join();
      other.join();
   } );
}

constinit PyMethodDef functions[] = {
   { "participant", participant, METH_O, "A number for one who makes steps." },
   { "step", step, METH_O, "One more step of that participant." },
   { "done", done, METH_O, "That participant makes no more steps." },
   { "watch", watch, METH_O, "Ends the process if a participant is stuck for so many seconds." },
   { "unwatch", unwatch, METH_NOARGS, "Ends the watch." },
   { "childDeadline", childDeadline, METH_O, "Ends this forked child after so many seconds." },
   { "note", note, METH_VARARGS, "Notes a change." },
   { "notedCount", notedCount, METH_O, "How many changes are noted of an object." },
   { "noted", noted, METH_VARARGS, "The changes noted of an object, from one to another." },
   { "forgetNoted", forgetNoted, METH_NOARGS, "Forgets what was noted." },
   { "startNative", startNative, METH_VARARGS, "Starts the native threads." },
   { "joinNative", joinNative, METH_NOARGS, "Waits for them; what went wrong there." },
   { "nativeForks", nativeForks, METH_NOARGS, "How often the native threads have forked." },
   { "give", give, METH_O, "Leaves a reference to the native threads." },
   { "record", record, METH_O, "Gives the object a native notifiee." },
   { "recordFaults", recordFaults, METH_NOARGS, "What those missed; they go." },
   { "watchLockOrder", watchLockOrder, METH_NOARGS, "Whether the order of the locks is watched." },
   { "lockOrderViolations", lockOrderViolations, METH_NOARGS, "How often it was not kept." },
   { "lockFigures", lockFigures, METH_NOARGS, "Longest waits, and how often the lock was taken." },
   { "ownsLock", ownsActivityLock, METH_NOARGS, "Whether this thread has the activity lock." },
   { "dawdle", dawdle, METH_NOARGS, "Lets others go first, now and then." },
   { "sanitizer", sanitizer, METH_NOARGS, "The sanitizer of this build." },
   { "keepLockForEver", keepLockForEver, METH_NOARGS, "Plants a deadlock." },
   { "invertLocks", invertLocks, METH_NOARGS, "Plants a deadlock of both locks." },
   { "lockWithGil", lockWithGil, METH_NOARGS, "Plants a lock taken against the order." },
   { "setActive", setActive, METH_VARARGS, "Makes a notifiee miss changes, or hear of them." },
   { "copyWithoutLock", copyWithoutLock, METH_O, "Plants a race." },
   {},
};

} // namespace

extern "C" __attribute__( ( visibility( "default" ) ) ) void initkel_stress() {
   Py_InitModule( "kel_stress", functions );
}
