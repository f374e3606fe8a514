#include <gtest/gtest.h>

#include <set>

#include <kel/Exception.h>

#include "GenericHelp.h"
#include "TestUnit.h"

using namespace Kel;
using namespace Unit;

namespace {

struct Generics : testing::Test {
   Locked locked;
   Ptr< GenericIf > box = make( "Unit::Box", { text( "box" ), generic( U32( 3 ) ) } );
   Box& object() { return *static_cast< Box* >( box->voidPtrIs( kelType< Box >() ) ); }
};

} // namespace

TEST_F( Generics, are_made_from_constructor_arguments ) {
   EXPECT_EQ( object().size(), 3u );
   EXPECT_EQ( as< String >( get( box, "name" ) ), String( "box" ) );
   EXPECT_THROW( make( "Unit::Box", {} ), TypeException );
   EXPECT_THROW( make( "Unit::Box", { generic( U32( 1 ) ), text( "x" ) } ), TypeException );
   EXPECT_THROW( make( "Kel::ActivityManager", {} ), NoImplementationException );
}

TEST_F( Generics, show_the_dynamic_type_that_a_constructor_gives ) {
   auto special = make( "Unit::Maker", { generic( true ) } );
   EXPECT_TRUE( special->type() == kelType< SpecialPart >() );
   EXPECT_TRUE( make( "Unit::Maker", { generic( false ) } )->type() == kelType< Part >() );
   EXPECT_TRUE( special->voidPtrIs( kelType< Part >() ) );
   EXPECT_EQ( special->voidPtrIs( kelType< Box >() ), nullptr );
   EXPECT_TRUE( special->voidPtrIs( kelType< PtrInterface >() ) );
}

TEST_F( Generics, read_values_as_const_copies ) {
   set( box, "price", generic( Money{ 12 } ) );
   auto price = get( box, "price" );
   EXPECT_TRUE( price->isConst() );
   object().priceIs( { 13 } );
   EXPECT_EQ( as< Money >( price ).cents, 12u );
   EXPECT_THROW( set( price, "cents", generic( U32( 1 ) ) ), ConstException );
}

TEST_F( Generics, read_pointers_by_the_constness_of_their_declaration ) {
   EXPECT_FALSE( get( box, "part" ) );
   auto part = make( "Unit::Part", { text( "p" ) } );
   for( char const* name : { "part", "constPart", "rawPart" } ) {
      set( box, name, part );
   }
   EXPECT_FALSE( get( box, "part" )->isConst() );
   EXPECT_TRUE( get( box, "constPart" )->isConst() );
   EXPECT_FALSE( get( box, "rawPart" )->isConst() );
   EXPECT_EQ( get( box, "constPart" )->hash(), part->hash() );
   set( box, "part", nullptr );
   EXPECT_FALSE( get( box, "part" ) );
}

TEST_F( Generics, refuse_a_const_object_for_a_non_const_pointer ) {
   auto part = newObject< Part >( String( "p" ) );
   auto view = KelType::genericIf( part.get(), true );
   EXPECT_THROW( set( box, "part", view ), ConstException );
   set( box, "constPart", view );
   EXPECT_EQ( object().constPart, part );
}

TEST_F( Generics, refuse_changes_through_const_views_and_name_the_attribute ) {
   auto view = KelType::genericIf( &object(), true );
   try {
      set( view, "price", generic( Money{ 1 } ) );
      FAIL();
   } catch( ConstException const& exception ) {
      EXPECT_EQ( exception.message(), String( "cannot change Unit::Box.price of a const object" ) );
   }
   EXPECT_THROW( attr( view, "stock" ).genericIfSet( view, text( "a" ), generic( U32( 1 ) ) ),
      ConstException );
   EXPECT_THROW( attr( view, "order" ).genericIfAdd( view, text( "a" ) ), ConstException );
   EXPECT_THROW( attr( view, "order" ).genericIfRemove( view ), ConstException );
   EXPECT_THROW( attr( view, "stock" ).genericIfDel( view, text( "a" ) ), ConstException );
   auto part = make( "Unit::Part", { text( "p" ) } );
   auto constPart = KelType::genericIf( part->ptrInterface(), true );
   EXPECT_THROW( attr( part, "drop" ).genericIfCall( constPart, {} ), ConstException );
   EXPECT_TRUE( attr( part, "twin" ).genericIfCall( constPart, { text( "2" ) } ) );
}

