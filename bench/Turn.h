// One turn of two locks as the binding makes it: the GIL released and an error-checking mutex held,
// then, from gilIsBack() on, both; the mutex goes last. Each extension that includes it has a mutex
// of its own.
#pragma once

#include <Python.h>

#include <pthread.h>

inline pthread_mutex_t turnMutex = PTHREAD_ERRORCHECK_MUTEX_INITIALIZER_NP;

class Turn {
 public:
   Turn() : state_( PyEval_SaveThread() ), owns_( pthread_mutex_lock( &turnMutex ) == 0 ) {}
   Turn( Turn const& ) = delete;
   Turn& operator=( Turn const& ) = delete;
   ~Turn() {
      if( owns_ ) {
         pthread_mutex_unlock( &turnMutex );
      }
      if( state_ ) {
         PyEval_RestoreThread( state_ );
      }
   }

   void gilIsBack() {
      PyEval_RestoreThread( state_ );
      state_ = nullptr;
   }
   // For a conversion in the middle, with the state that was kept: Python's own way to it goes
   // along a list of all threads.
   template< class F >
   auto withGil( F f ) {
      PyEval_RestoreThread( state_ );
      auto result = f();
      state_ = PyEval_SaveThread();
      return result;
   }

 private:
   PyThreadState* state_;
   bool owns_;
};
