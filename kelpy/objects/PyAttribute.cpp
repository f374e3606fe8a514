#include <kelpy/objects/PyAttribute.h>

#include <kel/Assert.h>
#include <kelpy/classes/PyGenericIfAttrDescriptor.h>
#include <kelpy/convert/GenericIfToPyObject.h>
#include <kelpy/convert/PyObjectToGenericIf.h>
#include <kelpy/convert/PyTupleToGenericIfVector.h>
#include <kelpy/core/PyHooks.h>
#include <kelpy/core/PyRef.h>
#include <kelpy/objects/MountProxyAnchor.h>
#include <kelpy/objects/PyGenericIfAttr.h>
#include <kelpy/objects/PyStage.h>
#include <kelpy/reflection/PyKelAttr.h>

PyObject* pyGenericIfGet( PyGenericIf* self, Kel::KelAttr const& attr, bool useDefaultAttr ) {
   Stage const stage( attr, "" );
   return underLocks( Kel::flags0, stage, noObject, [&]( Kel::PyLockAnchor& locks ) {
      auto result = attr.genericIfGet( PyGenericIfToGenericIf( self ), nullptr );
      locks.gilHeldIs( true );
      return GenericIfToPyObject( std::move( result ), useDefaultAttr );
   } );
}

namespace {

// Whether attributes of this sort can be written at all; false with a TypeError. No attribute can
// be deleted, which is told first.
bool checkWritableSort( PyGenericIfAttrDescriptor const* self, PyObject* value ) {
   Kel::KelAttr const& attr = self->attr;
   char const* format = nullptr;
   char const* name = attr.name();
   if( !value ) {
      format = "cannot delete attribute %s.%s";
   } else if( attr.isEnumConst() ) {
      format = "cannot write enum constant %s.%s";
   } else if( attr.isCollection() ) {
      if( self->kind == PyGenericIfAttrDescriptor::Kind::Attribute ) {
         format = "cannot write collection attribute %s.%s";
      } else {
         format = "cannot write method %s.%s";
         name = PyString_AS_STRING( self->name );
      }
   } else if( attr.isFunction() ) {
      format = "cannot write function attribute %s.%s";
   } else {
      return true;
   }
   PyErr_Format( PyExc_TypeError, format, attr.scope().fullTypeName(), name );
   return false;
}

// False with a TypeError for an object of a class that does not have the attribute.
inline bool checkObject( PyGenericIfAttrDescriptor* self, PyObject* object ) {
   if( Py_TYPE( object ) == self->lastClass ) {
      return true;
   }
   Kel::KelType const scope = self->attr.scope();
   if( PyGenericIf_TypeCheck( object, scope ) ) {
      self->lastClass = Py_TYPE( object );
      return true;
   }
   PyErr_Format( PyExc_TypeError, "descriptor '%s' requires a '%s' object but received a '%s'",
      PyString_AS_STRING( self->name ), scope.fullTypeName(), Py_TYPE( object )->tp_name );
   return false;
}

// The object that the attribute is asked of: none for a static one.
PyGenericIf* parentOf( PyGenericIfAttrDescriptor const* self, PyObject* object ) {
   return self->isStatic ? nullptr : reinterpret_cast< PyGenericIf* >( object );
}

PyTypeObject* collectionReadType( PyGenericIfAttrDescriptor const* self ) {
   switch( self->kind ) {
   case PyGenericIfAttrDescriptor::Kind::NewMember:
      return &PyGenericIfNewMemberFuncType;
   case PyGenericIfAttrDescriptor::Kind::AddMember:
      return &PyGenericIfAddMemberFuncType;
   default:
      KEL_ASSERT( self->kind == PyGenericIfAttrDescriptor::Kind::Attribute );
      return &PyGenericIfCollectionType;
   }
}

PyObject* readAttribute( PyGenericIfAttrDescriptor const* self, PyGenericIf* parent ) {
   Kel::KelAttr const& attr = self->attr;
   switch( self->read ) {
   case PyGenericIfAttrDescriptor::Read::constant:
      return PyString_InternFromString( attr.name() );
   case PyGenericIfAttrDescriptor::Read::collection:
      return MakePyGenericIfAttr( collectionReadType( self ), parent, attr );
   case PyGenericIfAttrDescriptor::Read::function:
      return MakePyGenericIfAttr( &PyGenericIfFunctionType, parent, attr );
   default:
      return pyGenericIfGet( parent, attr, true );
   }
}

// None for an instantiating attribute unsets it.
int unsetAttribute( PyGenericIf* parent, Kel::KelAttr const& attr ) {
   Stage const stage( attr, "" );
   return underLocks( Kel::flags0, stage, -1, [&]( Kel::PyLockAnchor& locks ) {
      attr.genericIfDel( PyGenericIfToGenericIf( parent ), nullptr );
      locks.gilHeldIs( true );
      return 0;
   } );
}

// Converts and writes a value, or makes the object of an instantiating attribute from a tuple.
void convertAndSet(
   Stage< Kel::KelAttr >& stage, PyGenericIf* parent, Kel::KelAttr const& attr, PyObject* value ) {
   stage.is( "" );
   if( attr.instantiating() ) {
      auto const args = PyTupleToGenericIfVector( value, attr );
      stage.is( "mutator: " );
      attr.genericIfSet( PyGenericIfToGenericIf( parent ), args );
   } else {
      auto const converted =
         PyObjectToGenericIf( value, attr.memberType(), attr.isOptionalValue() );
      stage.is( "mutator: " );
      attr.genericIfSet( PyGenericIfToGenericIf( parent ), nullptr, converted );
   }
}

int writeAttribute( PyGenericIf* parent, Kel::KelAttr const& attr, PyObject* value ) {
   Stage stage( attr, "resolution: " );
   return guarded( stage, -1, [&] {
      MountProxyAnchor const proxy( value );
      return underLocks( Kel::flags0, stage, -1, [&]( Kel::PyLockAnchor& ) {
         convertAndSet( stage, parent, attr, proxy.resolved() );
         return 0;
      } );
   } );
}

PyGenericIfAttrDescriptor* asDescriptor( PyObject* object ) {
   return reinterpret_cast< PyGenericIfAttrDescriptor* >( object );
}

} // namespace

