// copy.copy and copy.deepcopy of values.
#include <kelpy/objects/PyValue.h>

#include <kelpy/objects/PyStage.h>

namespace {

// Whether a value of the type holds a pointer in its independent domain; a pointer type does.
bool containsPtr( Kel::KelType type ) {
   if( !type ) {
      return false;
   }
   if( !type.isValue() ) {
      return true;
   }
   for( Kel::KelType::AttributeQIterator i( type ); i; ++i ) {
      Kel::KelAttr const attr = *i;
      if( attr.flag( Kel::AttrFlag::isIndependentDomainAttr ) &&
          ( containsPtr( attr.memberType() ) || containsPtr( attr.indexType() ) ) ) {
         return true;
      }
   }
   return false;
}

PyObject* newCopy( PyObject* self, Kel::KelType type ) {
   Stage const stage( type, "" );
   return underLocks( Kel::flags0, stage, noObject, [&]( Kel::PyLockAnchor& locks ) {
      auto const gif = PyGenericIfToGenericIf( reinterpret_cast< PyGenericIf* >( self ) );
      auto copy = type.genericIf( static_cast< void const* >( gif->voidPtrIs( type ) ), false );
      locks.gilHeldIs( true );
      return MakePyGenericIf( std::move( copy ) );
   } );
}

// A const value never changes, so that it is its own copy.
PyObject* PyGenericIf_copyHelper( PyObject* self, bool deep ) {
   Kel::KelType const type = kelTypeOfSelf( self );
   if( !type ) {
      return nullptr;
   }
   if( !type.isValue() || ( deep && containsPtr( type ) ) ) {
      PyErr_Format( PyExc_TypeError, "%s objects cannot be %scopied", type.fullTypeName(),
         deep ? "deep " : "" );
      return nullptr;
   }
   if( reinterpret_cast< PyGenericIf* >( self )->gif->isConst() ) {
      Py_INCREF( self );
      return self;
   }
   return newCopy( self, type );
}

} // namespace

PyObject* PyGenericIf_copy( PyObject* self, PyObject* ) {
   return PyGenericIf_copyHelper( self, false );
}

PyObject* PyGenericIf_deepcopy( PyObject* self, PyObject* ) {
   return PyGenericIf_copyHelper( self, true );
}
