// What the views of types and of attributes share: the cache that makes one wrapper a row, the
// getters of flags, and the tuples of argument rows. GIL.
#pragma once

#include <kelpy/core/PyPython.h>

#include <memory>
#include <new>
#include <unordered_map>

#include <kel/KelModule.h>
#include <kelpy/core/PyGetSet.h>
#include <kelpy/core/PyTuple.h>

struct remove_ref {
   void operator()( PyObject* object ) const noexcept { Py_DECREF( object ); }
};

// One owned wrapper a handle, until the process exits. GIL.
template< class Handle >
using WrapperCache = std::unordered_map< Handle, std::unique_ptr< PyObject, remove_ref > >;

// The slot of the handle, made empty at its first request; null with a MemoryError.
template< class Handle >
std::unique_ptr< PyObject, remove_ref >* slotOf(
   WrapperCache< Handle >& cache, Handle handle ) noexcept {
   try {
      return &cache[handle];
   } catch( std::bad_alloc const& ) {
      PyErr_NoMemory();
      return nullptr;
   }
}

// The wrapper of the handle, made at the first request: a new reference, None for a null handle.
// Where it cannot be made the slot stays empty, and the next request tries again.
template< class Record, class Handle >
PyObject* wrapperOf( WrapperCache< Handle >& cache, PyTypeObject& type, Handle handle,
   Handle Record::*field ) noexcept {
   if( !handle ) {
      Py_RETURN_NONE;
   }
   auto* const slot = slotOf( cache, handle );
   if( !slot ) {
      return nullptr;
   }
   if( !*slot ) {
      PyObject* const object = _PyObject_New( &type );
      if( !object ) {
         return nullptr;
      }
      reinterpret_cast< Record* >( object )->*field = handle;
      slot->reset( object );
   }
   Py_INCREF( slot->get() );
   return slot->get();
}

// The argument rows from `row` on, `count` of them: their names, or those of their types, as a
// new tuple of interned `str`.
inline PyObject* argNameTuple(
   Kel::KelModule const* module, Kel::ArgRow const* row, Py_ssize_t count ) {
   return makeTuple( count, [=]() mutable {
      return PyString_InternFromString( module->attrNamePool + row++->nameOffset() );
   } );
}
inline PyObject* argTypeTuple(
   Kel::KelModule const* module, Kel::ArgRow const* row, Py_ssize_t count ) {
   return makeTuple( count, [=]() mutable {
      return PyString_InternFromString( module->typeNamePool + row++->typeNameOffset() );
   } );
}

// A read-only row whose doc string is its name.
constexpr PyGetSetDef named( char const* name, getter get ) {
   return readOnly( name, get, name );
}