TEST_F( Generics, refuse_a_write_of_what_is_not_writable ) {
   try {
      set( box, "size", generic( U32( 1 ) ) );
      FAIL();
   } catch( NoImplementationException const& exception ) {
      EXPECT_EQ( exception.message(), String( "attribute Unit::Box.size is not writable" ) );
   }
}

TEST_F( Generics, refuse_objects_and_values_of_another_type ) {
   auto part = make( "Unit::Part", { text( "p" ) } );
   EXPECT_THROW( attr( box, "size" ).genericIfGet( part, nullptr ), TypeException );
   EXPECT_THROW( attr( box, "size" ).genericIfGet( nullptr, nullptr ), TypeException );
   EXPECT_THROW( set( box, "price", generic( U32( 1 ) ) ), TypeException );
   EXPECT_THROW( set( box, "price", nullptr ), TypeException );
   EXPECT_THROW( attr( box, "size" ).genericIfCall( box, {} ), OpNotSupportedException );
}

TEST_F( Generics, reach_static_attributes_without_an_object ) {
   KelAttr boxes = kelType< Box >().attr( "boxes" );
   EXPECT_EQ( as< U32 >( boxes.genericIfGet( nullptr, nullptr ) ), 5u );
   boxes.genericIfSet( nullptr, nullptr, generic( U32( 6 ) ) );
   EXPECT_EQ( Box::boxes, 6u );
   Box::boxes = 5;
}

TEST_F( Generics, give_enum_constants_by_themselves ) {
   auto high = kelType< Level >().attr( "high" ).genericIfGet( nullptr, nullptr );
   EXPECT_TRUE( high->type() == kelType< Level >() );
   EXPECT_EQ( *high->attrValPtr< short >(), 300 );
   set( box, "level", high );
   EXPECT_EQ( object().level, Level::high );
   EXPECT_EQ( high->strRep(), String( "high" ) );
}

TEST_F( Generics, give_null_for_an_absent_optional_value ) {
   auto pair = newValue< Pair >();
   EXPECT_FALSE( get( pair, "count" ) );
   set( pair, "count", generic( U32( 4 ) ) );
   EXPECT_EQ( as< U32 >( get( pair, "count" ) ), 4u );
   set( pair, "count", nullptr );
   EXPECT_FALSE( get( pair, "count" ) );
}

TEST_F( Generics, tell_the_live_alternative_of_a_union ) {
   auto either = newValue< Either >();
   EXPECT_TRUE( attr( either, "number" ).genericIfUnionAlternative( either ) );
   set( either, "text", text( "x" ) );
   EXPECT_FALSE( attr( either, "number" ).genericIfUnionAlternative( either ) );
   EXPECT_EQ( either->strRep(), String( "Unit::Either(text=x)" ) );
}

TEST_F( Generics, make_and_drop_an_object_in_place ) {
   KelAttr lid = attr( box, "lid" );
   auto live = Part::live;
   auto made = lid.genericIfSet( box, ArgVector{ text( "lid" ) } );
   EXPECT_EQ( as< String >( get( made, "id" ) ), String( "lid" ) );
   EXPECT_EQ( Part::live, live + 1 );
   made = nullptr;
   EXPECT_TRUE( lid.genericIfDel( box, nullptr ) );
   EXPECT_FALSE( lid.genericIfDel( box, nullptr ) );
   EXPECT_EQ( Part::live, live );
}

TEST_F( Generics, calculate_with_what_the_type_can_do ) {
   KelType money = kelType< Money >();
   auto two = generic( Money{ 2 } ), three = generic( Money{ 3 } );
   auto sum = money.genericIfArithmeticOp( two, AttributeOp::operatorPlus_, three );
   EXPECT_EQ( as< Money >( sum ).cents, 5u );
   EXPECT_FALSE( sum->isConst() );
   EXPECT_TRUE( money.genericIfBooleanOp( two, AttributeOp::operatorLess_, three ) );
   EXPECT_FALSE( money.genericIfBooleanOp( two, AttributeOp::operatorEqual_, three ) );
   EXPECT_TRUE( money.genericIfBooleanOp( two, AttributeOp::operatorBool_, nullptr ) );
   EXPECT_THROW( money.genericIfArithmeticOp( two, AttributeOp::operatorMult_, three ),
      OpNotSupportedException );
   EXPECT_THROW( money.genericIfArithmeticOp( two, AttributeOp::operatorCompl_, nullptr ),
      OpNotSupportedException );
   auto pair = newValue< Pair >();
   EXPECT_THROW( kelType< Pair >().genericIfBooleanOp( pair, AttributeOp::operatorEqual_, pair ),
      OpNotSupportedException );
   EXPECT_THROW( kelType< Box >().genericIfBooleanOp( box, AttributeOp::operatorEqual_, box ),
      OpNotSupportedException );
}

