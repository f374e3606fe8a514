#include <kelpy/core/PyPython.h>

#include <kelpy/diagnostics/PyThreadStack.h>

#include <frameobject.h>
#include <pthread.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <optional>

namespace {

// A chain that changes while it is read could go round for ever.
constexpr int maxStates = 10'000;
constexpr int maxFrames = 200;

// False if not all of it is memory that can be read.
bool copy( void const* from, void* to, std::size_t length ) {
   iovec const here = { to, length };
   iovec const there = { const_cast< void* >( from ), length };
   return process_vm_readv( getpid(), &here, 1, &there, 1, 0 ) == static_cast< ssize_t >( length );
}

template< class T >
std::optional< T > fetch( void const* from ) {
   T value;
   return copy( from, &value, sizeof value ) ? std::optional< T >( value ) : std::nullopt;
}

// Of an object of just that type; nothing if it is none, or none any more.
template< class T >
std::optional< T > fetchObject( void const* from, PyTypeObject const& type ) {
   auto const value = from ? fetch< T >( from ) : std::nullopt;
   return value && Py_TYPE( &*value ) == &type ? value : std::nullopt;
}

char const* bytesOf( PyObject const* str ) {
   return reinterpret_cast< char const* >( str ) + offsetof( PyStringObject, ob_sval );
}

// The text of a str, as far as it is wanted, on one line.
class Text {
 public:
   explicit Text( PyObject const* str ) {
      auto const head = fetchObject< PyStringObject >( str, PyString_Type );
      auto const length = head ? std::clamp< Py_ssize_t >( head->ob_size, 0, sizeof text_ - 1 ) : 0;
      if( length == 0 || !copy( bytesOf( str ), text_, length ) ) {
         std::snprintf( text_, sizeof text_, "<unknown>" );
         return;
      }
      text_[length] = '\0';
      std::replace_if(
         text_, text_ + length, []( char c ) { return c >= 0 && c < ' '; }, '?' );
   }

   char const* get() const { return text_; }

 private:
   char text_[501] = {};
};

// The table of a code object is a row of pairs: how far on in the code, how many lines further.
int lineOf( PyCodeObject const& code, int instruction ) {
   int line = code.co_firstlineno;
   auto const table = fetchObject< PyStringObject >( code.co_lnotab, PyString_Type );
   int address = 0;
   for( Py_ssize_t at = 0; table && at + 1 < table->ob_size; at += 2 ) {
      struct Pair {
         unsigned char code;
         unsigned char lines;
      };
      auto const pair = fetch< Pair >( bytesOf( code.co_lnotab ) + at );
      if( !pair || ( address += pair->code ) > instruction ) {
         break;
      }
      line += pair->lines;
   }
   return line;
}

// The kernel's id of a thread that there may be no more; 0 then. The clock of a thread is named
// after it.
pid_t kernelIdOf( long ident ) {
   auto const thread = static_cast< pthread_t >( ident );
   constexpr std::size_t enough = 1024; // of the C library's record of a thread
   char record[enough];
   clockid_t clock = 0;
   if( !copy( reinterpret_cast< void const* >( thread ), record, enough ) ||
       pthread_getcpuclockid( thread, &clock ) != 0 ) {
      return 0;
   }
   return ~( clock >> 3 );
}

// What the thread runs now; null if no Python.
PyFrameObject const* frameOf( PyInterpreterState const& interpreter, pid_t thread ) {
   auto state = fetch< PyThreadState >( interpreter.tstate_head );
   for( int count = 0; state && count < maxStates; ++count ) {
      if( state->frame && kernelIdOf( state->thread_id ) == thread ) {
         return state->frame;
      }
      state = state->next ? fetch< PyThreadState >( state->next ) : std::nullopt;
   }
   return nullptr;
}

PyFrameObject const* frameOf( pid_t thread ) {
   auto interpreter = fetch< PyInterpreterState >( PyInterpreterState_Head() );
   for( int count = 0; interpreter && count < maxStates; ++count ) {
      if( auto const* const frame = frameOf( *interpreter, thread ) ) {
         return frame;
      }
      interpreter =
         interpreter->next ? fetch< PyInterpreterState >( interpreter->next ) : std::nullopt;
   }
   return nullptr;
}

} // namespace

bool printPythonThreadStack( int fd, pid_t thread ) {
   if( !fetch< int >( &thread ) ) {
      // It may run Python or not: it is treated as if it did.
      dprintf( fd, "(the kernel does not let the Python stack be read)\n" );
      return true;
   }
   auto const* at = frameOf( thread );
   if( !at ) {
      return false;
   }
   dprintf( fd, "Python stack (most recent call FIRST):\n" );
   for( int count = 0; at && count < maxFrames; ++count ) {
      auto const frame = fetchObject< PyFrameObject >( at, PyFrame_Type );
      auto const code =
         frame ? fetchObject< PyCodeObject >( frame->f_code, PyCode_Type ) : std::nullopt;
      if( !code ) {
         dprintf( fd, "  (the thread went on)\n" );
         break;
      }
      dprintf( fd, "  File \"%s\", line %d, in %s\n", Text( code->co_filename ).get(),
         lineOf( *code, frame->f_lasti ), Text( code->co_name ).get() );
      at = frame->f_back;
   }
   return true;
}
