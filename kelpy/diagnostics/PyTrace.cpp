#include <kelpy/diagnostics/PyTrace.h>

#include <cerrno>
#include <utility>

#include <kel/Lock.h>
#include <kel/RefCount.h>
#include <kel/TraceFacility.h>
#include <kelpy/core/PyLock.h>
#include <kelpy/core/PyMarshal.h>
#include <kelpy/objects/PyGenericIf.h>
#include <kelpy/objects/PyStage.h>

namespace {

// The activity lock around a trace call. With atomic smart pointers it takes nothing; a lock that
// the thread owned before stays held.
class TraceLock {
 public:
   TraceLock() {
      if( Kel::VFPtrInterface::threadSafePointers() ) {
         return;
      }
      int const error = pthread_mutex_lock( Kel::activityLock()->mutex() );
      if( error != 0 && error != EDEADLK ) {
         Kel::Lock::throwFailedLock( error );
      }
      taken_ = error == 0;
   }
   TraceLock( TraceLock const& ) = delete;
   TraceLock& operator=( TraceLock const& ) = delete;
   ~TraceLock() { unlock(); }

   // Ends it early, to hear of a failure.
   void release() {
      if( int const error = unlock() ) {
         Kel::Lock::throwFailedUnlock( error );
      }
   }

 private:
   int unlock() noexcept {
      return std::exchange( taken_, false ) ? pthread_mutex_unlock( Kel::activityLock()->mutex() )
                                            : 0;
   }

   bool taken_ = false;
};

// The text of an argument of format "s#"; its bytes stay those of the Python object.
struct Text {
   char const* bytes = nullptr;
   Py_ssize_t length = 0;
};

// Calls `write` with a copy of the message, which is made and dropped with the GIL held.
template< class Write >
PyObject* traced( Text const& message, Write write ) {
   return guarded( Stage( NoSubject(), "" ), noObject, [&] {
      Kel::String text( message.bytes, static_cast< std::size_t >( message.length ) );
      Kel::GilUnlockAnchor gil;
      TraceLock lock;
      write( std::move( text ) );
      lock.release();
      gil.gilHeldIs( true );
      Py_RETURN_NONE;
   } );
}

constexpr auto toFacility = &Convert_To_PtrInterface_Or_Null< Kel::TraceFacility >;

} // namespace

PyObject* trace_h( PyObject*, PyObject* args ) {
   Kel::TraceFacility* facility = nullptr;
   char const *file = nullptr, *function = nullptr;
   int line = 0, level = 0;
   Text message;
   if( !PyArg_ParseTuple( args, "O&siss#i:trace_h", toFacility, &facility, &file, &line, &function,
          &message.bytes, &message.length, &level ) ) {
      return nullptr;
   }
   return traced( message, [&]( Kel::String text ) {
      Kel::trace_h( facility, file, line, function, std::move( text ), level );
   } );
}

PyObject* trace_ht( PyObject*, PyObject* args ) {
   Kel::TraceFacility* facility = nullptr;
   char const *tag = nullptr, *file = nullptr, *function = nullptr;
   int line = 0, level = 0;
   Text message;
   if( !PyArg_ParseTuple( args, "O&ssiss#i:trace_ht", toFacility, &facility, &tag, &file, &line,
          &function, &message.bytes, &message.length, &level ) ) {
      return nullptr;
   }
   return traced( message, [&]( Kel::String text ) {
      Kel::trace_ht( facility, tag, file, line, function, std::move( text ), level );
   } );
}

PyObject* traceLineSuppressed( PyObject*, PyObject* args ) {
   Kel::TraceFacility* facility = nullptr;
   int level = 0;
   if( !PyArg_ParseTuple( args, "O&i:traceLineSuppressed", toFacility, &facility, &level ) ) {
      return nullptr;
   }
   return guarded( Stage( NoSubject(), "" ), noObject,
      [&] { return PyBool_FromLong( Kel::traceLineSuppressed( facility, level ) ); } );
}

PyObject* traceTagSuppressed( PyObject*, PyObject* args ) {
   Kel::TraceFacility* facility = nullptr;
   char const* tag = nullptr;
   if( !PyArg_ParseTuple( args, "O&s:traceTagSuppressed", toFacility, &facility, &tag ) ) {
      return nullptr;
   }
   return guarded( Stage( NoSubject(), "" ), noObject,
      [&] { return PyBool_FromLong( Kel::traceTagSuppressed( facility, tag ) ); } );
}

PyObject* escapedTraceString( PyObject*, PyObject* args ) {
   Text text;
   if( !PyArg_ParseTuple( args, "s#:escapedTraceString", &text.bytes, &text.length ) ) {
      return nullptr;
   }
   return underLocks( Kel::flags4, Stage( NoSubject(), "" ), noObject, [&]( Kel::PyLockAnchor& ) {
      auto const length = static_cast< unsigned >( text.length );
      return PyStr_FromKelString( Kel::String( Kel::escapedTraceString( text.bytes, length ) ) );
   } );
}
