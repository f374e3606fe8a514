// Changes an item of the root directory from C++ and tells when it did so, for the figures of
// reactions: within the caller's thread, or on a thread that Python never saw.
#include <Python.h>

#include <atomic>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include <acme/Item.h>
#include <kel/Activity.h>
#include <kel/Dir.h>
#include <kel/Lock.h>
#include <kel/Notifiee.h>

namespace {

using Kel::Ptr;
using Stamps = std::vector< long >;

class GilReleased {
 public:
   GilReleased() : state_( PyEval_SaveThread() ) {}
   GilReleased( GilReleased const& ) = delete;
   GilReleased& operator=( GilReleased const& ) = delete;
   ~GilReleased() { PyEval_RestoreThread( state_ ); }

 private:
   PyThreadState* state_;
};

// The floor of a reaction: what the loop costs without Python.
class Counter : public Kel::GenericIf::NotifieeConst {
 public:
   using NotifieeConst::NotifieeConst;
   using NotifieeConst::onAttribute;
   void onAttribute( Kel::KelAttr, Ptr< Kel::GenericIf const > const& ) override { ++seen; }

   unsigned long seen = 0;
};

long nanoseconds() {
   timespec now = {};
   clock_gettime( CLOCK_MONOTONIC, &now );
   return now.tv_sec * 1'000'000'000L + now.tv_nsec;
}

// Activity lock.
Ptr< Acme::Item > itemOf( char const* name ) {
   auto* entity = Kel::Dir::root()->entityPtr( name ).get();
   return Ptr< Acme::Item >( dynamic_cast< Acme::Item* >( entity ) );
}

void change( Acme::Item& item ) {
   item.sizeIs( Acme::Size( item.size().value() + 1 ) );
}

void changeTimes( char const* name, int count ) {
   Kel::LockAnchor const locked( Kel::activityLock() );
   auto const item = itemOf( name );
   for( int i = 0; i < count; ++i ) {
      change( *item );
   }
}

PyObject* now( PyObject*, PyObject* ) {
   return PyInt_FromLong( nanoseconds() );
}

PyObject* changes( PyObject*, PyObject* args ) {
   char const* name;
   int count;
   if( !PyArg_ParseTuple( args, "si:changes", &name, &count ) ) {
      return nullptr;
   }
   {
      GilReleased const gil;
      changeTimes( name, count );
   }
   Py_RETURN_NONE;
}

// How long the delivery of so many changes to a reactor of C++ takes.
PyObject* nativeDelivery( PyObject*, PyObject* args ) {
   char const* name;
   int count;
   if( !PyArg_ParseTuple( args, "si:nativeDelivery", &name, &count ) ) {
      return nullptr;
   }
   long start = 0, end = 0;
   {
      GilReleased const gil;
      Kel::LockAnchor const locked( Kel::activityLock() );
      auto const counter =
         Kel::newObject< Counter >( Kel::KelType::genericIf( itemOf( name ).get(), false ) );
      changeTimes( name, count );
      auto manager = Kel::Entity::singleton( "Kel::ActivityManager" );
      start = nanoseconds();
      static_cast< Kel::ActivityManager* >( manager.get() )->runUntilIdle();
      end = nanoseconds();
   }
   return PyInt_FromLong( end - start );
}

std::thread beating;
Stamps stamps; // of the thread, until it has been joined

// Starts a thread that changes the item every so many microseconds.
PyObject* startBeats( PyObject*, PyObject* args ) {
   char const* name;
   int count, pause;
   if( !PyArg_ParseTuple( args, "sii:startBeats", &name, &count, &pause ) ) {
      return nullptr;
   }
   stamps.clear();
   beating = std::thread( [name = std::string( name ), count, pause] {
      timespec const time{ 0, pause * 1000L };
      for( int i = 0; i < count; ++i ) {
         nanosleep( &time, nullptr );
         Kel::LockAnchor const locked( Kel::activityLock() );
         stamps.push_back( nanoseconds() );
         change( *itemOf( name.c_str() ) );
      }
   } );
   Py_RETURN_NONE;
}

// Waits for that thread without the GIL. The times of its changes.
PyObject* joinBeats( PyObject*, PyObject* ) {
   {
      GilReleased const gil;
      beating.join();
   }
   PyObject* list = PyList_New( static_cast< Py_ssize_t >( stamps.size() ) );
   for( std::size_t i = 0; list && i < stamps.size(); ++i ) {
      PyList_SET_ITEM( list, static_cast< Py_ssize_t >( i ), PyInt_FromLong( stamps[i] ) );
   }
   return list;
}

std::thread busy;
std::atomic< bool > busyEnds;

// A thread that changes the item all the time, until it is stopped.
PyObject* startBusy( PyObject*, PyObject* args ) {
   char const* name;
   if( !PyArg_ParseTuple( args, "s:startBusy", &name ) ) {
      return nullptr;
   }
   busyEnds = false;
   busy = std::thread( [name = std::string( name )] {
      while( !busyEnds ) {
         Kel::LockAnchor const locked( Kel::activityLock() );
         change( *itemOf( name.c_str() ) );
      }
   } );
   Py_RETURN_NONE;
}

PyObject* stopBusy( PyObject*, PyObject* ) {
   {
      GilReleased const gil;
      busyEnds = true;
      busy.join();
   }
   Py_RETURN_NONE;
}

PyMethodDef functions[] = {
   { "now", now, METH_NOARGS, "Nanoseconds of the monotonic clock." },
   { "changes", changes, METH_VARARGS, "changes( name, count )" },
   { "nativeDelivery", nativeDelivery, METH_VARARGS, "nativeDelivery( name, count )" },
   { "startBeats", startBeats, METH_VARARGS, "startBeats( name, count, pause )" },
   { "joinBeats", joinBeats, METH_NOARGS, "joinBeats()" },
   { "startBusy", startBusy, METH_VARARGS, "startBusy( name )" },
   { "stopBusy", stopBusy, METH_NOARGS, "stopBusy()" },
   { nullptr, nullptr, 0, nullptr },
};

} // namespace

extern "C" __attribute__( ( visibility( "default" ) ) ) void initkel_reactions() {
   PyEval_InitThreads();
   Py_InitModule( "kel_reactions", functions );
}
