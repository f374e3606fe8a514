#include <kelpy/collections/PyUpdate.h>

#include <kelpy/collections/PyMutation.h>
#include <kelpy/core/PyPendingError.h>
#include <kelpy/core/PyRef.h>

namespace {

// The outcome is not looked at: the update goes on, and a failure stays pending.
void setPair( PyGenericIfAttr* self, PyObject* key, PyObject* value ) {
   PyGenericIfCollection_ass_subscript_helper( self->parent, self->kelAttr, key, value );
}

void updateFromDict( PyGenericIfAttr* self, PyObject* dict ) {
   Py_ssize_t position = 0;
   PyObject* key = nullptr;
   PyObject* value = nullptr;
   while( PyDict_Next( dict, &position, &key, &value ) ) {
      // Other threads run while the pair is written, and may change the dictionary.
      auto const ownKey = PyRef::borrow( key );
      auto const ownValue = PyRef::borrow( value );
      setPair( self, key, value );
   }
}

// The two items of a pair, borrowed. False with a Python error.
bool takePair( PyObject* element, Py_ssize_t number, PyObject*& key, PyObject*& value ) {
   Py_ssize_t const size = PyObject_Size( element );
   if( size != 2 ) {
      PyErr_Format( PyExc_ValueError,
         "dictionary update sequence element #%zd has length %zd; 2 is required", number, size );
      return false;
   }
   if( !PyTuple_Check( element ) ) {
      PyErr_Format( PyExc_TypeError,
         "dictionary update sequence element #%zd is a %s; a tuple is required", number,
         Py_TYPE( element )->tp_name );
      return false;
   }
   key = PyTuple_GetItem( element, 0 );
   value = PyTuple_GetItem( element, 1 );
   return key && value;
}

// 1 with the next pair, of which `element` holds the items; 0 at the end; -1 with a Python error
// that is not one of a pair before.
int nextPair(
   PyObject* iterator, Py_ssize_t number, PyRef& element, PyObject*& key, PyObject*& value ) {
   PendingErrorAnchor const failedPair;
   element = PyRef::steal( PyIter_Next( iterator ) );
   if( !element ) {
      return PyErr_Occurred() ? -1 : 0;
   }
   return takePair( element.get(), number, key, value ) ? 1 : -1;
}

// False with a Python error.
bool updateFromPairs( PyGenericIfAttr* self, PyObject* iterable ) {
   auto const iterator = PyRef::steal( PyObject_GetIter( iterable ) );
   if( !iterator ) {
      return false;
   }
   for( Py_ssize_t number = 0;; ++number ) {
      PyRef element;
      PyObject* key = nullptr;
      PyObject* value = nullptr;
      int const found = nextPair( iterator.get(), number, element, key, value );
      if( found != 1 ) {
         return found == 0;
      }
      setPair( self, key, value );
   }
}

// False with a Python error.
bool updateFrom( PyGenericIfAttr* self, PyObject* source ) {
   if( PyDict_Check( source ) ) {
      updateFromDict( self, source );
      return true;
   }
   if( PyMapping_Check( source ) && PyObject_HasAttrString( source, "items" ) ) {
      char method[] = "items";
      auto const items = PyRef::steal( PyObject_CallMethod( source, method, nullptr ) );
      return items && updateFromPairs( self, items.get() );
   }
   return updateFromPairs( self, source );
}

} // namespace

PyObject* PyGenericIfCollection_update( PyObject* self, PyObject* args, PyObject* kwds ) {
   auto* const collection = reinterpret_cast< PyGenericIfAttr* >( self );
   PyObject* source = nullptr;
   if( !PyArg_UnpackTuple( args, "update", 0, 1, &source ) ) {
      return nullptr;
   }
   if( source && !updateFrom( collection, source ) ) {
      return nullptr;
   }
   if( kwds ) {
      updateFromDict( collection, kwds );
   }
   Py_RETURN_NONE;
}
