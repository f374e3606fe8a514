// What the runtime makes of handles and records that the declaration language never gives.
#include <gtest/gtest.h>

#include <functional>

#include <kel/Entity.h>
#include <kel/Exception.h>
#include <kel/TypeImpl.h>

#include "GenericHelp.h"
#include "TestUnit.h"

using namespace Kel;
using namespace Unit;

namespace {

constexpr char typeNames[] = "Rows::Plain\0Rows::Derived\0Rows::Bare\0Rows::Number\0Rows::Empty\0"
                             "Rows::OfEmpty";
constexpr char attrNames[] = "\0unreadable\0without\0keyed\0index\0bare\0orphan";
constexpr std::uint32_t unreadableName = 1;
constexpr std::uint32_t withoutName = unreadableName + sizeof( "unreadable" );
constexpr std::uint32_t keyedName = withoutName + sizeof( "without" );
constexpr std::uint32_t indexName = keyedName + sizeof( "keyed" );
constexpr std::uint32_t bareName = indexName + sizeof( "index" );
constexpr std::uint32_t orphanName = bareName + sizeof( "bare" );
constexpr std::uint32_t derivedTypeName = sizeof( "Rows::Plain" );
constexpr std::uint32_t bareTypeName = derivedTypeName + sizeof( "Rows::Derived" );
constexpr std::uint32_t numberTypeName = bareTypeName + sizeof( "Rows::Bare" );
constexpr std::uint32_t emptyTypeName = numberTypeName + sizeof( "Rows::Number" );
constexpr std::uint32_t ofEmptyTypeName = emptyTypeName + sizeof( "Rows::Empty" );

constexpr std::int16_t noType = ~0;
constexpr std::int16_t u32 =
   ~( int( Impl::coreTypeOfBuiltin ) + static_cast< int >( BuiltinType::u32 ) );
constexpr auto readWrite = attrBit( AttrFlag::readable ) | attrBit( AttrFlag::writable );

// The last attribute row stands in no type's block, the second type has none of its own, and the
// third has no operations. The fifth has no attributes and is the base of one with a value
// attribute.
constexpr auto valueFlags = typeBit( TypeFlag::isValue ) | typeBit( TypeFlag::hasValAttr );
constexpr TypeRow types[] = { TypeRow::make( valueFlags, 0, 4, 4, noType, 0, 0, 3 ),
   TypeRow::make( valueFlags, derivedTypeName, 4, 4, 0, 0, 3, 0 ),
   TypeRow::make( typeBit( TypeFlag::isValue ), bareTypeName, 4, 4, noType, 0, 3, 1 ),
   TypeRow::make(
      valueFlags | typeBit( TypeFlag::isEnumType ), numberTypeName, 4, 4, u32, 0, 3, 1 ),
   TypeRow::make( typeBit( TypeFlag::isValue ), emptyTypeName, 4, 4, noType, 0, 4, 0 ),
   TypeRow::make( valueFlags, ofEmptyTypeName, 4, 4, 1, 0, 3, 1 ) };

constexpr AttrRow attrs[] = { AttrRow::make( attrId( "unreadable" ), attrBit( AttrFlag::isStatic ),
                                 unreadableName, u32, noType, 0, 0 ),
   AttrRow::make( attrId( "without" ), readWrite | attrBit( AttrFlag::isStatic ), withoutName, u32,
      noType, 0, 0 ),
   AttrRow::make( attrId( "keyed" ), readWrite | attrBit( AttrFlag::collectionForm ), keyedName,
      noType, noType, 0, indexName ),
   AttrRow::make(
      attrId( "bare" ), readWrite | attrBit( AttrFlag::isStatic ), bareName, u32, noType, 0, 0 ),
   AttrRow::make( attrId( "orphan" ), readWrite, orphanName, u32, noType, 0, 0 ) };

constexpr ArgRow noArgs[1] = {};

int readOnly( AttrCall& call ) {
   call.result = generic( U32( 7 ) );
   return call.op == AttributeOp::get ? attrOpDone : attrOpNotApplicable;
}

constexpr TypeImpl::AttrOpFn attrOps[] = { &readOnly, nullptr, &readOnly };
constexpr ValueOps valueOps = {};
constexpr TypeImpl impls[] = { { attrOps, nullptr, nullptr, nullptr, &valueOps, nullptr },
   { nullptr, nullptr, nullptr, nullptr, &valueOps, nullptr },
   { nullptr, nullptr, nullptr, nullptr, &valueOps, nullptr },
   { nullptr, nullptr, nullptr, nullptr, &valueOps, nullptr },
   { nullptr, nullptr, nullptr, nullptr, &valueOps, nullptr },
   { nullptr, nullptr, nullptr, nullptr, &valueOps, nullptr } };

// Registered nowhere.
extern KelModule const record;
constexpr TypeRef referenced[] = { { &record, 0, {} }, { &record, 4, {} } };
constexpr KelModule record = { types, attrs, noArgs, typeNames, attrNames, referenced, impls,
   std::size( types ) };

KelType const plain( &record, 0 );
KelType const derived( &record, 1 );
KelType const bare( &record, 2 );
KelType const number( &record, 3 );
KelType const ofEmpty( &record, 5 );

KelAttr row( std::uint16_t index, KelType const& scope = plain ) {
   return KelAttr( &record, scope.typeIndex(), index );
}

struct Rows : testing::Test {
   Locked locked;
};

template< class E >
String messageOf( std::function< void() > const& fails ) {
   try {
      fails();
   } catch( E const& exception ) {
      return exception.message();
   }
   return String( "nothing" );
}

} // namespace