TEST_F( Generics, hash_and_print_values_by_their_attributes ) {
   auto a = generic( Pair{ "x", 1 } ), b = generic( Pair{ "x", 1 } ),
        c = generic( Pair{ "x", {} } );
   EXPECT_EQ( a->hash(), b->hash() );
   EXPECT_NE( a->hash(), c->hash() );
   EXPECT_NE( a->hash(), generic( Pair{ "y", 1 } )->hash() );
   EXPECT_EQ( c->strRep(), String( "Unit::Pair(name=x, count=None)" ) );
   EXPECT_EQ( generic( Money{ 0x80000001u } )->hash(), 0x80000001u );
   EXPECT_EQ( box->strRep(), String( "entity('box')" ) );
}

TEST_F( Generics, of_built_in_types_have_texts_and_an_order ) {
   EXPECT_EQ( generic( true )->strRep(), String( "true" ) );
   EXPECT_EQ( generic( false )->strRep(), String( "false" ) );
   EXPECT_EQ( generic( char( 'x' ) )->strRep(), String( "x" ) );
   EXPECT_EQ( generic( 0.5 )->strRep(), String( "0.5" ) );
   KelType const number = kelType< U32 >();
   auto const two = generic( U32( 2 ) ), three = generic( U32( 3 ) );
   EXPECT_TRUE( number.genericIfBooleanOp( two, AttributeOp::operatorLess_, three ) );
   EXPECT_FALSE( number.genericIfBooleanOp( three, AttributeOp::operatorLess_, two ) );
   EXPECT_FALSE( number.genericIfBooleanOp( two, AttributeOp::operatorLess_, two ) );
   EXPECT_TRUE( number.genericIfBooleanOp( two, AttributeOp::operatorEqual_, two ) );
}

TEST_F( Generics, end_the_object_with_the_last_view ) {
   auto live = Part::live;
   auto view = make( "Unit::Part", { text( "p" ) } );
   auto other = KelType::genericIf( view->ptrInterface(), true );
   view = nullptr;
   EXPECT_EQ( Part::live, live + 1 );
   other = nullptr;
   EXPECT_EQ( Part::live, live );
}

TEST_F( Generics, read_a_scalar_without_malloc_once_warm ) {
   KelAttr size = attr( box, "size" );
   std::set< GenericIf* > addresses;
   for( int i = 0; i < 100; ++i ) {
      addresses.insert( size.genericIfGet( box, nullptr ).get() );
   }
#if !defined( __SANITIZE_ADDRESS__ ) && !defined( __SANITIZE_THREAD__ )
   EXPECT_EQ( addresses.size(), 1u );
#endif
}

TEST_F( Generics, refuse_operations_that_are_no_operators_or_have_not_their_operands ) {
   KelType const money = kelType< Money >();
   auto const two = generic( Money{ 2 } );
   auto const message = [&]( auto const& operate, AttributeOp op ) {
      try {
         operate( op );
      } catch( OpNotSupportedException const& exception ) {
         return exception.message();
      }
      return String( "nothing" );
   };
   auto const arithmetic = [&]( AttributeOp op ) { money.genericIfArithmeticOp( two, op, two ); };
   auto const boolean = [&]( AttributeOp op ) { money.genericIfBooleanOp( two, op, two ); };
   String const none( "Unit::Money does not support the operation asked for" );
   for( AttributeOp const op : { AttributeOp::get, AttributeOp::iterate } ) {
      EXPECT_EQ( message( arithmetic, op ), none );
      EXPECT_EQ( message( boolean, op ), none );
   }
   EXPECT_EQ( message( arithmetic, AttributeOp::operatorLess_ ),
      String( "Unit::Money does not support the operation <" ) );
   EXPECT_EQ( message( boolean, AttributeOp::operatorPlus_ ),
      String( "Unit::Money does not support the operation +" ) );
   EXPECT_EQ( message( boolean, AttributeOp::operatorBool_ ),
      String( "Unit::Money does not support the operation truth" ) ); // it has one operand
   auto const plus = AttributeOp::operatorPlus_;
   EXPECT_THROW( money.genericIfArithmeticOp( nullptr, plus, two ), OpNotSupportedException );
   EXPECT_THROW( money.genericIfArithmeticOp( two, plus, nullptr ), OpNotSupportedException );
   auto const less = AttributeOp::operatorLess_;
   EXPECT_THROW( money.genericIfBooleanOp( nullptr, less, two ), OpNotSupportedException );
   EXPECT_THROW( money.genericIfBooleanOp( two, less, nullptr ), OpNotSupportedException );
   EXPECT_THROW( money.genericIfBooleanOp( two, less, generic( U32( 2 ) ) ), TypeException );
   EXPECT_THROW(
      kelType< Part >().genericIfArithmeticOp( box, plus, box ), OpNotSupportedException );
}

