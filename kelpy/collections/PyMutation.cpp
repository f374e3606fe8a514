#include <kelpy/collections/PyMutation.h>

#include <kelpy/collections/PyLookup.h>
#include <kelpy/core/PyRef.h>
#include <kelpy/objects/PyAttribute.h>
#include <kelpy/objects/PyStage.h>

namespace {

bool hasInternalIndex( Kel::KelAttr attr ) {
   return static_cast< bool >( attr.indexAttr() );
}

PyObject* refuse( char const* text ) {
   PyErr_SetString( PyExc_TypeError, text );
   return nullptr;
}

} // namespace

int PyGenericIfCollection_ass_subscript_helper(
   PyGenericIf* parent, Kel::KelAttr attr, PyObject* key, PyObject* value ) {
   if( !value ) {
      return pyGenericIfDel( parent, attr, key );
   }
   if( attr.instantiating() ) {
      refuse( "'__setitem__' not allowed for instantiating collection; use newMember instead" );
      return -1;
   }
   if( hasInternalIndex( attr ) ) {
      refuse( "'__setitem__' not allowed for collection with internal key; use addMember instead" );
      return -1;
   }
   return PyRef::steal( pyGenericIfSet( parent, attr, key, value ) ) ? 0 : -1;
}

namespace {

// Both locks are held, so that no other holder of the activity lock comes between read and write.
// The caller gets its own object back, not what the collection made of it.
PyObject* getOrSet( PyGenericIf* parent, Kel::KelAttr attr, PyObject* key, PyObject* fallback ) {
   PyObject* const member = pyGenericIfGet( parent, attr, key, true );
   if( member || !PyErr_ExceptionMatches( PyExc_KeyError ) ) {
      return member;
   }
   PyErr_Clear();
   if( !PyRef::steal( pyGenericIfSet( parent, attr, key, fallback ) ) ) {
      return nullptr;
   }
   Py_INCREF( fallback );
   return fallback;
}

} // namespace

PyObject* PyGenericIfCollection_setdefault_helper(
   PyGenericIf* parent, Kel::KelAttr attr, PyObject* args ) {
   if( attr.instantiating() ) {
      return refuse( "setdefault not allowed for instantiating collection" );
   }
   if( hasInternalIndex( attr ) ) {
      return refuse( "setdefault not allowed for collection with internal key" );
   }
   PyObject* key = nullptr;
   PyObject* fallback = Py_None;
   if( !PyArg_ParseTuple( args, "O|O:setdefault", &key, &fallback ) ) {
      return nullptr;
   }
   Stage const stage( attr, "" );
   return underLocks( Kel::flags4, stage, noObject,
      [&]( Kel::PyLockAnchor& ) { return getOrSet( parent, attr, key, fallback ); } );
}

PyObject* PyGenericIfCollection_newMember_helper(
   PyGenericIf* parent, Kel::KelAttr attr, PyObject* args ) {
   if( !attr.instantiating() ) {
      return refuse( "newMember not allowed for non-instantiating collection; use addMember or "
                     "__setitem__ instead" );
   }
   return pyGenericIfSet( parent, attr, nullptr, args );
}

PyObject* PyGenericIfCollection_addMember_helper(
   PyGenericIf* parent, Kel::KelAttr attr, PyObject* args ) {
   PyObject* value = nullptr;
   if( !PyArg_ParseTuple( args, "O:addMember", &value ) ) {
      return nullptr;
   }
   if( attr.instantiating() ) {
      return refuse( "addMember not allowed for instantiating collection; use newMember instead" );
   }
   if( !hasInternalIndex( attr ) ) {
      return refuse( "addMember not allowed for collection with external key; use __setitem__ "
                     "instead" );
   }
   return pyGenericIfSet( parent, attr, nullptr, value );
}

PyObject* PyGenericIfCollection_clear_helper( PyGenericIf* parent, Kel::KelAttr attr ) {
   if( pyGenericIfClear( parent, attr ) != 0 ) {
      return nullptr;
   }
   Py_RETURN_NONE;
}
