#include <kelpy/core/PyModuleFunctions.h>

#include <utility>

#include <kel/Assert.h>
#include <kel/KelType.h>
#include <kel/RefCount.h>
#include <kel/String.h>
#include <kelpy/classes/PyGenericIfClass.h>
#include <kelpy/classes/SlotTables.h>
#include <kelpy/core/PyFailure.h>
#include <kelpy/core/PyHooks.h>
#include <kelpy/core/PyLock.h>
#include <kelpy/core/PyMarshal.h>
#include <kelpy/core/PyRef.h>
#include <kelpy/objects/PyGenericIf.h>
#include <kelpy/reflection/PyKelType.h>

namespace {

PyGenericIf* asWrapper( PyObject* object ) {
   return reinterpret_cast< PyGenericIf* >( object );
}

PyObject* isInstance( PyObject* object, PyTypeObject& type ) {
   return PyBool_FromLong( PyObject_TypeCheck( object, &type ) );
}

// The present hook goes first, also where the same object comes again. Its end may run Python
// code that sets a hook.
PyObject* hookIs( PyObject*& hook, PyObject* wanted ) {
   PyRef::steal( std::exchange( hook, nullptr ) );
   if( wanted != Py_None ) {
      Py_INCREF( wanted );
      PyRef::steal( std::exchange( hook, wanted ) );
   }
   Py_RETURN_NONE;
}

// Takes the activity lock, with the GIL released until the type is known.
PyObject* findType( char const* name ) {
   Kel::PyLockAnchor locks( Kel::flags0 );
   try {
      Kel::KelType const type = Kel::typeNode( name );
      KEL_ASSERT( type );
      locks.gilHeldIs( true );
      return PyKelType_FromKelType( type );
   } catch( ... ) {
      Kel::translateCppExceptionToPython( "" );
      return nullptr;
   }
}

} // namespace

PyObject* enableThreadSafePointers( PyObject*, PyObject* ) noexcept {
   Kel::VFPtrInterface::threadSafePointersIs( true );
   Py_RETURN_NONE;
}

PyObject* typeNode( PyObject*, PyObject* args ) {
   char const* name = nullptr;
   if( !PyArg_ParseTuple( args, "s:typeNode", &name ) ) {
      return nullptr;
   }
   try {
      return findType( name );
   } catch( ... ) {
      Kel::translateCppExceptionToPython( "" );
      return nullptr;
   }
}

PyObject* pyType( PyObject*, PyObject* args ) {
   Kel::KelType type;
   if( !PyArg_ParseTuple( args, "O&:pyType", Convert_To_KelType, &type ) ) {
      return nullptr;
   }
   auto* cls = reinterpret_cast< PyObject* >( getOrCreatePyType( type ) );
   return PyRef::borrow( cls ).release();
}

PyObject* demangle( PyObject*, PyObject* args ) {
   char const* mangled = nullptr;
   if( !PyArg_ParseTuple( args, "s", &mangled ) ) {
      return nullptr;
   }
   try {
      return PyStr_FromKelString( Kel::demangle( mangled ) );
   } catch( ... ) {
      Kel::translateCppExceptionToPython( "" );
      return nullptr;
   }
}

PyObject* isConst( PyObject*, PyObject* object ) {
   if( !isWrapped( object ) ) {
      PyErr_SetString( PyExc_TypeError, "expected a kelc-Python object" );
      return nullptr;
   }
   return PyBool_FromLong( asWrapper( object )->gif->isConst() );
}

PyObject* isValue( PyObject*, PyObject* object ) {
   Kel::KelType const type = kelTypeOf( object );
   return PyBool_FromLong( type && type.isValue() );
}

PyObject* isCollection( PyObject*, PyObject* object ) {
   return isInstance( object, PyGenericIfCollectionType );
}

PyObject* isFunction( PyObject*, PyObject* object ) {
   return isInstance( object, PyGenericIfFunctionType );
}

PyObject* isEntityFuture( PyObject*, PyObject* object ) {
   return isInstance( object, PyGenericIfEntityFutureType );
}

PyObject* isFailedMount( PyObject*, PyObject* object ) {
   return isInstance( object, PyGenericIfFailedMountType );
}

PyObject* addressOf( PyObject*, PyObject* object ) {
   Kel::KelType const type = kelTypeOf( object );
   if( !type || type.isValue() ) {
      PyErr_SetString( PyExc_TypeError, "expected a non-value kelc-Python object" );
      return nullptr;
   }
   return PyLong_FromUnsignedLongLong(
      reinterpret_cast< std::uintptr_t >( asWrapper( object )->gif->voidPtrIs( type ) ) );
}

PyObject* hashOf( PyObject*, PyObject* object ) {
   if( !isWrapped( object ) ) {
      PyErr_SetString( PyExc_TypeError, "expected a kelc-Python object" );
      return nullptr;
   }
   std::uint32_t const hash = pyGenericIfHash( asWrapper( object ) );
   return PyErr_Occurred() ? nullptr : PyInt_FromLong( hash );
}

PyObject* attributeAccessorCount( PyObject*, PyObject* ) {
   return PyLong_FromUnsignedLongLong( attributeAccessorCount_ );
}

PyObject* newEntityHookIs( PyObject*, PyObject* hook ) {
   return hookIs( newEntityHook_, hook );
}

PyObject* newInstanceHookIs( PyObject*, PyObject* hook ) {
   return hookIs( newInstanceHook_, hook );
}

PyObject* getitemHookIs( PyObject*, PyObject* hook ) {
   return hookIs( getitemHook_, hook );
}
