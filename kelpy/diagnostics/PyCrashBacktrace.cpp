// Runs while the process crashes, perhaps in signal context and beside a thread that holds the
// GIL: fields of Python's objects are read where they lie.
#include <kelpy/diagnostics/PyBacktrace.h>

#include <frameobject.h>
#include <pythread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>

#include <kelpy/core/PyLock.h>
#include <kelpy/core/PyRef.h>

namespace {

constexpr char const* noText = "(failed to get exception error message)";

class CrashText {
 public:
   explicit CrashText( int fd ) : fd_( fd ) {}

   // What does not fit into the buffer is cut off.
   [[gnu::format( printf, 2, 3 )]] void write( char const* format, ... ) {
      va_list args;
      va_start( args, format );
      int const length = vsnprintf( buffer_, sizeof buffer_, format, args );
      va_end( args );
      if( length > 0 ) {
         auto const fits = std::min( static_cast< std::size_t >( length ), sizeof buffer_ - 1 );
         // Nobody is left to hear of a failure.
         [[maybe_unused]] auto const written = ::write( fd_, buffer_, fits );
      }
   }

 private:
   int fd_;
   char buffer_[2000];
};

char const* textOf( PyObject* str ) {
   return str && PyString_Check( str ) ? PyString_AS_STRING( str ) : "<unknown>";
}

bool isSet( PyObject* object ) {
   return object && object != Py_None;
}

void writeTraceback( CrashText& out, PyObject* traceback ) {
   out.write( "Current Python exception (most recent call LAST):\n" );
   if( Py_TYPE( traceback ) != &PyTraceBack_Type ) {
      out.write( "Internal error: PyThreadState contains an invalid traceback\n" );
      return;
   }
   for( auto* at = reinterpret_cast< PyTracebackObject* >( traceback ); at; at = at->tb_next ) {
      PyCodeObject const* const code = at->tb_frame->f_code;
      out.write( "  File \"%.500s\", line %d, in %.500s\n", textOf( code->co_filename ),
         at->tb_lineno, textOf( code->co_name ) );
   }
}

// An old-style class is no type and has no name to read.
char const* classNameOf( PyObject* cls ) {
   return cls && PyType_Check( cls ) ? reinterpret_cast< PyTypeObject* >( cls )->tp_name
                                     : "<unknown>";
}

// This thread's state, null if it never ran Python. Python's own way takes a lock, which a thread
// may hold that waits for the one that crashes; here the list of states is read as it lies.
PyThreadState const* stateOfThread() {
   if( Kel::Impl::anchoredState ) {
      return Kel::Impl::anchoredState;
   }
   // The first interpreter is the last of the list, and so is a thread's first state of its own.
   PyInterpreterState const* interpreter = PyInterpreterState_Head();
   while( interpreter && interpreter->next ) {
      interpreter = interpreter->next;
   }
   long const self = PyThread_get_thread_ident();
   PyThreadState const* found = nullptr;
   for( auto* state = interpreter ? interpreter->tstate_head : nullptr; state;
        state = state->next ) {
      found = state->thread_id == self ? state : found;
   }
   return found;
}

// What the text of the exception is without a call of Python: of one whose text is that of its only
// argument. Null for others.
PyObject* plainTextOf( PyObject* exception ) {
   auto const* const base = reinterpret_cast< PyTypeObject* >( PyExc_BaseException );
   if( Py_TYPE( exception )->tp_str != base->tp_str ) {
      return nullptr;
   }
   PyObject* const args = reinterpret_cast< PyBaseExceptionObject* >( exception )->args;
   bool const isOne = PyTuple_GET_SIZE( args ) == 1;
   return isOne && PyString_CheckExact( PyTuple_GET_ITEM( args, 0 ) ) ? PyTuple_GET_ITEM( args, 0 )
                                                                      : nullptr;
}

// Null if there is none to be had. Without the GIL, Python would work upon whatever thread has it.
PyRef textOfException( PyThreadState const* ts ) {
   if( ts != _PyThreadState_Current ) {
      return PyRef::borrow( plainTextOf( ts->exc_value ) );
   }
   return PyRef::steal( PyObject_Str( ts->exc_value ) );
}

void writeException( CrashText& out, PyThreadState const* ts ) {
   out.write( "%s: ", classNameOf( ts->exc_type ) );
   PyRef const str = textOfException( ts );
   char const* const text = str ? PyString_AsString( str.get() ) : nullptr;
   out.write( "%s", text ? text : noText );
   out.write( "\n" );
}

// The thread that tells of the exception that is being handled: the only step that runs Python
// code.
constinit std::atomic< pid_t > inHandled{ 0 };

// The exception that is being handled.
void writeHandled( CrashText& out, PyThreadState const* ts ) {
   inHandled = ::gettid();
   if( isSet( ts->exc_traceback ) ) {
      writeTraceback( out, ts->exc_traceback );
   }
   if( isSet( ts->exc_value ) ) {
      writeException( out, ts );
   }
   inHandled = 0;
}

void writeFrames( CrashText& out, PyFrameObject* frame ) {
   out.write( "\nPython traceback (most recent call FIRST):\n" );
   for( ; frame; frame = frame->f_back ) {
      PyCodeObject* const code = frame->f_code;
      out.write( "  File \"%s\", line %d, in %s\n", textOf( code->co_filename ),
         PyCode_Addr2Line( code, frame->f_lasti ), textOf( code->co_name ) );
   }
}

} // namespace

void printPythonBacktrace( int fd ) {
   constexpr char const* none = "\nNo Python traceback available\n";
   CrashText out( fd );
   PyThreadState const* const ts = stateOfThread();
   if( !ts ) {
      out.write( "%s", none );
      return;
   }
   if( inHandled == ::gettid() ) {
      // That step has faulted or come to a deadline, and this is another try.
      out.write( "%s\n", noText );
   } else {
      writeHandled( out, ts );
   }
   if( ts->frame ) {
      writeFrames( out, ts->frame );
      return;
   }
   out.write( "%s", none );
}
