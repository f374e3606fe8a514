// Integers and enums from Python: range tests on both sides, and the text of every failed
// conversion. Users hold the GIL.
#pragma once

#include <kelpy/core/PyPython.h>

#include <concepts>
#include <utility>

#include <kel/Assert.h>
#include <kel/KelAttr.h>
#include <kel/schema/Types.h>
#include <kelpy/core/KelPyExport.h>
#include <kelpy/core/PyPendingError.h>

// Throws the Kel::TypeException of a failed conversion: its text names the wanted type, for an
// enum all constants, and shows the object. Runs the object's repr.
[[noreturn]] KELPY_API void GenericIf_TypeExceptionThrow(
   PyObject* passed, Kel::KelType const& expected );

template< class T >
struct IntegralTag {};

// Calls `visitor` with the tag of the C++ type behind a built-in integer type; any other type is
// a fault.
template< class Visitor >
decltype( auto ) visitIntegral( Kel::KelType const& type, Visitor&& visitor ) {
   if( type.module() == &Kel::_Kel_BuiltinType_kelModule ) {
      switch( static_cast< Kel::BuiltinType >( type.typeIndex() ) ) {
      case Kel::BuiltinType::u8:
         return visitor( IntegralTag< Kel::U8 >() );
      case Kel::BuiltinType::u16:
         return visitor( IntegralTag< Kel::U16 >() );
      case Kel::BuiltinType::u32:
         return visitor( IntegralTag< Kel::U32 >() );
      case Kel::BuiltinType::u64:
         return visitor( IntegralTag< Kel::U64 >() );
      case Kel::BuiltinType::s8:
         return visitor( IntegralTag< Kel::S8 >() );
      case Kel::BuiltinType::s16:
         return visitor( IntegralTag< Kel::S16 >() );
      case Kel::BuiltinType::s32:
         return visitor( IntegralTag< Kel::S32 >() );
      case Kel::BuiltinType::s64:
         return visitor( IntegralTag< Kel::S64 >() );
      default:
         break;
      }
   }
   KEL_ASSERT( false );
   __builtin_unreachable();
}

// What `read` makes of the number; `fits` tells whether it left no error. An error from before,
// as of an earlier pair of an update, stays pending.
template< class Read >
auto readNumber( PyObject* number, Read read, bool& fits ) {
   PendingErrorAnchor const earlier;
   auto const value = read( number );
   fits = !PyErr_Occurred();
   PyErr_Clear();
   return value;
}

// What both families share: `readLong` reads a Python long and leaves an error if it does not
// fit.
template< class T, class ReadLong >
Kel::Ptr< Kel::GenericIf > integralToGenericIf(
   Kel::KelType const& type, PyObject* obj, ReadLong readLong ) {
   KEL_ASSERT( type.size() == sizeof( T ) );
   T value;
   if( PyLong_CheckExact( obj ) ) {
      bool fits = true;
      auto const wide = readNumber( obj, readLong, fits );
      value = static_cast< T >( wide );
      if( !fits || !std::in_range< T >( wide ) ) {
         GenericIf_TypeExceptionThrow( obj, type );
      }
   } else if( PyInt_CheckExact( obj ) ) {
      long const wide = PyInt_AS_LONG( obj );
      value = static_cast< T >( wide );
      if( !std::in_range< T >( wide ) ) {
         GenericIf_TypeExceptionThrow( obj, type );
      }
   } else {
      GenericIf_TypeExceptionThrow( obj, type );
   }
   if( type.isEnumType() && !type.attr< T >( value ) ) {
      GenericIf_TypeExceptionThrow( obj, type );
   }
   return type.genericIf( static_cast< void const* >( &value ), false );
}

// `type` is the built-in integer type of T or an enum type over it. Takes exactly int and long,
// and for an enum only the number of a constant; throws Kel::TypeException.
template< std::unsigned_integral T >
Kel::Ptr< Kel::GenericIf > PyObjectToUnsignedIntegral( Kel::KelType const& type, PyObject* obj ) {
   return integralToGenericIf< T >( type, obj, PyLong_AsUnsignedLongLong );
}
template< std::signed_integral T >
Kel::Ptr< Kel::GenericIf > PyObjectToSignedIntegral( Kel::KelType const& type, PyObject* obj ) {
   return integralToGenericIf< T >( type, obj, PyLong_AsLongLong );
}

template< class T >
Kel::Ptr< Kel::GenericIf > PyObjectToIntegral( Kel::KelType const& type, PyObject* obj ) {
   if constexpr( std::unsigned_integral< T > ) {
      return PyObjectToUnsignedIntegral< T >( type, obj );
   } else {
      return PyObjectToSignedIntegral< T >( type, obj );
   }
}