PyObject* PyGenericIfAttrDescriptor_descr_get( PyObject* self, PyObject* object, PyObject* ) {
   auto const descriptor = asDescriptor( self );
   if( object ) {
      if( !checkObject( descriptor, object ) ) {
         return nullptr;
      }
   } else if( !descriptor->isStatic ) {
      PyErr_Format( PyExc_AttributeError,
         "accessing non-static attribute '%s' requires an instance",
         PyString_AS_STRING( descriptor->name ) );
      return nullptr;
   }
   ++attributeAccessorCount_;
   return readAttribute( descriptor, parentOf( descriptor, object ) );
}

int PyGenericIfAttrDescriptor_descr_set( PyObject* self, PyObject* object, PyObject* value ) {
   auto const descriptor = asDescriptor( self );
   if( !checkObject( descriptor, object ) || !checkWritableSort( descriptor, value ) ) {
      return -1;
   }
   Kel::KelAttr const& attr = descriptor->attr;
   PyGenericIf* const parent = parentOf( descriptor, object );
   if( attr.instantiating() && value == Py_None ) {
      return unsetAttribute( parent, attr );
   }
   return writeAttribute( parent, attr, value );
}

namespace {

// The runtime's half of a write into a collection; both arguments have been resolved. The GIL is
// back at the end.
PyObject* setMember( Stage< Kel::KelAttr >& stage, Kel::PyLockAnchor& locks, PyGenericIf* self,
   Kel::KelAttr const& attr, PyObject* resolvedIndex, PyObject* resolvedRhs ) {
   bool const hasInternalIndex = static_cast< bool >( attr.indexAttr() );
   Kel::Ptr< Kel::GenericIf > key;
   if( !hasInternalIndex ) {
      if( attr.instantiating() ) {
         KEL_ASSERT( hasInternalIndex );
      }
      stage.is( "index: " );
      key = PyObjectToGenericIf( resolvedIndex, attr.indexType(), false );
   } else {
      KEL_ASSERT( !resolvedIndex );
      if( attr.instantiating() ) {
         stage.is( "" );
         auto const args = PyTupleToGenericIfVector( resolvedRhs, attr );
         stage.is( "mutator: " );
         auto result = attr.genericIfSet( PyGenericIfToGenericIf( self ), args );
         locks.gilHeldIs( true );
         return GenericIfToPyObject( std::move( result ), true );
      }
   }
   stage.is( "" );
   auto const value = PyObjectToGenericIf( resolvedRhs, attr.memberType(), attr.isOptionalValue() );
   stage.is( "mutator: " );
   attr.genericIfSet( PyGenericIfToGenericIf( self ), key, value );
   locks.gilHeldIs( true );
   Py_RETURN_NONE;
}

} // namespace

