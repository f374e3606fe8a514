#include <kelpy/notify/PyCallback.h>

#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

#include <kel/Fork.h>
#include <kel/Lock.h>
#include <kelpy/core/PyFailure.h>
#include <kelpy/core/PyLock.h>
#include <kelpy/core/PyRef.h>

namespace {

// The thread that ends the interpreter, 0 before; and how many guards hold the GIL or wait for it.
// Both are in one order for all threads: whoever is not seen inside sees the end.
constinit std::atomic< pid_t > endingThread = 0;
constinit std::atomic< int > inside = 0;
constinit thread_local int insideOfThisThread = 0;

// Other threads are not there any more in a forked child.
void forgetOtherThreads() {
   inside = insideOfThisThread;
}

bool mayEnter() {
   pid_t const ending = endingThread;
   return ending == 0 || ( ending == Kel::Impl::gettid() && PyGILState_GetThisThreadState() );
}

// Handlers that run now may end first, and later ones are not called. One that takes long, perhaps
// because it waits for the thread that is here, is left behind.
PyObject* interpreterEnds( PyObject*, PyObject* ) {
   constexpr int limit = 1000;
   endingThread = Kel::Impl::gettid();
   Kel::GilUnlockAnchor const gil;
   for( int waited = 0; inside != insideOfThisThread && waited < limit; ++waited ) {
      usleep( 1000 );
   }
   Py_RETURN_NONE;
}

constinit PyMethodDef interpreterEndsDef = { "interpreterEnds", interpreterEnds, METH_NOARGS,
   nullptr };

} // namespace

bool watchInterpreterEnd() {
   try {
      Kel::registerAtForkHandler( nullptr, nullptr, forgetOtherThreads, 10 );
   } catch( ... ) {
      Kel::translateCppExceptionToPython( "" );
      return false;
   }
   PyRef const atexit = PyRef::steal( PyImport_ImportModule( "atexit" ) );
   PyRef const hook = PyRef::steal( PyCFunction_New( &interpreterEndsDef, nullptr ) );
   if( !atexit || !hook ) {
      return false;
   }
   // The list is called from its end: what others have registered still sees handlers at work.
   PyRef const list = PyRef::steal( PyObject_GetAttrString( atexit.get(), "_exithandlers" ) );
   PyRef const last = PyRef::steal( Py_BuildValue( "O(){}", hook.get() ) );
   return list && last && PyList_Insert( list.get(), 0, last.get() ) == 0;
}

CallbackGil::CallbackGil() noexcept {
   ++inside;
   held_ = mayEnter();
   if( held_ ) {
      ++insideOfThisThread;
      state_ = PyGILState_Ensure();
   } else {
      --inside;
   }
}

CallbackGil::~CallbackGil() {
   if( held_ ) {
      PyGILState_Release( state_ );
      --insideOfThisThread;
      --inside;
   }
}

namespace {

// One reference of the thread on the state that a guard has made for it.
class KeptThreadState {
 public:
   KeptThreadState() { PyGILState_Ensure(); }
   KeptThreadState( KeptThreadState const& ) = delete;
   KeptThreadState& operator=( KeptThreadState const& ) = delete;
   ~KeptThreadState() {
      if( CallbackGil const gil; gil ) {
         PyGILState_Release( PyGILState_LOCKED );
      }
   }
};

} // namespace

void keepThreadState() {
   bool const madeByGuard = PyThreadState_GET()->gilstate_counter == 1;
   if( madeByGuard ) {
      static thread_local KeptThreadState const kept;
   }
}

void endWithPythonError( char const* line ) noexcept {
   if( !Py_IsInitialized() ) {
      PyErr_Clear();
      return;
   }
   std::fprintf( stderr, "%s\n", line );
   std::fflush( stderr );
   PyErr_Print();
   std::abort();
}
