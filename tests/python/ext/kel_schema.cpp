// kel_schema: handles that no honest caller makes, and records that cannot exist. GIL.
#include <kelpy/core/PyPython.h>

#include <deque>
#include <iterator>

#include <kel/TypeImpl.h>
#include <kelpy/classes/PyGenericIfAttrDescriptor.h>
#include <kelpy/reflection/PyKelAttr.h>
#include <kelpy/reflection/PyKelType.h>

namespace {

using namespace Kel;

// Rows of impossible types: a value that descends from pointers, an enum without an underlying
// type, one over a type that is no integer, one over a type of another record, and a type whose
// collection has an index attribute that its members lack.
constexpr char typeNames[] =
   "Forged::Value\0Forged::Hollow\0Forged::Textual\0Forged::Odd\0Forged::Lacking";
constexpr std::uint32_t hollowName = sizeof( "Forged::Value" );
constexpr std::uint32_t textualName = hollowName + sizeof( "Forged::Hollow" );
constexpr std::uint32_t oddName = textualName + sizeof( "Forged::Textual" );
constexpr std::uint32_t lackingName = oddName + sizeof( "Forged::Odd" );

constexpr char attrNames[] = "\0none\0lacking";
constexpr std::uint32_t none = 1;
constexpr std::uint32_t lacking = none + sizeof( "none" );

constexpr TypeRef referenced[] = {
   { &_Kel_Entity_kelModule, 1, {} },
   { nullptr, 0, {} },
   { &_Kel_BuiltinType_kelModule, static_cast< std::uint16_t >( BuiltinType::string ), {} },
   { &_Kel_PtrInterface_kelModule, 0, {} },
};

constexpr std::uint64_t value = typeBit( TypeFlag::isValue );
constexpr std::uint64_t enumType = value | typeBit( TypeFlag::isEnumType );

constexpr TypeRow types[] = {
   TypeRow::make( value, 0, 8, 8, 0, 0, 0, 0 ),
   TypeRow::make( enumType, hollowName, 1, 1, 1, 0, 0, 1 ),
   TypeRow::make( enumType, textualName, 8, 8, 2, 0, 1, 1 ),
   TypeRow::make( enumType, oddName, 8, 8, 3, 0, 2, 1 ),
   TypeRow::make( 0, lackingName, 8, 8, 1, 0, 3, 1 ),
};

constexpr std::uint32_t constant =
   attrBit( AttrFlag::constantForm ) | attrBit( AttrFlag::isStatic );

constexpr AttrRow attrs[] = {
   AttrRow::makeConstant( 1, constant, none, 0, 3 ),
   AttrRow::makeConstant( 1, constant, none, 0, 3 ),
   AttrRow::makeConstant( 1, constant, none, 0, 3 ),
   AttrRow::make( 1, attrBit( AttrFlag::collectionForm ), lacking, 0, 1, 0, none ),
};

constexpr ArgRow noArgs[1] = {};
constinit TypeImpl const impls[std::size( types )] = {};
constinit KelModule const forgedModule = { types, attrs, noArgs, typeNames, attrNames, referenced,
   impls, std::size( types ) };

// A record of one type with one attribute, both without any reference to others. It lives on, as
// wrappers of its rows do.
struct LooseUnit {
   LooseUnit( std::uint64_t typeFlags, std::uint32_t attrFlags )
      : type( TypeRow::make( typeFlags, 0, 8, 8, noType, 0, 0, 1 ) ),
        attr( AttrRow::make( 1, attrFlags, 1, noType, noType, 0, 0 ) ) {}
   LooseUnit( LooseUnit const& ) = delete;

   static constexpr std::int16_t noType = ~0;

