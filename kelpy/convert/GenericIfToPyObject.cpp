#include <kelpy/convert/GenericIfToPyObject.h>

#include <frameobject.h>

#include <array>
#include <cstdint>
#include <type_traits>
#include <unordered_map>

#include <kel/Assert.h>
#include <kel/Exception.h>
#include <kel/Seconds.h>
#include <kelpy/convert/DefaultAttrData.h>
#include <kelpy/convert/PyIntegral.h>
#include <kelpy/core/PyFailure.h>
#include <kelpy/core/PyMarshal.h>
#include <kelpy/core/PyRef.h>
#include <kelpy/objects/PyGenericIf.h>

namespace {

std::unordered_map< Kel::KelAttr, PyRef > enumNames_( 1 ); // guarded by the GIL

PyObject* unimplementedBuiltin() {
   PyErr_SetString( PyExc_TypeError, "returning an unimplemented builtin type" );
   return nullptr;
}

// `type` stands in the record of the built-in types.
PyObject* builtinToPyObject( Kel::GenericIf const& gif, Kel::KelType const& type ) {
   switch( static_cast< Kel::BuiltinType >( type.typeIndex() ) ) {
   case Kel::BuiltinType::u8:
      return PyInt_FromLong( *gif.attrValPtr< Kel::U8 >() );
   case Kel::BuiltinType::s8:
      return PyInt_FromLong( *gif.attrValPtr< Kel::S8 >() );
   case Kel::BuiltinType::u16:
      return PyInt_FromLong( *gif.attrValPtr< Kel::U16 >() );
   case Kel::BuiltinType::s16:
      return PyInt_FromLong( *gif.attrValPtr< Kel::S16 >() );
   case Kel::BuiltinType::u32:
      return PyInt_FromLong( *gif.attrValPtr< Kel::U32 >() );
   case Kel::BuiltinType::s32:
      return PyInt_FromLong( *gif.attrValPtr< Kel::S32 >() );
   case Kel::BuiltinType::u64:
      return PyIntOrLong_FromUnsignedLongLong( *gif.attrValPtr< Kel::U64 >() );
   case Kel::BuiltinType::s64:
      return PyInt_FromLong( *gif.attrValPtr< Kel::S64 >() );
   case Kel::BuiltinType::boolean:
      return PyBool_FromLong( *gif.attrValPtr< bool >() );
   case Kel::BuiltinType::character:
      return PyString_FromStringAndSize( gif.attrValPtr< char >(), 1 );
   case Kel::BuiltinType::float32:
      return PyFloat_FromDouble( static_cast< double >( *gif.attrValPtr< float >() ) );
   case Kel::BuiltinType::float64:
      return PyFloat_FromDouble( *gif.attrValPtr< double >() );
   case Kel::BuiltinType::string:
      return PyStr_FromKelString( *gif.attrValPtr< Kel::String >() );
   case Kel::BuiltinType::bytes:
      return PyBytes_FromKelBytes( *gif.attrValPtr< Kel::Bytes >() );
   case Kel::BuiltinType::seconds:
      return PyFloat_FromDouble( gif.attrValPtr< Kel::Seconds >()->value() );
   default:
      return unimplementedBuiltin();
   }
}

PyObject* enumToPyObject( Kel::GenericIf const& gif, Kel::KelType const& type ) {
   return visitIntegral( type.underlyingType(), [&]< class T >( IntegralTag< T > ) {
      return GenericIfEnumToPyObject< T >( type, *gif.attrValPtr< T >() );
   } );
}

// The interned name, kept for ever; null with a Python error. Borrowed.
PyObject* keptName( Kel::KelAttr const& constant ) {
   try {
      PyRef& name = enumNames_[constant];
      if( !name ) {
         name = PyRef::steal( PyString_InternFromString( constant.name() ) );
      }
      return name.get();
   } catch( std::bad_alloc const& ) {
      return PyErr_NoMemory();
   }
}

// The same, of the constants asked for last each in one place. GIL.
PyObject* enumName( Kel::KelAttr const& constant ) {
   struct Recent {
      Kel::KelAttr constant;
      PyObject* name = nullptr;
   };
   static constinit std::array< Recent, 256 > recentNames;
   auto const row = reinterpret_cast< std::uintptr_t >( &constant.row() );
   Recent& recent = recentNames[row / alignof( Kel::AttrRow ) % recentNames.size()];
   if( recent.constant != constant ) [[unlikely]] {
      PyObject* const name = keptName( constant );
      if( !name ) {
         return nullptr;
      }
      recent = { constant, name };
   }
   return recent.name;
}

// The first constant of the value in the order of the rows; null if there is none.
template< class T >
Kel::KelAttr constantOf( Kel::KelType const& type, T value ) {
   auto const& row = type.row();
   for( std::uint16_t i = 0; i < row.attrCount; ++i ) {
      Kel::KelAttr const constant(
         type.module(), type.typeIndex(), static_cast< std::uint16_t >( row.firstAttr + i ) );
      if( constant.row().template enumBits< T >() == value ) {
         return constant;
      }
   }
   return {};
}

// What stands for a number without a constant.
template< class T >
PyObject* numberText( Kel::KelType const& type, T value ) {
   if constexpr( std::is_unsigned_v< T > ) {
      return PyString_FromFormat(
         "%s(%lu)", type.fullTypeName(), static_cast< unsigned long >( value ) );
   } else {
      return PyString_FromFormat( "%s(%ld)", type.fullTypeName(), static_cast< long >( value ) );
   }
}

// Evaluates source text where no Python code reads the value, but a thread of the runtime that is
// about to call some: only the builtins have names.
PyObject* evaluateAlone( Kel::String const& source ) {
   PyRef const globals = PyRef::steal( PyDict_New() );
   if( !globals ||
       PyDict_SetItemString( globals.get(), "__builtins__", PyEval_GetBuiltins() ) < 0 ) {
      return nullptr;
   }
   return PyRun_StringFlags(
      source.charPtr(), Py_eval_input, globals.get(), globals.get(), nullptr );
}

// Evaluates source text in the namespaces of the Python code that reads the value.
PyObject* evaluate( Kel::String const& source ) {
   PyFrameObject* const frame = PyEval_GetFrame();
   if( !frame ) {
      return evaluateAlone( source );
   }
   PyObject* const locals = PyEval_GetLocals();
   if( !locals ) {
      return nullptr;
   }
   return PyRun_StringFlags( source.charPtr(), Py_eval_input, frame->f_globals, locals, nullptr );
}

// What stands for a value of the type in Python: null for the value itself, else the attribute and
// what it holds.
struct DefaultRead {
   DefaultAttrData const* data = nullptr;
   Kel::Ptr< Kel::GenericIf > value;
};

// False with a Python error.
bool readDefaultAttr(
   Kel::Ptr< Kel::GenericIf > const& gif, Kel::KelType const& type, DefaultRead& read ) noexcept {
   try {
      auto const& data = defaultAttrData( type );
      if( data.getAttr ) {
         read.data = &data;
         read.value = data.getAttr.genericIfGet( gif, nullptr );
      }
      return true;
   } catch( ... ) {
      Kel::translateCppExceptionToPython( type, "" );
      return false;
   }
}

PyObject* defaultAttrToPyObject( DefaultRead read ) {
   if( !read.data->isRepr ) {
      return GenericIfToPyObject( std::move( read.value ), true );
   }
   auto const defaultGif = std::move( read.value );
   KEL_ASSERT( defaultGif );
   KEL_ASSERT( defaultGif->type().isDerived( Kel::kelType< Kel::String >() ) );
   return evaluate( *defaultGif->attrValPtr< Kel::String >() );
}

} // namespace

