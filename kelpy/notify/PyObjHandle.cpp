#include <kelpy/notify/PyObjHandle.h>

#include <utility>

#include <kel/Schema.h>
#include <kelpy/core/PyLock.h>
#include <kelpy/core/PyRef.h>
#include <kelpy/notify/PyCallback.h>
#include <kelpy/objects/PyGenericIf.h>
#include <kelpy/objects/PyStage.h>

// The type by which the record names the argument. No unit declares it, so only C++ code gives it.
template<>
constexpr std::string_view Kel::Schema::typeNameOf< PyObject >() {
   return "PyObject";
}

namespace Kel {

PyObjHandle::PyObjHandle( PyObject* pyObject, bool passedRef )
   : pyObject_( pyObject ), passedRef_( passedRef ) {
   handleInit();
}

PyObjHandle::~PyObjHandle() {
   handleDelete();
}

Ptr< PyObjHandle > PyObjHandle::PyObjHandleIs( PyObject* pyObject, bool passedRef ) {
   return newObject< PyObjHandle >( pyObject, passedRef );
}

// The old object goes last, as its end may run Python code that comes back here.
void PyObjHandle::pyObjectIs( PyObject* object ) {
   GilAnchor const gil;
   if( !passedRef_ ) {
      Py_XINCREF( object );
   }
   PyRef::steal( std::exchange( pyObject_, object ) );
}

void PyObjHandle::handleInit() {
   GilAnchor const gil;
   pyObjectIs( std::exchange( pyObject_, nullptr ) );
}

void PyObjHandle::handleDelete() {
   if( !pyObject_ ) {
      return;
   }
   if( CallbackGil const gil; gil ) {
      PyRef::steal( pyObject_ );
   }
}

Ptr< PyObjHandle > pyObjHandleFactory( PyObject* pyObject, bool passedRef ) {
   return PyObjHandle::PyObjHandleIs( pyObject, passedRef );
}

KEL_UNIT( _PyObjHandle_27cf1eed02acadcc_kelModule,
   pointer< PyObjHandle, PtrInterface >(
      madeBy< &pyObjHandleFactory >( arg< PyObject* >( "pyObject" ), arg< bool >( "passedRef" ) ),
      attr< &PyObjHandle::passedRef_ >( "passedRef", immutable ).withId( 131 ),
      function< &PyObjHandle::handleDelete >( "handleDelete" ).withId( 132 ),
      function< &PyObjHandle::handleInit >( "handleInit" ).withId( 133 ) ) )

} // namespace Kel

PyObject* handle( PyObject*, PyObject* object ) {
   return underLocks( Kel::flags4, Stage( NoSubject(), "" ), noObject, [&]( Kel::PyLockAnchor& ) {
      return PyGenericIf_FromPtrInterface( Kel::PyObjHandle::PyObjHandleIs( object, false ) );
   } );
}