TEST_F( Rows, that_are_not_readable_refuse_a_read_by_name ) {
   EXPECT_EQ(
      messageOf< NoImplementationException >( [] { row( 0 ).genericIfGet( nullptr, nullptr ); } ),
      String( "attribute Rows::Plain.unreadable is not readable" ) );
}

TEST_F( Rows, without_an_operation_support_none ) {
   EXPECT_EQ(
      messageOf< OpNotSupportedException >( [] { row( 1 ).genericIfGet( nullptr, nullptr ); } ),
      String( "Rows::Plain.without does not support the operation 'read'" ) );
   EXPECT_EQ( messageOf< OpNotSupportedException >(
                 [] { row( 1 ).genericIfSet( nullptr, nullptr, generic( U32( 1 ) ) ); } ),
      String( "Rows::Plain.without does not support the operation 'write'" ) );
   EXPECT_EQ( messageOf< OpNotSupportedException >(
                 [] { static_cast< void >( row( 1 ).genericIfMembers( nullptr ) ); } ),
      String( "Rows::Plain.without does not support the operation 'members'" ) );
   AttrCall call{ .attr = {}, .op = AttributeOp::get };
   EXPECT_EQ( attributeOp( plain, attrId( "without" ), call ), attrOpNotApplicable );
   EXPECT_EQ( attributeOp( plain, attrId( "keyed" ), call ), attrOpDone );
   EXPECT_EQ( attributeOp( derived, attrId( "keyed" ), call ), attrOpNotOwn );
}

TEST_F( Rows, of_a_type_without_operations_support_none ) {
   KelAttr const attr = row( 3, bare );
   EXPECT_EQ(
      messageOf< OpNotSupportedException >( [&] { attr.genericIfGet( nullptr, nullptr ); } ),
      String( "Rows::Bare.bare does not support the operation 'read'" ) );
   EXPECT_EQ( messageOf< OpNotSupportedException >(
                 [&] { attr.genericIfSet( nullptr, nullptr, generic( U32( 1 ) ) ); } ),
      String( "Rows::Bare.bare does not support the operation 'write'" ) );
   EXPECT_EQ( messageOf< OpNotSupportedException >(
                 [&] { static_cast< void >( attr.genericIfBack( nullptr ) ); } ),
      String( "Rows::Bare.bare does not support the operation 'back'" ) );
   AttrCall call{ .attr = {}, .op = AttributeOp::get };
   EXPECT_EQ( attributeOp( bare, attrId( "bare" ), call ), attrOpNotApplicable );
}

