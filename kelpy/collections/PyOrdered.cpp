// The ends of ordered collections, and emptying a collection of any kind.
#include <kelpy/collections/PyMutation.h>

#include <cstring>
#include <vector>

#include <kel/Assert.h>
#include <kelpy/convert/GenericIfToPyObject.h>
#include <kelpy/convert/PyObjectToGenericIf.h>
#include <kelpy/objects/MountProxyAnchor.h>
#include <kelpy/objects/PyStage.h>

namespace {

using Generic = Kel::Ptr< Kel::GenericIf >;

// Reads an element by an operation of the runtime.
template< class Read >
PyObject* readElement( PyGenericIf* parent, Kel::KelAttr attr, Read read ) {
   Stage const stage( attr, "" );
   return underLocks( Kel::flags0, stage, noObject, [&]( Kel::PyLockAnchor& locks ) {
      Generic element = read( PyGenericIfToGenericIf( parent ) );
      locks.gilHeldIs( true );
      return GenericIfToPyObject( std::move( element ), true );
   } );
}

} // namespace

PyObject* pyGenericIfAdd( PyGenericIf* parent, Kel::KelAttr attr, PyObject* value ) {
   Stage stage( attr, "resolution: " );
   return guarded( stage, noObject, [&] {
      MountProxyAnchor const proxy( value );
      return underLocks( Kel::flags0, stage, noObject, [&]( Kel::PyLockAnchor& locks ) {
         KEL_ASSERT( !attr.instantiating() );
         stage.is( "" );
         auto const converted =
            PyObjectToGenericIf( proxy.resolved(), attr.memberType(), attr.isOptionalValue() );
         stage.is( "mutator: " );
         attr.genericIfAdd( PyGenericIfToGenericIf( parent ), converted );
         locks.gilHeldIs( true );
         Py_RETURN_NONE;
      } );
   } );
}

PyObject* pyGenericIfRemove( PyGenericIf* parent, Kel::KelAttr attr ) {
   return readElement(
      parent, attr, [attr]( Generic const& gif ) { return attr.genericIfRemove( gif ); } );
}

PyObject* pyGenericIfFront( PyGenericIf* parent, Kel::KelAttr attr ) {
   return readElement(
      parent, attr, [attr]( Generic const& gif ) { return attr.genericIfFront( gif ); } );
}

PyObject* pyGenericIfBack( PyGenericIf* parent, Kel::KelAttr attr ) {
   return readElement(
      parent, attr, [attr]( Generic const& gif ) { return attr.genericIfBack( gif ); } );
}

namespace {

// All of these run with the activity lock and without the GIL.

void clearVector( Kel::KelAttr attr, Generic const& gif ) {
   for( auto left = attr.genericIfMembers( gif ); left != 0; --left ) {
      attr.genericIfRemove( gif );
   }
}

std::vector< Generic > snapshotOfKeys( Kel::KelAttr attr, Generic const& gif ) {
   std::vector< Generic > keys;
   for( auto iterator = attr.genericIfIterator( gif ); iterator; ++iterator ) {
      keys.push_back( iterator.key() );
   }
   return keys;
}

// Whether the members are places that always exist.
bool isResetByClear( Kel::KelAttr attr ) {
   return attr.flag( Kel::AttrFlag::isDynArray ) &&
          std::strcmp( attr.indexType().fullTypeName(), "U32" ) == 0 &&
          !attr.flag( Kel::AttrFlag::hasPackedRep );
}

Generic defaultMember( Kel::KelType type ) {
   if( type.isValue() || type.hasOwnPtrInterface() ) {
      return type.genericIf( static_cast< void const* >( nullptr ), false );
   }
   return Kel::KelType::genericIf( static_cast< Kel::PtrInterface* >( nullptr ), false );
}

// The iterator is gone before the first change.
void clearKeyed( Stage< Kel::KelAttr >& stage, Kel::KelAttr attr, Generic const& gif ) {
   stage.is( "iteration: " );
   auto const keys = snapshotOfKeys( attr, gif );
   stage.is( "" );
   if( isResetByClear( attr ) ) {
      Generic const member = defaultMember( attr.memberType() );
      for( Generic const& key : keys ) {
         attr.genericIfSet( gif, key, member );
      }
   } else {
      for( Generic const& key : keys ) {
         attr.genericIfDel( gif, key );
      }
   }
}

} // namespace

int pyGenericIfClear( PyGenericIf* parent, Kel::KelAttr attr ) {
   Stage stage( attr, "" );
   return underLocks( Kel::flags0, stage, -1, [&]( Kel::PyLockAnchor& ) {
      auto const gif = PyGenericIfToGenericIf( parent );
      if( attr.isVector() ) {
         clearVector( attr, gif );
      } else {
         clearKeyed( stage, attr, gif );
      }
      return 0;
   } );
}
