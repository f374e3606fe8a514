#include <kelpy/reflection/PyKelAttr.h>

#include <kel/Assert.h>
#include <kelpy/core/PyMarshal.h>
#include <kelpy/reflection/PyKelType.h>
#include <kelpy/reflection/SchemaWrapper.h>

namespace {

WrapperCache< Kel::KelAttr > attrWrappers;

Kel::KelAttr attrOf( PyObject* self ) {
   return reinterpret_cast< PyKelAttr* >( self )->kelAttr;
}

PyObject* PyKelAttr_repr( PyObject* self ) {
   Kel::KelAttr const attr = attrOf( self );
   return PyString_FromFormat( "type('%s').attr('%s')", attr.scope().fullTypeName(), attr.name() );
}

PyObject* PyKelAttr_name_get( PyObject* self, void* ) {
   return PyString_InternFromString( attrOf( self ).name() );
}

PyObject* PyKelAttr_attributeId_get( PyObject* self, void* ) {
   return PyInt_FromLong( attrOf( self ).attributeId() );
}

PyObject* PyKelAttr_scope_get( PyObject* self, void* ) {
   return PyKelType_FromKelType( attrOf( self ).scope() );
}

PyObject* PyKelAttr_memberType_get( PyObject* self, void* ) {
   return PyKelType_FromKelType( attrOf( self ).memberType() );
}

PyObject* PyKelAttr_indexType_get( PyObject* self, void* ) {
   return PyKelType_FromKelType( attrOf( self ).indexType() );
}

PyObject* PyKelAttr_indexAttr_get( PyObject* self, void* ) {
   return PyKelAttr_FromKelAttr( attrOf( self ).indexAttr() );
}

PyObject* PyKelAttr_hasInternalIndex_get( PyObject* self, void* ) {
   return PyBool_FromLong( static_cast< bool >( attrOf( self ).indexAttr() ) );
}

PyObject* PyKelAttr_internalIndexName_get( PyObject* self, void* ) {
   Kel::KelAttr const index = attrOf( self ).indexAttr();
   if( !index ) {
      Py_RETURN_NONE;
   }
   return PyString_InternFromString( index.name() );
}

template< bool ( Kel::KelAttrBase::*test )() const >
PyObject* PyKelAttr_test_get( PyObject* self, void* ) {
   return PyBool_FromLong( ( attrOf( self ).*test )() );
}

template< Kel::AttrFlag flag >
PyObject* PyKelAttr_flag_get( PyObject* self, void* ) {
   return PyBool_FromLong( attrOf( self ).flag( flag ) );
}

PyObject* PyKelAttr_instantiatingArgNameQ_get( PyObject* self, void* ) {
   Kel::KelAttr const attr = attrOf( self );
   return argNameTuple( attr.module(), attr.args(), attr.instantiatingArgNames() );
}

PyObject* PyKelAttr_instantiatingArgTypeQ_get( PyObject* self, void* ) {
   Kel::KelAttr const attr = attrOf( self );
   return argTypeTuple( attr.module(), attr.args(), attr.instantiatingArgNames() );
}

template< class T >
PyObject* enumValueAs( Kel::KelAttr attr ) {
   T const value = attr.row().enumBits< T >();
   if constexpr( std::is_signed_v< T > ) {
      return PyIntOrLong_FromLongLong( value );
   } else {
      return PyIntOrLong_FromUnsignedLongLong( value );
   }
}

// One a built-in type, from index 1 on.
constexpr PyObject* ( *enumReaders[] )( Kel::KelAttr ) = {
   enumValueAs< Kel::U8 >,
   enumValueAs< Kel::S8 >,
   enumValueAs< Kel::U16 >,
   enumValueAs< Kel::S16 >,
   enumValueAs< Kel::U32 >,
   enumValueAs< Kel::S32 >,
   enumValueAs< Kel::U64 >,
   enumValueAs< Kel::S64 >,
};

PyObject* PyKelAttr_enumValue_get( PyObject* self, void* ) {
   Kel::KelAttr const attr = attrOf( self );
   if( !attr.isEnumConst() ) {
      PyErr_Format( PyExc_TypeError, "%s::%s is not an enum constant", attr.scope().fullTypeName(),
         attr.name() );
      return nullptr;
   }
   Kel::KelType const underlyingType = attr.scope().underlyingType();
   KEL_ASSERT( underlyingType );
   unsigned const reader = underlyingType.typeIndex() - 1u;
   if( underlyingType.module() != &_Kel_BuiltinType_kelModule ||
       reader >= std::size( enumReaders ) ) {
      KEL_ASSERT( false );
   }
   return enumReaders[reader]( attr );
}

// The module asks for no method, but a table has to stand.
constinit PyMethodDef PyKelAttr_methods[] = { {} };

template< Kel::AttrFlag which >
constexpr PyGetSetDef flag( char const* name ) {
   return named( name, PyKelAttr_flag_get< which > );
}

template< bool ( Kel::KelAttrBase::*which )() const >
constexpr PyGetSetDef test( char const* name ) {
   return named( name, PyKelAttr_test_get< which > );
}

using Kel::AttrFlag;
using Kel::KelAttrBase;

constinit PyGetSetDef PyKelAttr_getset[] = {
   readOnly( "name", PyKelAttr_name_get, "attribute name" ),
   readOnly( "attributeId", PyKelAttr_attributeId_get, "attribute ID" ),
   readOnly( "scope", PyKelAttr_scope_get, "scope" ),
   readOnly( "memberType", PyKelAttr_memberType_get, "member type" ),
   readOnly( "indexType", PyKelAttr_indexType_get, "index type" ),
   named( "indexAttr", PyKelAttr_indexAttr_get ),
   test< &KelAttrBase::isCollection >( "isCollection" ),
   flag< AttrFlag::isQueueCollection >( "isQueueCollection" ),
   flag< AttrFlag::isStackCollection >( "isStackCollection" ),
   flag< AttrFlag::isStatic >( "isStatic" ),
   flag< AttrFlag::isFunction >( "isFunction" ),
   flag< AttrFlag::isPtr >( "isPtr" ),
   flag< AttrFlag::isDynArray >( "isDynArray" ),
   flag< AttrFlag::isSet >( "isSet" ),
   test< &KelAttrBase::isEnumConst >( "isEnumConst" ),
   flag< AttrFlag::instantiating >( "instantiating" ),
   flag< AttrFlag::anonymous >( "anonymous" ),
   flag< AttrFlag::isIndependentDomainAttr >( "isIndependentDomainAttr" ),
   flag< AttrFlag::readable >( "readable" ),
   flag< AttrFlag::writable >( "writable" ),
   flag< AttrFlag::isImmutable >( "isImmutable" ),
   flag< AttrFlag::doesNotify >( "doesNotify" ),
   flag< AttrFlag::isLogging >( "isLogging" ),
   flag< AttrFlag::hasDataMember >( "hasDataMember" ),
   // Two names of one bit.
   flag< AttrFlag::isPodArray >( "isPodArray" ),
   flag< AttrFlag::isPodArray >( "hasAutomanagedKey" ),
   flag< AttrFlag::rawPtrInterface >( "rawPtrInterface" ),
   flag< AttrFlag::isConstPtr >( "isConstPtr" ),
   flag< AttrFlag::isNonconstPtr >( "isNonconstPtr" ),
   flag< AttrFlag::hasConstPtrIndex >( "hasConstPtrIndex" ),
   test< &KelAttrBase::isInvasiveFunction >( "isInvasiveFunction" ),
   flag< AttrFlag::gnmiScalarArray >( "gnmiScalarArray" ),
   flag< AttrFlag::gnmiStreamAttr >( "gnmiStreamAttr" ),
   flag< AttrFlag::toGnmiJsonString >( "toGnmiJsonString" ),
   flag< AttrFlag::isOptionalValue >( "isOptionalValue" ),
   flag< AttrFlag::hasPackedRep >( "hasPackedRep" ),
   test< &KelAttrBase::isVector >( "isVector" ),
   named( "hasInternalIndex", PyKelAttr_hasInternalIndex_get ),
   named( "internalIndexName", PyKelAttr_internalIndexName_get ),
   readOnly( "instantiatingArgNameQ", PyKelAttr_instantiatingArgNameQ_get,
      "instantiating arg name queue" ),
   readOnly( "instantiatingArgTypeQ", PyKelAttr_instantiatingArgTypeQ_get,
      "instantiating arg type queue" ),
   readOnly( "enumValue", PyKelAttr_enumValue_get, "enum value" ),
   {},
};

} // namespace

constinit PyTypeObject PyKelAttrType = {
   .ob_refcnt = 1,
   .tp_name = "_Kel.KelAttr",
   .tp_basicsize = sizeof( PyKelAttr ),
   .tp_repr = PyKelAttr_repr,
   .tp_flags = Py_TPFLAGS_DEFAULT,
   .tp_doc = "Wraps a Kel::KelAttr",
   .tp_methods = PyKelAttr_methods,
   .tp_getset = PyKelAttr_getset,
};

PyObject* PyKelAttr_FromKelAttr( Kel::KelAttr attr ) {
   return wrapperOf( attrWrappers, PyKelAttrType, attr, &PyKelAttr::kelAttr );
}

int Convert_To_KelAttr( PyObject* object, Kel::KelAttr* attr ) {
   if( !PyObject_TypeCheck( object, &PyKelAttrType ) ) {
      PyErr_SetString( PyExc_TypeError, "expected a _Kel.KelAttr" );
      return 0;
   }
   *attr = attrOf( object );
   return 1;
}