PyObject* pyGenericIfSet(
   PyGenericIf* self, Kel::KelAttr const& attr, PyObject* index, PyObject* rhs ) {
   Stage stage( attr, "index resolution: " );
   return guarded( stage, noObject, [&] {
      MountProxyAnchor const indexProxy( index );
      stage.is( "rhs resolution: " );
      MountProxyAnchor const rhsProxy( rhs );
      return underLocks( Kel::flags0, stage, noObject, [&]( Kel::PyLockAnchor& locks ) {
         return setMember( stage, locks, self, attr, indexProxy.resolved(), rhsProxy.resolved() );
      } );
   } );
}

int pyGenericIfDel( PyGenericIf* self, Kel::KelAttr const& attr, PyObject* index ) {
   Stage stage( attr, "resolution: " );
   return guarded( stage, -1, [&] {
      MountProxyAnchor const proxy( index );
      return underLocks( Kel::flags0, stage, -1, [&]( Kel::PyLockAnchor& ) {
         stage.is( "index: " );
         auto const key = PyObjectToGenericIf( proxy.resolved(), attr.indexType(), false );
         stage.is( "" );
         attr.genericIfDel( PyGenericIfToGenericIf( self ), key );
         return 0;
      } );
   } );
}

namespace {

// The attribute of a wrapper's class; null with a Python error.
Kel::KelAttr findAttr( PyObject* self, char const* name ) {
   Kel::KelType const type = kelTypeOfSelf( self );
   if( !type ) {
      return {};
   }
   Kel::KelAttr const attr = type.attr( name );
   if( !attr ) {
      PyErr_Format(
         PyExc_AttributeError, "'%s' object has no attribute '%s'", type.fullTypeName(), name );
   }
   return attr;
}

} // namespace

PyObject* PyGenericIf_getRawAttribute( PyObject* self, PyObject* args ) {
   char const* name = nullptr;
   if( !PyArg_ParseTuple( args, "s:getRawAttribute", &name ) ) {
      return nullptr;
   }
   Kel::KelAttr const attr = findAttr( self, name );
   if( !attr ) {
      return nullptr;
   }
   char const* refusal = nullptr;
   if( attr.isEnumConst() ) {
      refusal = "getRawAttribute does not support enum constants";
   } else if( attr.isCollection() ) {
      refusal = "getRawAttribute does not support collection attributes";
   } else if( attr.isFunction() ) {
      refusal = "getRawAttribute does not support function attributes";
   }
   if( refusal ) {
      PyErr_SetString( PyExc_TypeError, refusal );
      return nullptr;
   }
   return pyGenericIfGet( reinterpret_cast< PyGenericIf* >( self ), attr, false );
}

PyObject* PyGenericIf_attrProperty( PyObject* self, PyObject* args ) {
   char const* attrName = nullptr;
   char const* propertyName = nullptr;
   if( !PyArg_ParseTuple( args, "ss:attrProperty", &attrName, &propertyName ) ) {
      return nullptr;
   }
   Kel::KelAttr const attr = findAttr( self, attrName );
   if( !attr ) {
      return nullptr;
   }
   auto const wrapper = PyRef::steal( PyKelAttr_FromKelAttr( attr ) );
   return wrapper ? PyObject_GetAttrString( wrapper.get(), propertyName ) : nullptr;
}

PyObject* PyGenericIf_getmethod( PyObject* self, PyObject* args ) {
   PyObject* name = nullptr;
   if( !PyArg_ParseTuple( args, "O!:_getmethod", &PyString_Type, &name ) ) {
      return nullptr;
   }
   return PyObject_GetAttr( self, name );
}
