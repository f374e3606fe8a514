#include <kelpy/objects/MountProxyAnchor.h>

#include <boost/container/small_vector.hpp>

#include <kel/Exception.h>
#include <kel/Lock.h>
#include <kel/Notifiee.h>
#include <kelpy/classes/PyGenericIfClass.h>
#include <kelpy/core/PyFailure.h>
#include <kelpy/core/PyPendingError.h>

namespace {

constexpr char proxyMethod[] = "__kel_object__";

// Of a type whose instances have no attribute of that name: spares the common arguments a look-up
// that fails by way of an exception.
bool isNeverProxy( PyObject* object ) {
   PyTypeObject* const type = Py_TYPE( object );
   if( type == &PyInt_Type || type == &PyString_Type || object == Py_None ||
       type == &PyFloat_Type || type == &PyBool_Type || type == &PyLong_Type ||
       type == &PyUnicode_Type ) {
      return true;
   }
   if( !isWrapped( object ) ) {
      return false;
   }
   // A wrapper has what its class has, and nothing of its own.
   static PyObject* name = nullptr; // immortal; guarded by the GIL
   if( !name && !( name = PyString_InternFromString( proxyMethod ) ) ) {
      PyErr_Clear(); // no memory: the long way does without the name
      return false;
   }
   return !_PyType_Lookup( type, name );
}

bool isWithoutProxies( PyObject* tuple ) {
   for( Py_ssize_t i = 0; i < PyTuple_GET_SIZE( tuple ); ++i ) {
      if( !isNeverProxy( PyTuple_GET_ITEM( tuple, i ) ) ) {
         return false;
      }
   }
   return true;
}

// Whether it wraps an object; asked of its Python class, since a type without a declared base
// counts.
bool wrapsObject( PyObject* object ) {
   if( !isWrapped( object ) ) {
      return false;
   }
   PyTypeObject* const base = getOrCreatePyType( Kel::kelType< Kel::PtrInterface >() );
   if( !base ) {
      throw PythonException();
   }
   return PyType_IsSubtype( Py_TYPE( object ), base );
}

} // namespace

PyRef MountProxyAnchor::_maybeResolveMountProxy( PyObject* object ) const {
   if( isNeverProxy( object ) ) {
      return PyRef::borrow( object );
   }
   PendingErrorAnchor pending;
   if( !PyObject_HasAttrString( object, proxyMethod ) ) {
      return PyRef::borrow( object );
   }
   if( Kel::activityLock()->ownerThread() == Kel::Impl::gettid() ) {
      pending.drop();
      throw Kel::Exception( "Attempting to resolve mount proxy while holding the activity lock, "
                            "which can cause a deadlock. See BUG853618." );
   }
   auto result = PyRef::steal( PyObject_CallMethod(
      object, const_cast< char* >( proxyMethod ), const_cast< char* >( "" ) ) );
   if( !result ) {
      throw PythonException();
   }
   return wrapsObject( result.get() ) ? std::move( result ) : PyRef::borrow( object );
}

// One level deep. The tuple itself comes back if no element changed.
PyRef MountProxyAnchor::_resolveTuple( PyObject* tuple ) const {
   Py_ssize_t const size = PyTuple_GET_SIZE( tuple );
   if( isWithoutProxies( tuple ) ) {
      return PyRef::borrow( tuple );
   }
   boost::container::small_vector< PyRef, 8 > elements;
   Py_ssize_t changed = 0;
   for( Py_ssize_t i = 0; i < size; ++i ) {
      PyObject* const element = PyTuple_GetItem( tuple, i );
      if( !element ) {
         throw PythonException();
      }
      elements.push_back( _maybeResolveMountProxy( element ) );
      changed += elements.back().get() != element;
   }
   if( changed == 0 ) {
      return PyRef::borrow( tuple );
   }
   auto result = PyRef::steal( PyTuple_New( size ) );
   if( !result ) {
      throw PythonException();
   }
   for( Py_ssize_t i = 0; i < size; ++i ) {
      if( PyTuple_SetItem( result.get(), i, elements[i].release() ) == -1 ) {
         throw PythonException();
      }
   }
   return result;
}

MountProxyAnchor::MountProxyAnchor( PyObject* object ) {
   if( !object ) {
      return;
   }
   assertGilHeld();
   resolved_ =
      PyTuple_Check( object ) ? _resolveTuple( object ) : _maybeResolveMountProxy( object );
}
