// A Python error that stays pending while more Python code runs. GIL.
#pragma once

#include <kelpy/core/PyPython.h>

// Puts a Python error that was pending aside, so that what runs meanwhile sees errors of its own
// only. It comes back at the end, unless a newer failure has taken its place.
class PendingErrorAnchor {
 public:
   PendingErrorAnchor() noexcept { PyErr_Fetch( &type_, &value_, &traceback_ ); }
   PendingErrorAnchor( PendingErrorAnchor const& ) = delete;
   PendingErrorAnchor& operator=( PendingErrorAnchor const& ) = delete;
   ~PendingErrorAnchor() {
      if( type_ && !PyErr_Occurred() ) {
         PyErr_Restore( type_, value_, traceback_ );
      } else {
         drop();
      }
   }

   void drop() noexcept {
      Py_CLEAR( type_ );
      Py_CLEAR( value_ );
      Py_CLEAR( traceback_ );
   }

 private:
   PyObject* type_ = nullptr;
   PyObject* value_ = nullptr;
   PyObject* traceback_ = nullptr;
};
