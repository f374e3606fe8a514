#include <gtest/gtest.h>

#include <algorithm>
#include <string_view>

#include <kel/Activity.h>
#include <kel/Exception.h>
#include <kel/TypeImpl.h>

#include "GenericHelp.h"
#include "TestUnit.h"

using namespace Kel;
using namespace Unit;

namespace {

KelType type( char const* name ) {
   return typeNode( name );
}

std::vector< std::string > attrNames( KelType type ) {
   std::vector< std::string > names;
   for( KelTypeBase::AttributeQIterator it( type ); it; ++it ) {
      names.emplace_back( ( *it ).name() );
   }
   return names;
}

} // namespace

TEST( Types, are_found_by_their_full_names_without_a_lock ) {
   EXPECT_TRUE( type( "Unit::Box" ) == kelType< Box >() );
   EXPECT_STREQ( kelType< Box >().fullTypeName(), "Unit::Box" );
   EXPECT_THROW( typeNode( "Unit::Nothing" ), NoTypeNodeException );
   EXPECT_FALSE( typeNodeOrNull( "Unit::Nothing" ) );
}

TEST( Types, are_listed_in_the_order_of_their_names ) {
   auto const names = typeNames();
   std::vector< std::string_view > const texts( names.begin(), names.end() );
   EXPECT_TRUE( std::is_sorted( texts.begin(), texts.end() ) );
   EXPECT_TRUE( std::binary_search( texts.begin(), texts.end(), "Unit::Box" ) );
}

TEST( Types, have_the_names_and_indices_of_the_built_in_ones ) {
   std::pair< char const*, int > const names[] = { { "U8", 1 }, { "S8", 2 }, { "U16", 3 },
      { "S16", 4 }, { "U32", 5 }, { "S32", 6 }, { "U64", 7 }, { "S64", 8 }, { "bool", 9 },
      { "char", 10 }, { "float", 11 }, { "double", 12 }, { "Kel::String", 13 },
      { "Kel::Bytes", 14 }, { "Kel::Seconds", 21 } };
   for( auto [name, index] : names ) {
      EXPECT_EQ( type( name ).typeIndex(), index ) << name;
      EXPECT_EQ( type( name ).module(), &_Kel_BuiltinType_kelModule ) << name;
      EXPECT_TRUE( type( name ).isBuiltinType() && type( name ).isValue() ) << name;
   }
}

TEST( Types, resolve_core_references_at_the_places_that_others_rely_on ) {
   EXPECT_FALSE( resolveTypeRef( &_Unit_kelModule, -1 ) );
   EXPECT_TRUE( KelType( Impl::coreTypes_[1] ) == kelType< PtrInterface >() );
   EXPECT_EQ( Impl::coreTypes_[3].typeIndex, 0 );
   EXPECT_STREQ( KelType( Impl::coreTypes_[12] ).fullTypeName(), "bool" );
   EXPECT_STREQ( KelType( Impl::coreTypes_[16] ).fullTypeName(), "Kel::String" );
   EXPECT_STREQ( KelType( Impl::coreTypes_[24] ).fullTypeName(), "Kel::Seconds" );
}

TEST( Types, of_the_runtime_stand_at_their_fixed_indices ) {
   EXPECT_EQ( kelType< PtrInterface >().typeIndex(), 0 );
   EXPECT_EQ( kelType< Entity >().typeIndex(), 1 );
   EXPECT_EQ( kelType< Dir >().typeIndex(), 0 );
   EXPECT_EQ( type( "Kel::Clock" ).module(), &_Clock_f476dd55_kelModule );
   EXPECT_EQ( type( "Kel::TraceFacility" ).typeIndex(), 2 );
}

TEST( Types, tell_their_size_alignment_and_flags ) {
   EXPECT_EQ( kelType< Money >().size(), sizeof( Money ) );
   EXPECT_EQ( kelType< Box >().align(), alignof( Box ) );
   EXPECT_TRUE( kelType< Money >().isValue() );
   EXPECT_TRUE( kelType< Level >().isEnumType() );
   EXPECT_TRUE( kelType< Either >().isUnionType() );
   EXPECT_TRUE( kelType< Box >().flag( TypeFlag::isPolymorphic ) );
   EXPECT_FALSE( kelType< Money >().flag( TypeFlag::isPolymorphic ) );
   EXPECT_TRUE( kelType< Pair >().flag( TypeFlag::containsOptionalsOrCollections ) );
   EXPECT_TRUE( kelType< PtrInterface::NotifieeConst >().isConstrainer() );
   EXPECT_FALSE( kelType< Money >().isConstrainer() );
}

TEST( Types, know_their_chain ) {
   EXPECT_TRUE( kelType< Box >().isDerived( kelType< Entity >() ) );
   EXPECT_TRUE( kelType< Box >().isDerived( kelType< PtrInterface >() ) );
   EXPECT_FALSE( kelType< Entity >().isDerived( kelType< Box >() ) );
   EXPECT_FALSE( kelType< Part >().isDerived( kelType< PtrInterface >() ) );
   EXPECT_TRUE( kelType< Box >().isEntity() && !kelType< Box >().isKelDir() );
   EXPECT_TRUE( kelType< Rack >().isKelDir() );
   EXPECT_FALSE( kelType< Level >().baseType() );
   EXPECT_STREQ( kelType< Level >().underlyingType().fullTypeName(), "S16" );
   EXPECT_FALSE( kelType< Money >().underlyingType() );
}

