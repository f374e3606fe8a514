#include <kelpy/reflection/PyKelType.h>

#include <kel/Assert.h>
#include <kel/KelAttr.h>
#include <kelpy/core/PyRef.h>
#include <kelpy/reflection/PyKelAttr.h>
#include <kelpy/reflection/SchemaWrapper.h>

namespace {

WrapperCache< Kel::KelType > typeWrappers;

Kel::KelType typeOf( PyObject* self ) {
   return reinterpret_cast< PyKelType* >( self )->kelType;
}

PyObject* PyKelType_repr( PyObject* self ) {
   return PyString_FromFormat( "type('%s')", typeOf( self ).fullTypeName() );
}

PyObject* PyKelType_fullTypeName_get( PyObject* self, void* ) {
   return PyString_InternFromString( typeOf( self ).fullTypeName() );
}

PyObject* PyKelType_size_get( PyObject* self, void* ) {
   return PyLong_FromUnsignedLong( typeOf( self ).size() );
}

PyObject* PyKelType_align_get( PyObject* self, void* ) {
   return PyLong_FromUnsignedLong( typeOf( self ).align() );
}

PyObject* PyKelType_baseType_get( PyObject* self, void* ) {
   return PyKelType_FromKelType( typeOf( self ).baseType() );
}

PyObject* PyKelType_underlyingType_get( PyObject* self, void* ) {
   return PyKelType_FromKelType( typeOf( self ).underlyingType() );
}

PyObject* PyKelType_valAttr_get( PyObject* self, void* ) {
   return PyKelAttr_FromKelAttr( typeOf( self ).valAttr() );
}

PyObject* PyKelType_defaultCollection_get( PyObject* self, void* ) {
   return PyKelAttr_FromKelAttr( typeOf( self ).defaultCollection() );
}

template< bool ( Kel::KelTypeBase::*test )() const >
PyObject* PyKelType_test_get( PyObject* self, void* ) {
   return PyBool_FromLong( ( typeOf( self ).*test )() );
}

template< Kel::TypeFlag flag >
PyObject* PyKelType_flag_get( PyObject* self, void* ) {
   return PyBool_FromLong( typeOf( self ).flag( flag ) );
}

PyObject* PyKelType_attributeQ_get( PyObject* self, void* ) {
   Kel::KelType const type = typeOf( self );
   Kel::KelTypeBase::AttributeQIterator attr( type );
   return makeTuple( type.attributes(), [&] {
      PyObject* const item = PyKelAttr_FromKelAttr( *attr );
      ++attr;
      return item;
   } );
}

PyObject* PyKelType_constructorArgNameQ_get( PyObject* self, void* ) {
   Kel::KelType const type = typeOf( self );
   return argNameTuple( type.module(), type.constructorArgs(), type.constructorArgNames() );
}

PyObject* PyKelType_constructorArgTypeQ_get( PyObject* self, void* ) {
   Kel::KelType const type = typeOf( self );
   return argTypeTuple( type.module(), type.constructorArgs(), type.constructorArgNames() );
}

PyObject* PyKelType_isDerived( PyObject* self, PyObject* args ) {
   Kel::KelType type;
   if( !PyArg_ParseTuple( args, "O&:isDerived", Convert_To_KelType, &type ) ) {
      return nullptr;
   }
   return PyBool_FromLong( typeOf( self ).isDerived( type ) );
}

PyObject* attrByName( Kel::KelType type, PyObject* str ) {
   char const* const name = PyString_AsString( str );
   return name ? PyKelAttr_FromKelAttr( type.attr( name ) ) : nullptr;
}

PyObject* attrByUnicodeName( Kel::KelType type, PyObject* unicode ) {
   PyRef const encoded = PyRef::steal( PyUnicode_AsUTF8String( unicode ) );
   KEL_ASSERT( encoded );
   return attrByName( type, encoded.get() );
}

// The number is cut to the width of an id.
PyObject* attrById( Kel::KelType type, long number ) {
   return PyKelAttr_FromKelAttr( type.attr( static_cast< Kel::AttributeId >( number ) ) );
}

PyObject* attrByLongId( Kel::KelType type, PyObject* pyLong ) {
   long const number = PyLong_AsLong( pyLong );
   return PyErr_Occurred() ? nullptr : attrById( type, number );
}

// By exact type: subclasses are refused.
PyObject* PyKelType_attr( PyObject* self, PyObject* args ) {
   PyObject* key = nullptr;
   if( !PyArg_ParseTuple( args, "O:attr", &key ) ) {
      return nullptr;
   }
   if( Py_TYPE( key ) == &PyString_Type ) {
      return attrByName( typeOf( self ), key );
   }
   if( Py_TYPE( key ) == &PyUnicode_Type ) {
      return attrByUnicodeName( typeOf( self ), key );
   }
   if( Py_TYPE( key ) == &PyInt_Type ) {
      return attrById( typeOf( self ), PyInt_AsLong( key ) );
   }
   if( Py_TYPE( key ) == &PyLong_Type ) {
      return attrByLongId( typeOf( self ), key );
   }
   PyErr_SetString( PyExc_TypeError, "expected a str, int or long" );
   return nullptr;
}

constinit PyMethodDef PyKelType_methods[] = {
   { "isDerived", PyKelType_isDerived, METH_VARARGS, "is type in my chain of base types?" },
   { "attr", PyKelType_attr, METH_VARARGS, "retrieve an attribute by name or ID" },
   {},
};

template< Kel::TypeFlag which >
constexpr PyGetSetDef flag( char const* name ) {
   return named( name, PyKelType_flag_get< which > );
}

template< bool ( Kel::KelTypeBase::*which )() const >
constexpr PyGetSetDef test( char const* name ) {
   return named( name, PyKelType_test_get< which > );
}

using Kel::KelTypeBase;
using Kel::TypeFlag;

constinit PyGetSetDef PyKelType_getset[] = {
   readOnly( "fullTypeName", PyKelType_fullTypeName_get, "full type name" ),
   readOnly( "size", PyKelType_size_get, "size (in bytes)" ),
   readOnly( "align", PyKelType_align_get, "alignment (in bytes)" ),
   readOnly( "baseType", PyKelType_baseType_get, "base type" ),
   readOnly( "underlyingType", PyKelType_underlyingType_get, "underlying type of an enum type" ),
   named( "valAttr", PyKelType_valAttr_get ),
   readOnly( "defaultCollection", PyKelType_defaultCollection_get, "default collection" ),
   test< &KelTypeBase::isValue >( "isValue" ),
   test< &KelTypeBase::isEntity >( "isEntity" ),
   test< &KelTypeBase::isConstrainer >( "isConstrainer" ),
   test< &KelTypeBase::isBuiltinType >( "isBuiltinType" ),
   test< &KelTypeBase::isEnumType >( "isEnumType" ),
   test< &KelTypeBase::isBitSetType >( "isBitSetType" ),
   test< &KelTypeBase::hasOwnPtrInterface >( "hasOwnPtrInterface" ),
   flag< TypeFlag::hasAttrLogSupport >( "hasAttrLogSupport" ),
   flag< TypeFlag::isPolymorphic >( "isPolymorphic" ),
   flag< TypeFlag::hasBackupSupport >( "hasBackupSupport" ),
   flag< TypeFlag::isAbstractType >( "isAbstractType" ),
   flag< TypeFlag::containsOptionalsOrCollections >( "containsOptionalsOrCollections" ),
   flag< TypeFlag::toGnmiString >( "toGnmiString" ),
   flag< TypeFlag::gnmiDelete >( "gnmiDelete" ),
   flag< TypeFlag::toGnmiBytes >( "toGnmiBytes" ),
   test< &KelTypeBase::isUnionType >( "isUnionType" ),
   readOnly( "attributeQ", PyKelType_attributeQ_get, "attribute queue" ),
   readOnly(
      "constructorArgNameQ", PyKelType_constructorArgNameQ_get, "constructor arg name queue" ),
   readOnly(
      "constructorArgTypeQ", PyKelType_constructorArgTypeQ_get, "constructor arg type queue" ),
   {},
};

} // namespace

