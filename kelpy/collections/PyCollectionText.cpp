// What a collection says of itself, and when two of them are equal.
#include <kelpy/collections/PyCollection.h>

#include <kel/Assert.h>
#include <kel/Entity.h>
#include <kelpy/collections/PyIterator.h>
#include <kelpy/core/PyMarshal.h>
#include <kelpy/core/PyRef.h>
#include <kelpy/objects/PyStage.h>

namespace {

PyGenericIfAttr* asCollection( PyObject* object ) {
   return reinterpret_cast< PyGenericIfAttr* >( object );
}

PyObject* asObject( PyGenericIf* wrapper ) {
   return reinterpret_cast< PyObject* >( wrapper );
}

PyRef newIterator( PyGenericIfAttr* self, PyGenericIfIteratorMode mode ) {
   return PyRef::steal( pyGenericIfIterator( self->parent, self->kelAttr, mode ) );
}

// The parent as an entity; the parent is not null. Activity lock.
Kel::Entity* entityOf( PyGenericIfAttr const* self ) {
   void* const ent =
      PyGenericIfToGenericIf( self->parent )->voidPtrIs( Kel::kelType< Kel::Entity >() );
   KEL_ASSERT( ent );
   return static_cast< Kel::Entity* >( ent );
}

// The address of the parent's object; the parent is not null. Activity lock.
void* addressOfParent( PyGenericIfAttr const* self ) {
   auto const gif = PyGenericIfToGenericIf( self->parent );
   return gif->voidPtrIs( kelTypeOf( asObject( self->parent ) ) );
}

} // namespace

PyObject* itemDict( PyGenericIfAttr* self ) {
   auto const iterator = newIterator( self, PyGenericIfIteratorMode::item );
   if( !iterator ) {
      return nullptr;
   }
   auto dict = PyRef::steal( PyDict_New() );
   if( !dict || PyDict_MergeFromSeq2( dict.get(), iterator.get(), 1 ) != 0 ) {
      return nullptr;
   }
   return dict.release();
}

int listContains( PyGenericIfAttr* self, PyObject* value ) {
   auto const iterator = newIterator( self, PyGenericIfIteratorMode::value );
   if( !iterator ) {
      return -1;
   }
   int result = 0;
   while( result == 0 ) {
      auto const element = PyRef::steal( PyIter_Next( iterator.get() ) );
      if( !element ) {
         break;
      }
      result = PyObject_RichCompareBool( element.get(), value, Py_EQ );
   }
   return PyErr_Occurred() ? -1 : result;
}

namespace {

PyObject* reprOfContents( PyGenericIfAttr* self ) {
   PyRef contents;
   if( self->kelAttr.isVector() ) {
      contents = PyRef::steal( PyGenericIfCollection_kvi_helper< PyGenericIfIteratorMode::value >(
         self->parent, self->kelAttr ) );
   } else {
      contents = PyRef::steal( itemDict( self ) );
   }
   return contents ? PyObject_Repr( contents.get() ) : nullptr;
}

PyObject* reprOfEntityCollection( PyGenericIfAttr const* self ) {
   char const* const name = self->kelAttr.name();
   if( !self->parent ) {
      return PyString_FromFormat( "entityCollection('None.%s')", name );
   }
   Stage const stage( self->kelAttr, "" );
   return underLocks( Kel::flags0, stage, noObject, [&]( Kel::PyLockAnchor& locks ) {
      auto const text =
         Kel::_fmt( "entityCollection('%s.%s')", entityOf( self )->fullName().charPtr(), name );
      locks.gilHeldIs( true );
      return PyStr_FromKelString( text );
   } );
}

PyObject* reprOfObjectCollection( PyGenericIfAttr const* self ) {
   char const* const name = self->kelAttr.name();
   if( !self->parent ) {
      return PyString_FromFormat( "genericCollection(None,'%s')", name );
   }
   Stage const stage( self->kelAttr, "" );
   return underLocks( Kel::flags0, stage, noObject, [&]( Kel::PyLockAnchor& locks ) {
      auto const text = Kel::_fmt( "genericCollection(0x%016lx,'%s')",
         reinterpret_cast< unsigned long >( addressOfParent( self ) ), name );
      locks.gilHeldIs( true );
      return PyStr_FromKelString( text );
   } );
}

} // namespace

