#include <kelpy/convert/PyObjectToGenericIf.h>

#include <cstring>

#include <kel/Assert.h>
#include <kel/Exception.h>
#include <kel/Seconds.h>
#include <kelpy/convert/DefaultAttrData.h>
#include <kelpy/convert/PyIntegral.h>
#include <kelpy/core/PyFailure.h>
#include <kelpy/core/PyLock.h>
#include <kelpy/core/PyMarshal.h>
#include <kelpy/core/PyPendingError.h>
#include <kelpy/core/PyRef.h>
#include <kelpy/objects/PyGenericIf.h>

namespace {

using GenericPtr = Kel::Ptr< Kel::GenericIf >;

GenericPtr defaultGeneric( Kel::KelType const& type ) {
   return type.genericIf( static_cast< void const* >( nullptr ), false );
}

template< class T >
GenericPtr newGeneric( Kel::KelType const& type, T const& value ) {
   return type.genericIf( static_cast< void const* >( &value ), false );
}

GenericPtr stringToGenericIf( PyObject* obj, Kel::KelType const& type ) {
   if( PyString_Check( obj ) ) {
      return newGeneric( type, PyStr_AsKelString( obj ) );
   }
   if( PyUnicode_Check( obj ) ) {
      return newGeneric( type, PyUnicode_AsKelString( obj ) );
   }
   GenericIf_TypeExceptionThrow( obj, type );
}

GenericPtr bytesToGenericIf( PyObject* obj, Kel::KelType const& type ) {
   if( PyString_Check( obj ) ) {
      return newGeneric( type, PyBytes_AsKelBytes( obj ) );
   }
   if( PyByteArray_Check( obj ) ) {
      return newGeneric( type, PyByteArray_AsKelBytes( obj ) );
   }
   GenericIf_TypeExceptionThrow( obj, type );
}

// Of exactly a float, int or long that fits.
double asDouble( PyObject* obj, Kel::KelType const& type ) {
   if( !PyFloat_CheckExact( obj ) && !PyInt_CheckExact( obj ) && !PyLong_CheckExact( obj ) ) {
      GenericIf_TypeExceptionThrow( obj, type );
   }
   bool fits = true;
   double const value = readNumber( obj, PyFloat_AsDouble, fits );
   if( !fits ) {
      GenericIf_TypeExceptionThrow( obj, type );
   }
   return value;
}

GenericPtr boolToGenericIf( PyObject* obj, Kel::KelType const& type ) {
   if( !PyBool_Check( obj ) ) {
      GenericIf_TypeExceptionThrow( obj, type );
   }
   return newGeneric( type, PyInt_AS_LONG( obj ) != 0 );
}

GenericPtr charToGenericIf( PyObject* obj, Kel::KelType const& type ) {
   if( !PyString_Check( obj ) || PyString_GET_SIZE( obj ) != 1 ) {
      GenericIf_TypeExceptionThrow( obj, type );
   }
   return newGeneric( type, PyString_AS_STRING( obj )[0] );
}

// `type` stands in the record of the built-in types.
GenericPtr builtinToGenericIf( PyObject* obj, Kel::KelType const& type ) {
   switch( static_cast< Kel::BuiltinType >( type.typeIndex() ) ) {
   case Kel::BuiltinType::u8:
      return PyObjectToUnsignedIntegral< Kel::U8 >( type, obj );
   case Kel::BuiltinType::s8:
      return PyObjectToSignedIntegral< Kel::S8 >( type, obj );
   case Kel::BuiltinType::u16:
      return PyObjectToUnsignedIntegral< Kel::U16 >( type, obj );
   case Kel::BuiltinType::s16:
      return PyObjectToSignedIntegral< Kel::S16 >( type, obj );
   case Kel::BuiltinType::u32:
      return PyObjectToUnsignedIntegral< Kel::U32 >( type, obj );
   case Kel::BuiltinType::s32:
      return PyObjectToSignedIntegral< Kel::S32 >( type, obj );
   case Kel::BuiltinType::u64:
      return PyObjectToUnsignedIntegral< Kel::U64 >( type, obj );
   case Kel::BuiltinType::s64:
      return PyObjectToSignedIntegral< Kel::S64 >( type, obj );
   case Kel::BuiltinType::boolean:
      return boolToGenericIf( obj, type );
   case Kel::BuiltinType::character:
      return charToGenericIf( obj, type );
   case Kel::BuiltinType::float32:
      return newGeneric( type, static_cast< float >( asDouble( obj, type ) ) );
   case Kel::BuiltinType::float64:
      return newGeneric( type, asDouble( obj, type ) );
   case Kel::BuiltinType::string:
      return stringToGenericIf( obj, type );
   case Kel::BuiltinType::bytes:
      return bytesToGenericIf( obj, type );
   case Kel::BuiltinType::seconds:
      return newGeneric( type, Kel::Seconds( asDouble( obj, type ) ) );
   default:
      GenericIf_TypeExceptionThrow( obj, type );
   }
}

GenericPtr enumToGenericIf( PyObject* obj, Kel::KelType const& type ) {
   if( !PyString_Check( obj ) ) {
      return visitIntegral( type.underlyingType(),
         [&]< class T >( IntegralTag< T > ) { return PyObjectToIntegral< T >( type, obj ); } );
   }
   char const* const val = PyString_AsString( obj );
   KEL_ASSERT( val );
   if( std::strlen( val ) != static_cast< std::size_t >( PyString_Size( obj ) ) ) {
      GenericIf_TypeExceptionThrow( obj, type );
   }
   Kel::KelAttr const constant = type.attr( val );
   if( !constant ) {
      GenericIf_TypeExceptionThrow( obj, type );
   }
   return constant.genericIfGet( nullptr, nullptr );
}

// The wrapper's own generic, shared.
GenericPtr wrapperToGenericIf( PyObject* obj, Kel::KelType const& type ) {
   if( !PyGenericIf_TypeCheck( obj, type ) ) {
      GenericIf_TypeExceptionThrow( obj, type );
   }
   return PyGenericIfToGenericIf( reinterpret_cast< PyGenericIf* >( obj ) );
}

// Null with a Python error. An error from before, as of an earlier pair of an update, is kept out
// of the sight of the object's own code.
PyRef reprOf( PyObject* obj ) {
   PendingErrorAnchor const earlier;
   return PyRef::steal( PyObject_Repr( obj ) );
}

// The object, or its repr, as a value of the default attribute.
GenericPtr defaultAttrValue( PyObject* obj, DefaultAttrData const& data ) {
   Kel::KelType const memberType = data.setAttr.memberType();
   bool const optional = data.setAttr.isOptionalValue();
   if( !data.isRepr ) {
      return PyObjectToGenericIf_unsafe( obj, memberType, optional );
   }
   auto const text = reprOf( obj );
   if( !text ) {
      throw PythonException();
   }
   return PyObjectToGenericIf_unsafe( text.get(), memberType, optional );
}

// Whether the type is constructed from just this attribute.
bool isSoleConstructorArg( Kel::KelType const& type, Kel::KelAttr attr ) {
   return type.constructorArgNames() == 1 &&
          std::strcmp(
             type.module()->attrNamePool + type.constructorArgs()->nameOffset(), attr.name() ) == 0;
}

GenericPtr valueFromDefaultAttr(
   Kel::KelType const& type, Kel::KelAttr attr, GenericPtr attrValue ) {
   if( isSoleConstructorArg( type, attr ) ) {
      Kel::ArgVector args;
      args.push_back( std::move( attrValue ) );
      return type.genericIf( args, false );
   }
   GenericPtr value = defaultGeneric( type );
   attr.genericIfSet( value, nullptr, attrValue );
   return value;
}

// The default attribute comes first, so that a plain Python object passes wherever the value is
// wanted.
GenericPtr valueToGenericIf( PyObject* obj, Kel::KelType const& type ) {
   DefaultAttrData const& data = defaultAttrData( type );
   if( !data.setAttr ) {
      return wrapperToGenericIf( obj, type );
   }
   GenericPtr attrValue;
   try {
      attrValue = defaultAttrValue( obj, data );
   } catch( Kel::TypeException const& ) {
      return wrapperToGenericIf( obj, type );
   }
   return valueFromDefaultAttr( type, data.setAttr, std::move( attrValue ) );
}

GenericPtr pointerToGenericIf( PyObject* obj, Kel::KelType const& type ) {
   if( obj == Py_None ) {
      return type.hasOwnPtrInterface() ? defaultGeneric( type ) : GenericPtr();
   }
   return wrapperToGenericIf( obj, type );
}

} // namespace

Kel::Ptr< Kel::GenericIf > PyObjectToGenericIf_unsafe(
   PyObject* obj, Kel::KelType const& type, bool optional ) {
   KEL_ASSERT( type );
   if( obj == Py_None && optional ) {
      return nullptr;
   }
   if( type.module() == &Kel::_Kel_BuiltinType_kelModule ) {
      return builtinToGenericIf( obj, type );
   }
   if( type.isBuiltinType() ) {
      GenericIf_TypeExceptionThrow( obj, type );
   }
   if( type.isEnumType() ) {
      return enumToGenericIf( obj, type );
   }
   return type.isValue() ? valueToGenericIf( obj, type ) : pointerToGenericIf( obj, type );
}

Kel::Ptr< Kel::GenericIf > PyObjectToGenericIf(
   PyObject* obj, Kel::KelType const& type, bool optional ) {
   Kel::GilAnchor const gil;
   return PyObjectToGenericIf_unsafe( obj, type, optional );
}
