// kel_objects: entities of the runtime by path, and the functions of the module that stand behind
// wrappers and their attributes, called directly. Entered with the GIL held; what needs the
// activity lock takes it.
#include <kelpy/core/PyPython.h>

#include <kel/Dir.h>
#include <kel/TraceFacility.h>
#include <kelpy/core/PyFailure.h>
#include <kelpy/core/PyLock.h>
#include <kelpy/core/PyRef.h>
#include <kelpy/objects/PyAttribute.h>
#include <kelpy/objects/PyGenericIf.h>
#include <kelpy/reflection/PyKelAttr.h>
#include <kelpy/reflection/PyKelType.h>

namespace {

// Runs `body` with the activity lock held and without the GIL; what it throws is raised in Python
// without a prefix.
template< class Body >
PyObject* inRuntime( Body body ) noexcept {
   try {
      Kel::PyLockAnchor locks( Kel::flags0 );
      try {
         return body( locks );
      } catch( ... ) {
         Kel::translateCppExceptionToPython( "" );
      }
   } catch( ... ) {
      Kel::translateCppExceptionToPython( "" );
   }
   return nullptr;
}

Kel::Dir* directory( char const* fullName ) {
   auto const entity = Kel::entity( fullName );
   if( !entity || !entity->fwkType().isKelDir() ) {
      throw Kel::RangeException( "there is no such directory" );
   }
   return static_cast< Kel::Dir* >( entity.get() );
}

PyGenericIf* wrapperOrNull( PyObject* object ) {
   return object == Py_None ? nullptr : reinterpret_cast< PyGenericIf* >( object );
}

// createEntity(directory, type, name): a new wrapper of a new entity.
PyObject* createEntity( PyObject*, PyObject* args ) {
   char const* dir = nullptr;
   char const* type = nullptr;
   char const* name = nullptr;
   if( !PyArg_ParseTuple( args, "sss", &dir, &type, &name ) ) {
      return nullptr;
   }
   return inRuntime( [=]( Kel::PyLockAnchor& locks ) {
      auto const entity = directory( dir )->createEntity( type, name );
      locks.gilHeldIs( true );
      return PyGenericIf_FromPtrInterface( entity );
   } );
}

// deleteEntity(directory, name): whether there was one.
PyObject* deleteEntity( PyObject*, PyObject* args ) {
   char const* dir = nullptr;
   char const* name = nullptr;
   if( !PyArg_ParseTuple( args, "ss", &dir, &name ) ) {
      return nullptr;
   }
   return inRuntime( [=]( Kel::PyLockAnchor& locks ) {
      bool const wasThere = directory( dir )->deleteEntity( name );
      locks.gilHeldIs( true );
      return PyBool_FromLong( wasThere );
   } );
}

// entity(fullName): a new wrapper, or None.
PyObject* entity( PyObject*, PyObject* args ) {
   char const* fullName = nullptr;
   if( !PyArg_ParseTuple( args, "s", &fullName ) ) {
      return nullptr;
   }
   return inRuntime( [=]( Kel::PyLockAnchor& locks ) -> PyObject* {
      auto const found = Kel::entity( fullName );
      locks.gilHeldIs( true );
      if( !found ) {
         Py_RETURN_NONE;
      }
      return PyGenericIf_FromPtrInterface( found );
   } );
}

// pointerOrNull(object, type): the address that the converter of pointer arguments stores, 0 for
// null.
PyObject* pointerOrNull( PyObject*, PyObject* args ) {
   PyObject* object = nullptr;
   Kel::KelType type;
   if( !PyArg_ParseTuple( args, "OO&", &object, Convert_To_KelType, &type ) ) {
      return nullptr;
   }
   Kel::PtrInterface* pointer = reinterpret_cast< Kel::PtrInterface* >( 1 );
   if( !Convert_To_PtrInterface_Or_Null_helper( object, &pointer, type ) ) {
      return nullptr;
   }
   return PyLong_FromVoidPtr( pointer );
}

// traceFacilityOrNull(object): the same for the trace facility, through the typed converter.
PyObject* traceFacilityOrNull( PyObject*, PyObject* args ) {
   auto pointer = reinterpret_cast< Kel::TraceFacility* >( 1 );
   if( !PyArg_ParseTuple(
          args, "O&", Convert_To_PtrInterface_Or_Null< Kel::TraceFacility >, &pointer ) ) {
      return nullptr;
   }
   return PyLong_FromVoidPtr( pointer );
}

// fromPtrInterface(wrapper): a wrapper made from the bare object.
PyObject* fromPtrInterface( PyObject*, PyObject* object ) {
   Kel::Ptr< Kel::PtrInterface > const bare( wrapperOrNull( object )->gif->ptrInterface() );
   return PyGenericIf_FromPtrInterface( bare );
}

// get(wrapper or None, attr, useDefaultAttr)
PyObject* get( PyObject*, PyObject* args ) {
   PyObject* object = nullptr;
   Kel::KelAttr attr;
   int useDefaultAttr = 0;
   if( !PyArg_ParseTuple( args, "OO&i", &object, Convert_To_KelAttr, &attr, &useDefaultAttr ) ) {
      return nullptr;
   }
   return pyGenericIfGet( wrapperOrNull( object ), attr, useDefaultAttr != 0 );
}

// set(wrapper or None, attr, value) for a collection whose members carry their key,
// set(wrapper or None, attr, value, index) for others.
PyObject* set( PyObject*, PyObject* args ) {
   PyObject* object = nullptr;
   Kel::KelAttr attr;
   PyObject* value = nullptr;
   PyObject* index = nullptr;
   if( !PyArg_ParseTuple( args, "OO&O|O", &object, Convert_To_KelAttr, &attr, &value, &index ) ) {
      return nullptr;
   }
   return pyGenericIfSet( wrapperOrNull( object ), attr, index, value );
}

// del_(wrapper or None, attr, index)
PyObject* del( PyObject*, PyObject* args ) {
   PyObject* object = nullptr;
   Kel::KelAttr attr;
   PyObject* index = nullptr;
   if( !PyArg_ParseTuple( args, "OO&O", &object, Convert_To_KelAttr, &attr, &index ) ) {
      return nullptr;
   }
   if( pyGenericIfDel( wrapperOrNull( object ), attr, index ) == -1 ) {
      return nullptr;
   }
   Py_RETURN_NONE;
}

// genericAddress(wrapper): tells whether two wrappers share what they hold.
PyObject* genericAddress( PyObject*, PyObject* object ) {
   return PyLong_FromVoidPtr( wrapperOrNull( object )->gif.get() );
}

// genericReferences(wrapper): how many own the wrapper's generic.
PyObject* genericReferences( PyObject*, PyObject* object ) {
   return PyLong_FromUnsignedLong( wrapperOrNull( object )->gif->kelReferenceWord() );
}

// The full names of all types, in order.
PyObject* typeNames( PyObject*, PyObject* ) {
   PyRef names = PyRef::steal( PyList_New( 0 ) );
   for( char const* name : Kel::typeNames() ) {
      PyRef const text = PyRef::steal( PyString_FromString( name ) );
      if( !names || !text || PyList_Append( names.get(), text.get() ) < 0 ) {
         return nullptr;
      }
   }
   return names.release();
}

// leaveError(): breaks the rules, to see that somebody notices: gives None and leaves an error
// pending.
PyObject* leaveError( PyObject*, PyObject* ) {
   PyErr_SetString( PyExc_KeyError, "left" );
   Py_RETURN_NONE;
}

// A view of no object, to have an instance of a type of which no object can be made.
class EmptyView final : public Kel::GenericIf {
 public:
   explicit EmptyView( Kel::KelType type ) : GenericIf( type, nullptr, false, Kind::object ) {}
};

// emptyView(type): a wrapper of that class without an object behind.
PyObject* emptyView( PyObject*, PyObject* args ) {
   Kel::KelType type;
   if( !PyArg_ParseTuple( args, "O&", Convert_To_KelType, &type ) ) {
      return nullptr;
   }
   return MakePyGenericIf( Kel::Ptr< Kel::GenericIf >( new EmptyView( type ) ) );
}

constinit PyMethodDef functions[] = {
   { "createEntity", createEntity, METH_VARARGS, nullptr },
   { "deleteEntity", deleteEntity, METH_VARARGS, nullptr },
   { "entity", entity, METH_VARARGS, nullptr },
   { "pointerOrNull", pointerOrNull, METH_VARARGS, nullptr },
   { "traceFacilityOrNull", traceFacilityOrNull, METH_VARARGS, nullptr },
   { "fromPtrInterface", fromPtrInterface, METH_O, nullptr },
   { "get", get, METH_VARARGS, nullptr },
   { "set", set, METH_VARARGS, nullptr },
   { "del_", del, METH_VARARGS, nullptr },
   { "genericAddress", genericAddress, METH_O, nullptr },
   { "genericReferences", genericReferences, METH_O, nullptr },
   { "typeNames", typeNames, METH_NOARGS, nullptr },
   { "leaveError", leaveError, METH_NOARGS, nullptr },
   { "emptyView", emptyView, METH_VARARGS, nullptr },
   {},
};

} // namespace

extern "C" __attribute__( ( visibility( "default" ) ) ) void initkel_objects() {
   Py_InitModule( "kel_objects", functions );
}