TEST_F( Generics, of_an_enum_begin_with_zero_and_show_a_number_that_is_no_constant ) {
   EXPECT_EQ( newValue< Level >()->strRep(), String( "none" ) );
   EXPECT_EQ( generic( Level( 7 ) )->strRep(), String( "Unit::Level(7)" ) );
}

TEST_F( Generics, of_values_count_no_references ) {
   EXPECT_EQ( generic( U32( 1 ) )->references(), 0u );
   EXPECT_EQ( box->references(), 1u );
}

TEST_F( Generics, write_static_attributes_through_const_views ) {
   auto const view = KelType::genericIf( &object(), true );
   set( view, "boxes", generic( U32( 6 ) ) );
   EXPECT_EQ( Box::boxes, 6u );
   Box::boxes = 5;
}

TEST_F( Generics, that_are_made_in_place_are_no_collection_and_take_no_value ) {
   KelAttr const lid = attr( box, "lid" );
   auto const part = make( "Unit::Part", { text( "p" ) } );
   EXPECT_THROW( lid.genericIfSet( box, nullptr, part ), OpNotSupportedException );
   EXPECT_THROW( static_cast< void >( lid.genericIfMembers( box ) ), OpNotSupportedException );
   EXPECT_FALSE( get( box, "lid" ) );
}

TEST_F( Generics, view_objects_that_count_themselves_by_their_bases_too ) {
   Ptr< SpecialOwn > const special = new SpecialOwn();
   auto const view = kelType< SpecialOwn >().genericIf( special.get(), false );
   EXPECT_EQ( view->references(), 2u );
   EXPECT_EQ( view->voidPtrIs( kelType< Own >() ), static_cast< Own* >( special.get() ) );
   EXPECT_EQ( view->voidPtrIs( kelType< PtrInterface >() ), nullptr );
   EXPECT_EQ( as< U32 >( get( view, "n" ) ), 5u );
   set( view, "n", generic( U32( 8 ) ) );
   EXPECT_EQ( special->n, 8u );
   EXPECT_EQ( as< U32 >( get( view, "more" ) ), 6u );
}

TEST_F( Generics, view_no_object_where_there_is_none ) {
   auto const view = kelType< Own >().genericIf( static_cast< void const* >( nullptr ), false );
   ASSERT_TRUE( view );
   EXPECT_EQ( view->references(), 0u );
   EXPECT_EQ( view->voidPtrIs( kelType< Own >() ), nullptr );
   EXPECT_EQ( view->voidPtrIs( kelType< Part >() ), nullptr );
   EXPECT_EQ( view->strRep(), String( "generic(0x0000000000000000)" ) );
   EXPECT_FALSE( KelType::genericIf( static_cast< PtrInterface* >( nullptr ), false ) );
}

TEST_F( Generics, are_gone_over_by_no_iterator_of_nothing ) {
   EXPECT_FALSE( static_cast< bool >( GenericIfRaw::Iterator() ) );
}

TEST_F( Generics, calculate_with_one_operand_where_the_operator_has_one ) {
   auto const mask = generic( Mask{ 0xf0f0f0f0u } );
   auto const other =
      kelType< Mask >().genericIfArithmeticOp( mask, AttributeOp::operatorCompl_, nullptr );
   EXPECT_EQ( as< Mask >( other ).bits, 0x0f0f0f0fu );
   EXPECT_THROW( kelType< Mask >().genericIfArithmeticOp( mask, AttributeOp::operatorCompl_, mask ),
      OpNotSupportedException );
}

TEST_F( Generics, copy_the_value_at_an_address ) {
   Money money{ 7 };
   auto const copy = kelType< Money >().genericIf( &money, false );
   money.cents = 8;
   EXPECT_EQ( as< Money >( copy ).cents, 7u );
   Level const level = Level::high;
   EXPECT_EQ( kelType< Level >().genericIf( &level, true )->strRep(), String( "high" ) );
   U32 const number = 9;
   EXPECT_EQ( as< U32 >( kelType< U32 >().genericIf( &number, true ) ), 9u );
}
