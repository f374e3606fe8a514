// A runtime object that owns a Python object, so that the runtime's reference counting decides when
// that goes. Made and released on any thread, with or without the GIL: each step takes it itself.
#pragma once

#include <kelpy/core/PyPython.h>

#include <kel/Notifiee.h>
#include <kelpy/core/KelPyExport.h>

namespace Kel {

class PyObjHandle;

KEL_TYPES( _PyObjHandle_27cf1eed02acadcc_kelModule, PyObjHandle );

class KELPY_API PyObjHandle : public PtrInterface {
 public:
   KEL_OBJECT( PyObjHandle )

   // With `passedRef` the handle takes over a reference of the caller, otherwise one of its own.
   PyObjHandle( PyObject* pyObject, bool passedRef );
   ~PyObjHandle() override;
   // A handle that takes part in notification. Activity lock.
   static Ptr< PyObjHandle > PyObjHandleIs( PyObject* pyObject, bool passedRef );

   // Borrowed; perhaps null. Changed under the activity lock and the GIL.
   PyObject* pyObject() const noexcept { return pyObject_; }
   // Drops the present object and holds another; null for none.
   void pyObjectIs( PyObject* object );
   // Holds the present object once more: without `passedRef` that is one reference more.
   void handleInit();
   // Drops one reference and keeps the object all the same; the end of the handle does so again.
   void handleDelete();

 private:
   PyObject* pyObject_;

 public:
   bool const passedRef_;
};

KELPY_API Ptr< PyObjHandle > pyObjHandleFactory( PyObject* pyObject, bool passedRef );

} // namespace Kel

// Module function: a wrapper of a new handle on any object, None as well.
PyObject* handle( PyObject* module, PyObject* object );