TEST( Types, list_attributes_of_their_bases_first ) {
   EXPECT_EQ( attrNames( kelType< Rack >() ),
      ( std::vector< std::string >{ "name", "fullName", "mountMode", "isMounted", "entityPtr",
         "mountExempt", "width", "height", "slot" } ) );
   EXPECT_EQ( kelType< Rack >().attributes(), 9u );
   EXPECT_TRUE( attrNames( type( "U32" ) ).empty() );
}

TEST( Types, have_a_default_collection_only_as_directories ) {
   EXPECT_STREQ( kelType< Dir >().defaultCollection().name(), "entityPtr" );
   EXPECT_STREQ( kelType< Rack >().defaultCollection().name(), "slot" );
   EXPECT_FALSE( kelType< Box >().defaultCollection() );
}

TEST( Types, give_the_value_attribute_of_the_last_type_in_the_chain ) {
   EXPECT_STREQ( kelType< Money >().valAttr().name(), "cents" );
   EXPECT_FALSE( kelType< Pair >().valAttr() );
}

TEST( Attributes, are_found_by_name_and_by_id_with_their_declaring_type ) {
   KelAttr name = kelType< Box >().attr( "name" );
   EXPECT_TRUE( name.scope() == kelType< Entity >() );
   EXPECT_TRUE( kelType< Box >().attr( name.attributeId() ) == name );
   EXPECT_FALSE( kelType< Box >().attr( "nothing" ) );
   EXPECT_FALSE( kelType< Box >().attr( AttributeId( 0 ) ) );
}

TEST( Attributes, seen_from_two_scopes_are_one ) {
   KelAttr name = kelType< Entity >().attr( "name" );
   KelAttr other( name.module(), 0, name.attrIndex() );
   EXPECT_TRUE( name == other );
   EXPECT_EQ( std::hash< KelAttr >()( name ), std::hash< KelAttr >()( other ) );
}

TEST( Attributes, tell_pointers_keys_and_arguments ) {
   auto box = []( char const* name ) { return kelType< Box >().attr( name ); };
   EXPECT_TRUE( box( "part" ).flag( AttrFlag::isNonconstPtr ) );
   EXPECT_TRUE( box( "constPart" ).flag( AttrFlag::isConstPtr ) );
   EXPECT_TRUE( box( "rawPart" ).flag( AttrFlag::rawPtrInterface ) );
   EXPECT_STREQ( box( "made" ).indexAttr().name(), "id" );
   EXPECT_STREQ( box( "made" ).indexType().fullTypeName(), "Kel::String" );
   EXPECT_FALSE( box( "stock" ).indexAttr() );
   EXPECT_EQ( box( "made" ).instantiatingArgNames(), 1u );
   EXPECT_EQ( kelType< Box >().constructorArgNames(), 2u );
   EXPECT_TRUE( box( "track" ).isVector() && !box( "track" ).isEnumConst() );
   EXPECT_TRUE( box( "order" ).isQueueCollection() && box( "undo" ).isStackCollection() );
   EXPECT_TRUE( box( "tag" ).isSet() && box( "slot" ).flag( AttrFlag::isDynArray ) );
   EXPECT_TRUE( box( "boxes" ).isStatic() && !box( "size" ).writable() );
}

TEST( Attributes, of_value_types_are_the_independent_domain ) {
   auto domain = []( KelType type, char const* name ) {
      return type.attr( name ).flag( AttrFlag::isIndependentDomainAttr );
   };
   EXPECT_TRUE( domain( kelType< Pair >(), "count" ) );
   EXPECT_FALSE( domain( kelType< Box >(), "price" ) );
   EXPECT_FALSE( domain( kelType< Level >(), "low" ) );
}

TEST( EnumConstants, carry_their_value_and_are_found_by_it ) {
   KelType level = kelType< Level >();
   EXPECT_EQ( level.attr( "low" ).enumValue< S16 >(), -2 );
   EXPECT_EQ( level.attr( "high" ).enumValue< S16 >(), 300 );
   EXPECT_STREQ( level.attr< S16 >( 300 ).name(), "high" );
   EXPECT_FALSE( level.attr< S16 >( 5 ) );
   EXPECT_THROW( level.attr( "low" ).enumValue< S32 >(), TypeException );
   EXPECT_THROW( level.attr< U16 >( 300 ), TypeException );
   EXPECT_THROW( kelType< Money >().attr< S16 >( 1 ), TypeException );
   EXPECT_THROW( kelType< Money >().attr( "cents" ).enumValue< U32 >(), TypeException );
}

TEST( AttributeOperation, says_whether_it_applies_and_whether_the_id_is_the_types_own ) {
   Locked locked;
   Money money{ 5 };
   AttrCall call{ .attr = {}, .op = AttributeOp::get, .object = &money };
   EXPECT_EQ( attributeOp( kelType< Money >(), attrId( "cents" ), call ), attrOpDone );
   EXPECT_EQ( as< U32 >( call.result ), 5u );
   AttrCall wrongOp{ .attr = {}, .op = AttributeOp::call, .object = &money };
   EXPECT_EQ( attributeOp( kelType< Money >(), attrId( "cents" ), wrongOp ), attrOpNotApplicable );
   EXPECT_EQ( attributeOp( kelType< Money >(), 7, call ), attrOpNotOwn );
}
