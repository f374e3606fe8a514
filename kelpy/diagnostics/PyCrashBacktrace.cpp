// Runs while the process crashes, perhaps in signal context and beside a thread that holds the
// GIL: fields of Python's objects are read where they lie.
#include <kelpy/diagnostics/PyBacktrace.h>

#include <frameobject.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include <kelpy/core/PyRef.h>

namespace {

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

// The only step that runs Python code.
void writeException( CrashText& out, PyObject* cls, PyObject* value ) {
   out.write( "%s: ", classNameOf( cls ) );
   PyRef const str = PyRef::steal( PyObject_Str( value ) );
   char const* const text = str ? PyString_AsString( str.get() ) : nullptr;
   out.write( "%s", text ? text : "(failed to get exception error message)" );
   out.write( "\n" );
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
   PyThreadState const* const ts = PyGILState_GetThisThreadState();
   if( !ts ) {
      out.write( "%s", none );
      return;
   }
   if( isSet( ts->exc_traceback ) ) {
      writeTraceback( out, ts->exc_traceback );
   }
   if( isSet( ts->exc_value ) ) {
      writeException( out, ts->exc_type, ts->exc_value );
   }
   if( ts->frame ) {
      writeFrames( out, ts->frame );
      return;
   }
   out.write( "%s", none );
}