TEST_F( Rows, of_no_type_belong_to_none ) {
   String const message( "Rows::Plain.orphan belongs to no type" );
   auto const value = generic( U32( 1 ) );
   EXPECT_EQ(
      messageOf< InternalException >( [&] { row( 4 ).genericIfGet( value, nullptr ); } ), message );
   EXPECT_EQ( messageOf< InternalException >(
                 [&] { row( 4 ).genericIfSet( value, nullptr, generic( U32( 1 ) ) ); } ),
      message );
   EXPECT_EQ( messageOf< InternalException >(
                 [&] { static_cast< void >( row( 4 ).genericIfExist( value, nullptr ) ); } ),
      message );
}

TEST_F( Rows, are_found_by_handles_that_were_made_for_another_type ) {
   EXPECT_EQ( messageOf< OpNotSupportedException >(
                 [] { row( 1, derived ).genericIfGet( nullptr, nullptr ); } ),
      String( "Rows::Derived.without does not support the operation 'read'" ) );
   EXPECT_EQ( messageOf< OpNotSupportedException >(
                 [] { row( 1, derived ).genericIfSet( nullptr, nullptr, nullptr ); } ),
      String( "Rows::Derived.without does not support the operation 'write'" ) );
   EXPECT_EQ( messageOf< OpNotSupportedException >(
                 [] { static_cast< void >( row( 1, derived ).genericIfFront( nullptr ) ); } ),
      String( "Rows::Derived.without does not support the operation 'front'" ) );
}

TEST_F( Rows, with_members_of_no_type_have_no_index_attribute ) {
   EXPECT_FALSE( row( 2 ).memberType() );
   EXPECT_FALSE( row( 2 ).indexAttr() );
}

TEST_F( Rows, of_a_flagged_type_hold_its_value_attribute ) {
   EXPECT_STREQ( plain.valAttr().name(), "unreadable" );
   EXPECT_STREQ( derived.valAttr().name(), "unreadable" ); // of the last of its bases
   EXPECT_STREQ( number.valAttr().name(), "bare" );        // an enum type has none
   EXPECT_FALSE( bare.valAttr() );
   EXPECT_FALSE( ofEmpty.valAttr() ); // the last of its bases has none
}

TEST_F( Rows, of_every_kind_need_an_object_of_their_type ) {
   auto const box = make( "Unit::Box", { text( "box" ), generic( U32( 3 ) ) } );
   auto const part = make( "Unit::Part", { text( "p" ) } );
   String const none( "Unit::Box.price needs an object" );
   String const wrong( "expected Unit::Box, got Unit::Part" );
   KelAttr const price = attr( box, "price" );
   auto const expectRefused = [&price]( Ptr< GenericIf > const& object, String const& message ) {
      EXPECT_EQ(
         messageOf< TypeException >( [&] { price.genericIfGet( object, nullptr ); } ), message );
      EXPECT_EQ( messageOf< TypeException >(
                    [&] { price.genericIfSet( object, nullptr, generic( Money{ 1 } ) ); } ),
         message );
      EXPECT_EQ( messageOf< TypeException >(
                    [&] { static_cast< void >( price.genericIfVersion( object ) ); } ),
         message );
   };
   expectRefused( nullptr, none );
   expectRefused( part, wrong );
}

TEST_F( Rows, of_an_object_that_counts_itself_need_one_in_the_view ) {
   auto const view = Schema::makeView< Own >( nullptr, false );
   ASSERT_TRUE( view );
   EXPECT_EQ( messageOf< TypeException >( [&] { get( view, "n" ); } ),
      String( "Unit::Own.n needs an object" ) );
}

TEST_F( Rows, of_a_base_are_reached_through_a_derived_object_by_every_operation ) {
   auto const special = make( "Unit::SpecialPart", { text( "s" ) } );
   set( special, "weight", generic( U32( 4 ) ) );
   EXPECT_EQ( as< U32 >( get( special, "weight" ) ), 4u );
   EXPECT_TRUE( attr( special, "twin" ).genericIfCall( special, { text( "2" ) } ) );
   auto const rack = make( "Unit::Rack", { text( "rack" ) } );
   EXPECT_EQ( attr( rack, "entityPtr" ).genericIfMembers( rack ), 0u );
   EXPECT_EQ( as< String >( get( rack, "name" ) ), String( "rack" ) );
}
