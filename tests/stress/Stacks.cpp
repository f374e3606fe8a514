#include <Python.h>

#include "Stacks.h"

#include <dirent.h>
#include <execinfo.h>
#include <frameobject.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace Stress {

namespace {

constexpr int maxFrames = 64;
constexpr int pauseMicroseconds = 1000;
constexpr int answerPauses = 1000;
constexpr int gilPauses = 2000;

// Threads that have written their stack, since the last time it was set.
constinit std::atomic< int > answers{ 0 };
constinit std::atomic< int > childStatus{ 0 };

int stackSignal() {
   return SIGRTMIN + 3;
}

[[gnu::format( printf, 1, 2 )]] void say( char const* format, ... ) {
   char line[512];
   std::va_list arguments;
   va_start( arguments, format );
   int const length = std::vsnprintf( line, sizeof line, format, arguments );
   va_end( arguments );
   auto const size = static_cast< std::size_t >( length );
   [[maybe_unused]] auto const written =
      write( STDERR_FILENO, line, size < sizeof line ? size : sizeof line - 1 );
}

void writeOwnStack() {
   char name[16] = "";
   prctl( PR_GET_NAME, name );
   say( "\nthread %d (%s):\n", static_cast< int >( ::gettid() ), name );
   void* frames[maxFrames];
   backtrace_symbols_fd( frames, ::backtrace( frames, maxFrames ), STDERR_FILENO );
}

void onStackSignal( int ) {
   int const kept = errno;
   writeOwnStack();
   ++answers;
   errno = kept;
}

// True once the condition holds, false if it did not come true in that many pauses.
template< class Condition >
bool comesTrue( int pauses, Condition condition ) {
   for( ; pauses > 0; --pauses ) {
      if( condition() ) {
         return true;
      }
      usleep( pauseMicroseconds );
   }
   return condition();
}

void askForStack( pid_t thread ) {
   answers = 0;
   if( syscall( SYS_tgkill, getpid(), thread, stackSignal() ) == 0 &&
       !comesTrue( answerPauses, [] { return answers == 1; } ) ) {
      say( "\nthread %d: no answer\n", static_cast< int >( thread ) );
   }
}

// What the watching thread and its helpers are is of no interest.
void writeNativeStacks() {
   DIR* const tasks = opendir( "/proc/self/task" );
   while( dirent const* entry = tasks ? readdir( tasks ) : nullptr ) {
      pid_t const thread = std::atoi( entry->d_name );
      if( thread > 0 && thread != ::gettid() ) {
         askForStack( thread );
      }
   }
   if( tasks ) {
      closedir( tasks );
   }
}

char const* textOf( PyObject* text ) {
   return text && PyString_Check( text ) ? PyString_AS_STRING( text ) : "?";
}

// Also of a thread that runs on.
__attribute__( ( no_sanitize( "thread" ) ) ) void writePythonStack(
   long thread, PyFrameObject* frame ) {
   say(
      "\nPython thread %#lx (most recent call first):\n", static_cast< unsigned long >( thread ) );
   for( int depth = 0; frame && depth < maxFrames; frame = frame->f_back, ++depth ) {
      PyCodeObject* const code = frame->f_code;
      say( "  File \"%s\", line %d, in %s\n", textOf( code->co_filename ),
         PyFrame_GetLineNumber( frame ), textOf( code->co_name ) );
   }
}

// As sys._current_frames tells. GIL.
void writeCurrentFrames() {
   PyObject* const frames = _PyThread_CurrentFrames();
   PyObject *key = nullptr, *frame = nullptr;
   Py_ssize_t position = 0;
   while( frames && PyDict_Next( frames, &position, &key, &frame ) ) {
      writePythonStack( PyInt_AsLong( key ), reinterpret_cast< PyFrameObject* >( frame ) );
   }
   Py_XDECREF( frames );
}

// Without the GIL; whoever has it is stuck as well.
__attribute__( ( no_sanitize( "thread" ) ) ) void writeFramesAsTheyLie() {
   PyThreadState* state = PyInterpreterState_ThreadHead( PyInterpreterState_Head() );
   for( ; state; state = PyThreadState_Next( state ) ) {
      if( state->frame ) {
         writePythonStack( state->thread_id, state->frame );
      }
   }
}

void writePythonStacks() {
   // The helper outlives this function where the GIL cannot be had.
   static std::atomic< bool > written{ false };
   written = false;
   std::thread( [] {
      PyGILState_STATE const gil = PyGILState_Ensure();
      writeCurrentFrames();
      written = true;
      PyGILState_Release( gil );
   } ).detach();
   if( !comesTrue( gilPauses, [] { return written.load(); } ) ) {
      say( "\nthe GIL cannot be had\n" );
      writeFramesAsTheyLie();
   }
}

void onChildDeadline( int ) {
   say( "\nforked child %d is late\n", static_cast< int >( getpid() ) );
   writeOwnStack();
   writeFramesAsTheyLie();
   _exit( childStatus );
}

void handle( int number, void ( *handler )( int ) ) {
   struct sigaction action = {};
   action.sa_handler = handler;
   action.sa_flags = SA_RESTART;
   sigaction( number, &action, nullptr );
}

} // namespace

void threadNameIs( char const* name ) {
   prctl( PR_SET_NAME, name );
}

void prepareStacks() {
   // The first call loads the unwinder, which allocates.
   void* frame;
   ::backtrace( &frame, 1 );
   handle( stackSignal(), onStackSignal );
}

void writeStacks() {
   writeNativeStacks();
   writePythonStacks();
}

void childDeadlineIs( unsigned seconds, int status ) {
   childStatus = status;
   // A sanitizer may keep the alarm back, and then the parent ends.
   prctl( PR_SET_PDEATHSIG, SIGKILL );
   handle( SIGALRM, onChildDeadline );
   alarm( seconds );
}

} // namespace Stress
