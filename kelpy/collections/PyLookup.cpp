#include <kelpy/collections/PyLookup.h>

#include <kel/Exception.h>
#include <kelpy/convert/GenericIfToPyObject.h>
#include <kelpy/convert/PyObjectToGenericIf.h>
#include <kelpy/core/PyHooks.h>
#include <kelpy/core/PyRef.h>
#include <kelpy/objects/MountProxyAnchor.h>
#include <kelpy/objects/PyStage.h>

namespace {

using Generic = Kel::Ptr< Kel::GenericIf >;

bool exists( Kel::KelAttr const& attr, Generic const& gif, Generic const& key ) {
   try {
      return attr.genericIfExist( gif, key );
   } catch( Kel::OpNotSupportedException const& ) {
      return true;
   }
}

// The error's arguments hold the key itself, also when the key is a tuple.
PyObject* raiseKeyError( PyObject* key ) {
   auto const args = PyRef::steal( PyTuple_Pack( 1, key ) );
   if( args ) {
      PyErr_SetObject( PyExc_KeyError, args.get() );
   }
   return nullptr;
}

// The runtime's half of a read; the key has been resolved. The GIL is back at the end.
PyObject* readMember( Stage< Kel::KelAttr >& stage, Kel::PyLockAnchor& locks, PyGenericIf* parent,
   Kel::KelAttr const& attr, PyObject* resolvedKey, bool useDefaultAttr ) {
   stage.is( "index: " );
   auto const key = PyObjectToGenericIf( resolvedKey, attr.indexType(), false );
   stage.is( "membership check: " );
   auto const gif = PyGenericIfToGenericIf( parent );
   bool const isArray =
      attr.flag( Kel::AttrFlag::isPodArray ) || attr.flag( Kel::AttrFlag::isDynArray );
   if( !isArray && !exists( attr, gif, key ) ) {
      locks.gilHeldIs( true );
      return raiseKeyError( resolvedKey );
   }
   stage.is( "" );
   auto result = attr.genericIfGet( gif, key );
   locks.gilHeldIs( true );
   return GenericIfToPyObject( std::move( result ), useDefaultAttr );
}

} // namespace

PyObject* pyGenericIfGet(
   PyGenericIf* parent, Kel::KelAttr const& attr, PyObject* key, bool useDefaultAttr ) {
   Stage stage( attr, "resolution: " );
   return guarded( stage, noObject, [&] {
      MountProxyAnchor const proxy( key );
      return underLocks( Kel::flags0, stage, noObject, [&]( Kel::PyLockAnchor& locks ) {
         return readMember( stage, locks, parent, attr, proxy.resolved(), useDefaultAttr );
      } );
   } );
}

int pyGenericIfExist( PyGenericIf* parent, Kel::KelAttr const& attr, PyObject* key ) {
   Stage stage( attr, "resolution: " );
   return guarded( stage, -1, [&] {
      MountProxyAnchor const proxy( key );
      return underLocks( Kel::flags0, stage, -1, [&]( Kel::PyLockAnchor& ) -> int {
         stage.is( "index: " );
         auto const converted = PyObjectToGenericIf( proxy.resolved(), attr.indexType(), false );
         stage.is( "" );
         return exists( attr, PyGenericIfToGenericIf( parent ), converted );
      } );
   } );
}

Py_ssize_t pyGenericIfMembers( PyGenericIf* parent, Kel::KelAttr const& attr ) {
   Stage const stage( attr, "" );
   return underLocks( Kel::flags0, stage, Py_ssize_t( -1 ), [&]( Kel::PyLockAnchor& ) {
      return static_cast< Py_ssize_t >( attr.genericIfMembers( PyGenericIfToGenericIf( parent ) ) );
   } );
}

PyObject* pyGenericIfVersion( PyGenericIf* parent, Kel::KelAttr const& attr ) {
   Stage const stage( attr, "" );
   return underLocks( Kel::flags0, stage, noObject, [&]( Kel::PyLockAnchor& locks ) {
      unsigned long const version = attr.genericIfVersion( PyGenericIfToGenericIf( parent ) );
      locks.gilHeldIs( true );
      return PyLong_FromUnsignedLong( version );
   } );
}

namespace {

// The collection as an attribute read gives it, a static one from the class that declares it.
PyRef collectionObject( PyGenericIf* parent, Kel::KelAttr const& attr ) {
   auto* const owner = parent ? reinterpret_cast< PyObject* >( parent )
                              : reinterpret_cast< PyObject* >( getOrCreatePyType( attr.scope() ) );
   return owner ? PyRef::steal( PyObject_GetAttrString( owner, attr.name() ) ) : PyRef();
}

// The hook may veto, but cannot change the answer. False with a Python error.
bool callGetitemHook( PyGenericIf* parent, Kel::KelAttr const& attr, PyObject* key ) {
   if( !getitemHook_ ) {
      return true;
   }
   auto const hook = PyRef::borrow( getitemHook_ ); // which may replace itself
   auto const collection = collectionObject( parent, attr );
   if( !collection ) {
      return false;
   }
   return static_cast< bool >(
      PyRef::steal( PyObject_CallFunctionObjArgs( hook.get(), collection.get(), key, nullptr ) ) );
}

} // namespace

PyObject* PyGenericIfCollection_subscript_helper(
   PyGenericIf* parent, Kel::KelAttr const& attr, PyObject* key ) {
   if( !callGetitemHook( parent, attr, key ) ) {
      return nullptr;
   }
   return pyGenericIfGet( parent, attr, key, true );
}

PyObject* PyGenericIfCollection_get_helper(
   PyGenericIf* parent, Kel::KelAttr const& attr, PyObject* args ) {
   PyObject* key = nullptr;
   PyObject* fallback = Py_None;
   if( !PyArg_ParseTuple( args, "O|O:get", &key, &fallback ) ) {
      return nullptr;
   }
   PyObject* const member = pyGenericIfGet( parent, attr, key, true );
   // A vector has positions, which nobody asks for on the chance that they exist.
   if( member || !PyErr_ExceptionMatches( PyExc_KeyError ) || attr.isVector() ) {
      return member;
   }
   PyErr_Clear();
   Py_INCREF( fallback );
   return fallback;
}

PyObject* PyGenericIfCollection_has_key_helper(
   PyGenericIf* parent, Kel::KelAttr const& attr, PyObject* args ) {
   PyObject* key = nullptr;
   if( !PyArg_ParseTuple( args, "O:has_key", &key ) ) {
      return nullptr;
   }
   int const result = pyGenericIfExist( parent, attr, key );
   return result == -1 ? nullptr : PyBool_FromLong( result );
}