PyObject* PyGenericIfCollection_repr( PyObject* object ) {
   PyGenericIfAttr* const self = asCollection( object );
   Kel::KelType const owner = self->kelAttr.scope();
   if( owner.isValue() ) {
      return reprOfContents( self );
   }
   return owner.isEntity() ? reprOfEntityCollection( self ) : reprOfObjectCollection( self );
}

PyObject* PyGenericIfCollection_str( PyObject* object ) {
   constexpr char const* format = "<Kel._Collection '%s' of %s>";
   Kel::KelAttr const attr = asCollection( object )->kelAttr;
   if( attr.isStatic() || attr.scope().isValue() ) {
      return PyString_FromFormat( format, attr.name(), attr.scope().fullTypeName() );
   }
   auto const parent = PyRef::steal( PyGenericIfAttr_parent_get( object, nullptr ) );
   auto const text = PyRef::steal( PyObject_Repr( parent.get() ) );
   if( !text ) {
      return nullptr;
   }
   return PyString_FromFormat( format, attr.name(), PyString_AS_STRING( text.get() ) );
}

namespace {

PyObject* notImplemented() {
   Py_INCREF( Py_NotImplemented );
   return Py_NotImplemented;
}

bool isSameAttr( PyGenericIfAttr const* a, PyGenericIfAttr const* b ) {
   return a->kelAttr.module() == b->kelAttr.module() &&
          a->kelAttr.attrIndex() == b->kelAttr.attrIndex();
}

// Activity lock.
bool isSameObject( PyGenericIfAttr const* a, PyGenericIfAttr const* b ) {
   if( !a->parent || !b->parent ) {
      return a->parent == b->parent;
   }
   return addressOfParent( a ) == addressOfParent( b );
}

PyObject* compareContents( PyGenericIfAttr* a, PyGenericIfAttr* b, int op ) {
   auto const contents = PyRef::steal( itemDict( a ) );
   if( !contents ) {
      return nullptr;
   }
   auto const otherContents = PyRef::steal( itemDict( b ) );
   return otherContents ? PyObject_RichCompare( contents.get(), otherContents.get(), op ) : nullptr;
}

// The contents are not looked at.
PyObject* compareIdentities( PyGenericIfAttr const* a, PyGenericIfAttr const* b, int op ) {
   Stage const stage( a->kelAttr, "" );
   return underLocks( Kel::flags0, stage, noObject, [&]( Kel::PyLockAnchor& locks ) {
      bool const isSame = isSameObject( a, b ) && isSameAttr( a, b );
      locks.gilHeldIs( true );
      return PyBool_FromLong( isSame == ( op == Py_EQ ) );
   } );
}

} // namespace

PyObject* PyGenericIfCollection_richcompare( PyObject* self, PyObject* other, int op ) {
   if( Py_TYPE( self ) != Py_TYPE( other ) ) {
      return notImplemented();
   }
   PyGenericIfAttr* const a = asCollection( self );
   PyGenericIfAttr* const b = asCollection( other );
   Kel::KelType const owner = a->kelAttr.scope();
   if( owner.isValue() ) {
      return isSameAttr( a, b ) ? compareContents( a, b, op ) : notImplemented();
   }
   if( op == Py_EQ || op == Py_NE ) {
      return compareIdentities( a, b, op );
   }
   PyErr_Format(
      PyExc_TypeError, "%s does not support relational operators", owner.fullTypeName() );
   return nullptr;
}

PyObject* PyGenericIfCollection_fullName_get( PyObject* object, void* ) {
   PyGenericIfAttr const* const self = asCollection( object );
   Kel::KelAttr const attr = self->kelAttr;
   char const* const owner = attr.scope().fullTypeName();
   if( !self->parent ) {
      PyErr_Format(
         PyExc_AttributeError, "static attribute %s.%s has no fullName", owner, attr.name() );
      return nullptr;
   }
   if( !attr.scope().isDerived( Kel::kelType< Kel::Entity >() ) ) {
      PyErr_Format( PyExc_AttributeError, "'%s' object has no attribute 'fullName'", owner );
      return nullptr;
   }
   Stage const stage( attr, "" );
   return underLocks( Kel::flags0, stage, noObject, [&]( Kel::PyLockAnchor& locks ) {
      Kel::String const fullName = entityOf( self )->fullName();
      locks.gilHeldIs( true );
      return PyString_FromFormat( "%s.%s", fullName.charPtr(), attr.name() );
   } );
}
