// Tuples whose items are made one by one. GIL.
#pragma once

#include <kelpy/core/PyRef.h>

// A new tuple of `size` items, each a new reference from `nextItem()`. Where one is null the
// tuple goes and the result is null, with the error that is pending.
template< class NextItem >
PyObject* makeTuple( Py_ssize_t size, NextItem nextItem ) {
   PyRef tuple = PyRef::steal( PyTuple_New( size ) );
   if( !tuple ) {
      return nullptr;
   }
   for( Py_ssize_t i = 0; i < size; ++i ) {
      PyObject* const item = nextItem();
      if( !item ) {
         return nullptr;
      }
      PyTuple_SET_ITEM( tuple.get(), i, item );
   }
   return tuple.release();
}
