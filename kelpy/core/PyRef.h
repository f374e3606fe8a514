// An owned Python reference. Made, changed and dropped with the GIL held.
#pragma once

#include <kelpy/core/PyPython.h>

#include <utility>

// Stands where a guard is about to drop a Python reference: the GIL must be held. A place for a
// check; no behaviour depends on one.
inline void assertGilHeld() noexcept {}

class PyRef {
 public:
   constexpr PyRef() noexcept = default;
   PyRef( PyRef const& ) = delete;
   PyRef( PyRef&& other ) noexcept : object_( other.release() ) {}
   PyRef& operator=( PyRef other ) noexcept {
      std::swap( object_, other.object_ );
      return *this;
   }
   ~PyRef() {
      if( object_ ) {
         assertGilHeld();
         Py_DECREF( object_ );
      }
   }

   // Takes over the caller's reference. Null is allowed in both.
   static PyRef steal( PyObject* object ) noexcept { return PyRef( object ); }
   // Takes a reference of its own.
   static PyRef borrow( PyObject* object ) noexcept {
      Py_XINCREF( object );
      return PyRef( object );
   }

   PyObject* get() const noexcept { return object_; }
   // Gives the reference to the caller.
   [[nodiscard]] PyObject* release() noexcept { return std::exchange( object_, nullptr ); }
   explicit operator bool() const noexcept { return object_ != nullptr; }

 private:
   explicit PyRef( PyObject* object ) noexcept : object_( object ) {}

   PyObject* object_ = nullptr;
};
