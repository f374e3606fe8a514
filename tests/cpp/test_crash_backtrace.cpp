// The Python part of a crash report and the locks of the interpreter.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <semaphore.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include <kelpy/core/PyLock.h>
#include <kelpy/diagnostics/PyBacktrace.h>

namespace {

constinit std::atomic< int > waits{ 0 };
constinit thread_local bool isCounted = false;

// The waits of this thread as it reports.
int waitsOfReport() {
   int const null = open( "/dev/null", O_WRONLY | O_CLOEXEC );
   waits = 0;
   isCounted = true;
   printPythonBacktrace( null );
   isCounted = false;
   close( null );
   return waits;
}

} // namespace

// The interpreter's locks are semaphores. The program's own function stands before the library's.
extern "C" __attribute__( ( visibility( "default" ) ) ) int sem_wait( sem_t* semaphore ) {
   static auto* const next =
      reinterpret_cast< int ( * )( sem_t* ) >( dlsym( RTLD_NEXT, "sem_wait" ) );
   waits += isCounted;
   return next( semaphore );
}

namespace {

TEST( CrashBacktrace, ofAThreadWithTheGilWaitsForNoLock ) {
   EXPECT_EQ( waitsOfReport(), 0 );
}

TEST( CrashBacktrace, ofAThreadThatHasGivenUpTheGilWaitsForNoLock ) {
   Kel::GilUnlockAnchor const gil;
   EXPECT_EQ( waitsOfReport(), 0 );
}

TEST( CrashBacktrace, ofAThreadThatPythonGaveItsStateOnceWaitsForNoLock ) {
   PyThreadState* const state = PyEval_SaveThread();
   EXPECT_EQ( waitsOfReport(), 0 );
   std::thread( [] { EXPECT_EQ( waitsOfReport(), 0 ); } ).join();
   PyEval_RestoreThread( state );
}

TEST( CrashBacktrace, countsTheWaitsOfPythonsOwnWay ) {
   waits = 0;
   isCounted = true;
   static_cast< void >( PyGILState_GetThisThreadState() );
   isCounted = false;
   EXPECT_EQ( waits, 1 );
}

} // namespace
