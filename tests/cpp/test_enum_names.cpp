// The names of enum constants, of more of them than are kept at hand.
#include <kelpy/core/PyPython.h>

#include <gtest/gtest.h>

#include <array>
#include <string>

#include <kel/TypeImpl.h>
#include <kelpy/convert/GenericIfToPyObject.h>
#include <kelpy/core/PyRef.h>

using namespace Kel;

namespace {

constexpr unsigned constants = 600;
constexpr std::size_t nameSize = 5; // "c000" and its end

constexpr auto attrNames = [] {
   std::array< char, 1 + constants * nameSize > names{};
   for( unsigned i = 0; i < constants; ++i ) {
      char* const name = &names[1 + i * nameSize];
      name[0] = 'c';
      name[1] = static_cast< char >( '0' + i / 100 );
      name[2] = static_cast< char >( '0' + i / 10 % 10 );
      name[3] = static_cast< char >( '0' + i % 10 );
   }
   return names;
}();

constexpr auto attrs = [] {
   constexpr auto flags = attrBit( AttrFlag::isStatic ) | attrBit( AttrFlag::constantForm );
   std::array< AttrRow, constants > rows{};
   for( unsigned i = 0; i < constants; ++i ) {
      rows[i] = AttrRow::makeConstant(
         AttributeId( 1000 + i ), flags, static_cast< std::uint32_t >( 1 + i * nameSize ), 0, i );
   }
   return rows;
}();

constexpr std::int16_t u32 =
   ~( int( Impl::coreTypeOfBuiltin ) + static_cast< int >( BuiltinType::u32 ) );
constexpr char typeNames[] = "Names::Many";
constexpr TypeRow types[] = { TypeRow::make(
   typeBit( TypeFlag::isValue ) | typeBit( TypeFlag::isEnumType ), 0, 4, 4, u32, 0, 0,
   constants ) };
constexpr ArgRow noArgs[1] = {};
constexpr TypeImpl impls[] = { {} };

// Registered nowhere.
extern KelModule const record;
constexpr TypeRef referenced[] = { { &record, 0, {} } };
constexpr KelModule record = { types, attrs.data(), noArgs, typeNames, attrNames.data(), referenced,
   impls, std::size( types ) };

std::string nameOf( U32 value ) {
   PyRef const name = PyRef::steal( GenericIfEnumToPyObject( KelType( &record, 0 ), value ) );
   return name ? PyString_AS_STRING( name.get() ) : "no name";
}

} // namespace

TEST( EnumNames, areThoseOfTheirConstantsHoweverManyThereAre ) {
   for( int round = 0; round < 2; ++round ) {
      for( unsigned i = 0; i < constants; ++i ) {
         ASSERT_EQ( nameOf( i ), std::string( &attrNames[1 + i * nameSize], nameSize - 1 ) );
      }
   }
   EXPECT_EQ( nameOf( constants ), "Names::Many(600)" );
}