constinit PyTypeObject PyKelTypeType = {
   .ob_refcnt = 1,
   .tp_name = "_Kel.KelType",
   .tp_basicsize = sizeof( PyKelType ),
   .tp_repr = PyKelType_repr,
   .tp_flags = Py_TPFLAGS_DEFAULT,
   .tp_doc = "Wraps a Kel::KelType",
   .tp_methods = PyKelType_methods,
   .tp_getset = PyKelType_getset,
};

PyObject* PyKelType_FromKelType( Kel::KelType type ) {
   return wrapperOf( typeWrappers, PyKelTypeType, type, &PyKelType::kelType );
}

int Convert_To_KelType( PyObject* object, Kel::KelType* type ) {
   if( !PyObject_TypeCheck( object, &PyKelTypeType ) ) {
      PyErr_SetString( PyExc_TypeError, "expected a _Kel.KelType" );
      return 0;
   }
   *type = typeOf( object );
   return 1;
}

int Convert_To_KelType_Or_Null( PyObject* object, Kel::KelType* type ) {
   if( object == Py_None ) {
      *type = Kel::KelType();
      return 1;
   }
   if( !PyObject_TypeCheck( object, &PyKelTypeType ) ) {
      PyErr_SetString( PyExc_TypeError, "expected a _Kel.KelType or None" );
      return 0;
   }
   *type = typeOf( object );
   return 1;
}
