// Calls of classes: the objects that Python makes in the runtime. Entered with the GIL held; the
// object is constructed under the activity lock without it.
#include <kelpy/objects/PyGenericIf.h>

#include <cstring>

#include <kel/Assert.h>
#include <kelpy/convert/PyTupleToGenericIfVector.h>
#include <kelpy/core/PyHooks.h>
#include <kelpy/core/PyRef.h>
#include <kelpy/objects/MountProxyAnchor.h>
#include <kelpy/objects/PyStage.h>

namespace {

// False with the hook's error. The hook may replace itself while it runs.
bool runNewInstanceHook( PyTypeObject* cls ) {
   if( !newInstanceHook_ ) {
      return true;
   }
   auto const hook = PyRef::borrow( newInstanceHook_ );
   char format[] = "O";
   auto const result = PyRef::steal( PyObject_CallFunction( hook.get(), format, cls ) );
   return static_cast< bool >( result );
}

// A value without arguments is the type's default value.
Kel::Ptr< Kel::GenericIf > constructed( Kel::KelType type, PyObject* args ) {
   if( type.isValue() && PyTuple_GET_SIZE( args ) == 0 ) {
      return type.genericIf( static_cast< void const* >( nullptr ), false );
   }
   return type.genericIf( PyTupleToGenericIfVector( args, type ), false );
}

// A new wrapper of the class of what the runtime made, or null with a Python error.
PyObject* construct( Kel::KelType type, PyObject* args ) {
   Stage stage( type, "resolution: " );
   return guarded( stage, noObject, [&] {
      MountProxyAnchor const proxies( args );
      PyObject* const resolvedCtorArgs = proxies.resolved();
      return underLocks( Kel::flags0, stage, noObject, [&]( Kel::PyLockAnchor& locks ) {
         KEL_ASSERT(
            PyType_FastSubclass( Py_TYPE( resolvedCtorArgs ), Py_TPFLAGS_TUPLE_SUBCLASS ) );
         stage.is( "" );
         auto gif = constructed( type, resolvedCtorArgs );
         locks.gilHeldIs( true );
         return MakePyGenericIf( std::move( gif ) );
      } );
   } );
}

bool isConstructorArg( Kel::KelType type, char const* name ) {
   for( auto arg = type.constructorArgs(); arg->nameOffset() != 0; ++arg ) {
      if( std::strcmp( type.module()->attrNamePool + arg->nameOffset(), name ) == 0 ) {
         return true;
      }
   }
   return false;
}

// Tells what to do instead where the runtime refused to change a constructor argument; any other
// pending error stands as it is.
void explainRefusal( Kel::KelType type, char const* name ) {
   if( !PyErr_ExceptionMatches( PyExc_NotImplementedError ) || !isConstructorArg( type, name ) ) {
      return;
   }
   Kel::KelAttr const attr = type.attr( name );
   if( !attr || attr.writable() ) {
      return;
   }
   PyErr_Clear();
   PyErr_Format( PyExc_NotImplementedError,
      "cannot mutate non-writable constructor parameter %s.%s; to call the non-default "
      "constructor, pass the constructor parameters as positional arguments",
      type.fullTypeName(), name );
}

// False with a Python error.
bool assignKeyword( PyObject* object, Kel::KelType type, PyObject* key, PyObject* value ) {
   char* name = nullptr;
   Py_ssize_t length = 0;
   if( PyString_AsStringAndSize( key, &name, &length ) == -1 ) {
      return false;
   }
   if( std::strlen( name ) != static_cast< std::size_t >( length ) ) {
      PyErr_SetString( PyExc_ValueError, "string must not contain embedded NULs" );
      return false;
   }
   if( PyObject_SetAttrString( object, name, value ) == -1 ) {
      explainRefusal( type, name );
      return false;
   }
   return true;
}

bool assignKeywords( PyObject* object, Kel::KelType type, PyObject* kwds ) {
   PyObject* key = nullptr;
   PyObject* value = nullptr;
   Py_ssize_t position = 0;
   while( PyDict_Next( kwds, &position, &key, &value ) ) {
      auto const keyRef = PyRef::borrow( key );
      auto const valueRef = PyRef::borrow( value );
      if( !assignKeyword( object, type, key, value ) ) {
         return false;
      }
   }
   return true;
}

} // namespace

PyObject* PyGenericIf_new( PyTypeObject* cls, PyObject* args, PyObject* kwds ) {
   Kel::KelType const type = kelTypeOfClass( cls );
   KEL_ASSERT( !type.isBuiltinType() );
   KEL_ASSERT( !type.isEnumType() );
   if( kwds && PyDict_Size( kwds ) != 0 && !type.isValue() ) {
      PyErr_SetString( PyExc_TypeError, "keyword arguments are not supported" );
      return nullptr;
   }
   if( !runNewInstanceHook( cls ) ) {
      return nullptr;
   }
   auto object = PyRef::steal( construct( type, args ) );
   if( !object || !kwds ) {
      return object.release();
   }
   return assignKeywords( object.get(), type, kwds ) ? object.release() : nullptr;
}