   TypeRow const type;
   AttrRow const attr;
   KelModule const module = { &type, &attr, noArgs, typeNames, attrNames, nullptr, impls, 1 };
};

LooseUnit const& looseUnit( std::uint64_t typeFlags, std::uint32_t attrFlags ) {
   static std::deque< LooseUnit > units;
   return units.emplace_back( typeFlags, attrFlags );
}

// The wrapper of a type, or of an attribute, with just these flags.
PyObject* typeWithFlags( PyObject*, PyObject* flags ) {
   auto const word = static_cast< std::uint64_t >( PyInt_AsLong( flags ) );
   return PyKelType_FromKelType( KelType( &looseUnit( word, 0 ).module, 0 ) );
}
PyObject* attrWithFlags( PyObject*, PyObject* flags ) {
   auto const word = static_cast< std::uint32_t >( PyInt_AsLong( flags ) );
   return PyKelAttr_FromKelAttr( KelAttr( &looseUnit( 0, word ).module, 0, 0 ) );
}

// attr(type, typeIndex, attrIndex): the wrapper of an attribute row of the type's record, reached
// through that type index.
PyObject* attr( PyObject*, PyObject* args ) {
   KelType type;
   int typeIndex = 0;
   int attrIndex = 0;
   if( !PyArg_ParseTuple( args, "O&ii", Convert_To_KelType, &type, &typeIndex, &attrIndex ) ) {
      return nullptr;
   }
   return PyKelAttr_FromKelAttr( KelAttr( type.module(), static_cast< std::uint16_t >( typeIndex ),
      static_cast< std::uint16_t >( attrIndex ) ) );
}

// The index of a type in its record, and of its first attribute row.
PyObject* indices( PyObject*, PyObject* args ) {
   KelType type;
   if( !PyArg_ParseTuple( args, "O&", Convert_To_KelType, &type ) ) {
      return nullptr;
   }
   return Py_BuildValue( "(ii)", type.typeIndex(), type.row().firstAttr );
}

PyObject* forged( PyObject*, PyObject* args ) {
   int index = 0;
   if( !PyArg_ParseTuple( args, "i", &index ) ) {
      return nullptr;
   }
   return PyKelType_FromKelType( KelType( &forgedModule, static_cast< std::uint16_t >( index ) ) );
}

// An entry of the runtime's own table, as the type that a reference of ~entry resolves to.
PyObject* coreType( PyObject*, PyObject* args ) {
   int entry = 0;
   if( !PyArg_ParseTuple( args, "i", &entry ) ) {
      return nullptr;
   }
   return PyKelType_FromKelType( KelType( KelTypeBase( Impl::coreTypes_[entry] ) ) );
}

PyObject* nullType( PyObject*, PyObject* ) {
   return PyKelType_FromKelType( KelType() );
}
PyObject* nullAttr( PyObject*, PyObject* ) {
   return PyKelAttr_FromKelAttr( KelAttr() );
}

// The converters: what they made of the object, wrapped anew.
PyObject* asType( PyObject*, PyObject* object ) {
   KelType type;
   return Convert_To_KelType( object, &type ) ? PyKelType_FromKelType( type ) : nullptr;
}
PyObject* asTypeOrNull( PyObject*, PyObject* object ) {
   KelType type( &forgedModule, 0 );
   return Convert_To_KelType_Or_Null( object, &type ) ? PyKelType_FromKelType( type ) : nullptr;
}
PyObject* asAttr( PyObject*, PyObject* object ) {
   KelAttr kelAttr;
   return Convert_To_KelAttr( object, &kelAttr ) ? PyKelAttr_FromKelAttr( kelAttr ) : nullptr;
}

// addDescriptor(dict, attr, kind)
PyObject* addDescriptor( PyObject*, PyObject* args ) {
   PyObject* dict = nullptr;
   KelAttr kelAttr;
   int kind = 0;
   if( !PyArg_ParseTuple(
          args, "O!O&i", &PyDict_Type, &dict, Convert_To_KelAttr, &kelAttr, &kind ) ) {
      return nullptr;
   }
   using Kind = PyGenericIfAttrDescriptor::Kind;
   bool const done = addAttrDescriptor( dict, kelAttr, static_cast< Kind >( kind ) );
   return done ? PyBool_FromLong( true ) : nullptr;
}

constinit PyMethodDef functions[] = {
   { "attr", attr, METH_VARARGS, nullptr },
   { "indices", indices, METH_VARARGS, nullptr },
   { "forged", forged, METH_VARARGS, nullptr },
   { "typeWithFlags", typeWithFlags, METH_O, nullptr },
   { "attrWithFlags", attrWithFlags, METH_O, nullptr },
   { "coreType", coreType, METH_VARARGS, nullptr },
   { "nullType", nullType, METH_NOARGS, nullptr },
   { "nullAttr", nullAttr, METH_NOARGS, nullptr },
   { "asType", asType, METH_O, nullptr },
   { "asTypeOrNull", asTypeOrNull, METH_O, nullptr },
   { "asAttr", asAttr, METH_O, nullptr },
   { "addDescriptor", addDescriptor, METH_VARARGS, nullptr },
   {},
};

} // namespace

extern "C" __attribute__( ( visibility( "default" ) ) ) void initkel_schema() {
   Py_InitModule( "kel_schema", functions );
}