template< class T >
PyObject* GenericIfEnumToPyObject( Kel::KelType const& type, T value ) {
   KEL_ASSERT( type.isEnumType() );
   if( type.underlyingType() != Kel::kelType< T >() ) {
      type.throwEnumAttrWrongTypeException( Kel::kelType< T >() );
   }
   Kel::KelAttr const constant = constantOf( type, value );
   if( !constant ) {
      return numberText( type, value );
   }
   PyObject* const name = enumName( constant );
   Py_XINCREF( name );
   return name;
}

template PyObject* GenericIfEnumToPyObject( Kel::KelType const&, Kel::U8 );
template PyObject* GenericIfEnumToPyObject( Kel::KelType const&, Kel::S8 );
template PyObject* GenericIfEnumToPyObject( Kel::KelType const&, Kel::U16 );
template PyObject* GenericIfEnumToPyObject( Kel::KelType const&, Kel::S16 );
template PyObject* GenericIfEnumToPyObject( Kel::KelType const&, Kel::U32 );
template PyObject* GenericIfEnumToPyObject( Kel::KelType const&, Kel::S32 );
template PyObject* GenericIfEnumToPyObject( Kel::KelType const&, Kel::U64 );
template PyObject* GenericIfEnumToPyObject( Kel::KelType const&, Kel::S64 );

PyObject* GenericIfToPyObject( Kel::Ptr< Kel::GenericIf > gif, bool useDefaultAttr ) noexcept {
   if( !gif ) {
      Py_RETURN_NONE;
   }
   Kel::KelType const type = gif->type();
   if( type.module() == &Kel::_Kel_BuiltinType_kelModule ) {
      return builtinToPyObject( *gif, type );
   }
   if( type.hasOwnPtrInterface() && !gif->voidPtrIs( type ) ) {
      Py_RETURN_NONE;
   }
   if( type.isBuiltinType() ) {
      return unimplementedBuiltin();
   }
   if( type.isEnumType() ) {
      return enumToPyObject( *gif, type );
   }
   if( useDefaultAttr ) {
      DefaultRead read;
      if( !readDefaultAttr( gif, type, read ) ) {
         return nullptr;
      }
      if( read.data ) {
         return defaultAttrToPyObject( std::move( read ) );
      }
   }
   return MakePyGenericIf( std::move( gif ) );
}
