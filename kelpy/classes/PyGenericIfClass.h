// The Python classes of runtime types: their layout, their metaclass, and the test for a wrapped
// object. GIL; no runtime lock, since only schema rows are read.
#pragma once

#include <kelpy/core/PyPython.h>

#include <kel/KelType.h>
#include <kelpy/core/KelPyExport.h>

// A class of a runtime type. Python's own `type` makes a class by calling the metaclass and then
// needs the whole heap layout, so every class has that room; such a class has a null kelType.
struct PyGenericIfClass {
   PyHeapTypeObject head; // starts with the PyTypeObject, the only part that is used
   Kel::KelType kelType;
};

extern KELPY_API PyTypeObject PyGenericIfMetaclass;

// The class of a runtime type, made on first need together with those of its bases. A borrowed
// reference, valid for the life of the process; null with a Python error.
KELPY_API PyTypeObject* getOrCreatePyType( Kel::KelType const& type );

// The names of all attributes of the type, inherited ones included, as a new tuple of interned
// `str`; empty for a null type. Null with a Python error.
KELPY_API PyObject* attributeTuple( Kel::KelType type );

// The runtime type of a class; null for any class that stands for none.
inline Kel::KelType kelTypeOfClass( PyTypeObject* cls ) noexcept {
   if( Py_TYPE( cls ) != &PyGenericIfMetaclass &&
       !PyType_IsSubtype( Py_TYPE( cls ), &PyGenericIfMetaclass ) ) {
      return Kel::KelType();
   }
   return reinterpret_cast< PyGenericIfClass* >( cls )->kelType;
}

// The runtime type of an object's class; null for an object that is not wrapped.
inline Kel::KelType kelTypeOf( PyObject* object ) noexcept {
   return kelTypeOfClass( Py_TYPE( object ) );
}

// Whether the object is an instance of the class of a runtime type. Every entry that takes an
// object of the runtime asks this first.
inline bool isWrapped( PyObject* object ) noexcept {
   return static_cast< bool >( kelTypeOf( object ) );
}

// Whether the object is wrapped and its class stands for `type` or a type derived from it.
inline bool PyGenericIf_TypeCheck( PyObject* object, Kel::KelType type ) noexcept {
   Kel::KelType const own = kelTypeOf( object );
   return own && own.isDerived( type );
}
