// The wrapper: a small Python object that holds one runtime object or value. Entered with the GIL
// held; what calls into the runtime takes the activity lock for itself, with the GIL released.
#pragma once

#include <kelpy/core/PyPython.h>

#include <cstddef>
#include <cstdint>

#include <kel/GenericIf.h>
#include <kel/schema/Types.h>
#include <kelpy/classes/PyGenericIfClass.h>
#include <kelpy/classes/SlotTables.h>
#include <kelpy/core/KelPyExport.h>

struct PyGenericIf {
   PyObject_HEAD
   Kel::Ptr< Kel::GenericIf > gif; // never null in a live wrapper
   Kel::KelType reserved;          // room for the type of an entity future, see PyEntityFuture.h
};
static_assert( sizeof( PyGenericIf ) == PyGenericIf_basicsize );

[[noreturn]] KELPY_API void throwNotWrapped();

// A new wrapper of the class of the generic's dynamic type, or null with a Python error.
KELPY_API PyObject* MakePyGenericIf( Kel::Ptr< Kel::GenericIf >&& gif ) noexcept;
// The same for a non-const view of an object, which must not be null. Activity lock.
KELPY_API PyObject* PyGenericIf_FromPtrInterface( Kel::Ptr< Kel::PtrInterface > ptr );

// A new reference on what the wrapper holds; null for null, which stands for a static attribute's
// missing object. Activity lock, which keeps the object from changing its class. Throws
// Kel::TypeException for an object that has become a failed mount since it was handed out.
inline Kel::Ptr< Kel::GenericIf > PyGenericIfToGenericIf( PyGenericIf const* object ) {
   if( !object ) {
      return nullptr;
   }
   if( Py_TYPE( Py_TYPE( object ) ) != &PyGenericIfMetaclass ) [[unlikely]] {
      throwNotWrapped();
   }
   return object->gif;
}

// For a method whose object may have become a failed mount since the method was read: the runtime
// type of its class, null with a TypeError for an object that is not wrapped.
KELPY_API Kel::KelType kelTypeOfSelf( PyObject* self );

// 32 bits; 0 with a Python error after a failure. `lhs` must not be null.
KELPY_API std::uint32_t pyGenericIfHash( PyGenericIf* lhs );
// The runtime's text as a new `str`, or null with a Python error. `lhs` must not be null.
KELPY_API PyObject* pyGenericIfStrRep( PyGenericIf* lhs );

// Converters for "O&" of a pointer to T, or None for null: 1, or 0 with a TypeError. The pointer
// lives as long as the object.
KELPY_API int Convert_To_PtrInterface_Or_Null_helper(
   PyObject* o, Kel::PtrInterface** out, Kel::KelType type );
template< class T >
int Convert_To_PtrInterface_Or_Null( PyObject* o, T** out ) {
   Kel::PtrInterface* object = nullptr;
   if( !Convert_To_PtrInterface_Or_Null_helper( o, &object, Kel::kelType< T >() ) ) {
      return 0;
   }
   *out = static_cast< T* >( object );
   return 1;
}

// Module functions: a new object each time. `const` and `nonConst` copy a value, the others make a
// new view of the same object.
PyObject* constValue( PyObject* module, PyObject* object );
PyObject* nonConstValue( PyObject* module, PyObject* object );
PyObject* constPtr( PyObject* module, PyObject* object );
PyObject* nonConstPtr( PyObject* module, PyObject* object );

// The method kelSmartPointerReferences.
PyObject* PyGenericIf_references( PyObject* self, PyObject* noArgs );
