#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <new>

#include <kel/Exception.h>

#include "GenericHelp.h"
#include "TestUnit.h"

using namespace Kel;
using namespace Unit;

namespace {

struct Collection : testing::Test {
   Locked locked;
   Ptr< GenericIf > box = make( "Unit::Box", { text( "box" ), generic( U32( 3 ) ) } );
   Box& object() { return *static_cast< Box* >( box->voidPtrIs( kelType< Box >() ) ); }

   std::string keys( GenericIf::Iterator it ) {
      std::string all;
      for( ; it; ++it ) {
         all += it.key()->strRep().stdString() + " ";
      }
      return all;
   }
   std::string keys( char const* name ) {
      return keys( attr( box, name ).genericIfIterator( box ) );
   }
   void fillStock( std::initializer_list< char const* > names ) {
      for( auto* name : names ) {
         object().stock.set( name, 1 );
      }
   }
};

} // namespace

TEST_F( Collection, with_external_keys_is_read_written_and_deleted_by_key ) {
   KelAttr stock = attr( box, "stock" );
   stock.genericIfSet( box, text( "a" ), generic( U32( 5 ) ) );
   EXPECT_EQ( as< U32 >( stock.genericIfGet( box, text( "a" ) ) ), 5u );
   EXPECT_TRUE( stock.genericIfExist( box, text( "a" ) ) );
   EXPECT_FALSE( stock.genericIfExist( box, text( "b" ) ) );
   EXPECT_EQ( stock.genericIfMembers( box ), 1u );
   auto version = stock.genericIfVersion( box );
   EXPECT_TRUE( stock.genericIfDel( box, text( "a" ) ) );
   EXPECT_FALSE( stock.genericIfDel( box, text( "a" ) ) );
   EXPECT_NE( stock.genericIfVersion( box ), version );
   EXPECT_THROW( stock.genericIfGet( box, text( "a" ) ), RangeException );
   EXPECT_THROW( stock.genericIfAdd( box, generic( U32( 1 ) ) ), OpNotSupportedException );
}

TEST_F( Collection, finds_no_member_that_was_found_before_and_has_gone ) {
   Map< U32, U32 > map;
   map.set( 1, 10 );
   map.set( 2, 20 );
   EXPECT_TRUE( map.exist( 1 ) );
   map.del( 1 );
   EXPECT_FALSE( map.exist( 1 ) );
   map.set( 1, 11 );
   EXPECT_EQ( *map.find( 1 ), 11u );
   EXPECT_TRUE( map.exist( 2 ) );
   map = {};
   map.set( 3, 30 );
   EXPECT_FALSE( map.exist( 2 ) );
}

TEST_F( Collection, tells_keys_of_one_hash_apart ) {
   using Node = MapNode< U32, U32 >;
   using Impl = HashMap2018VTable::Impl< Node, U32 >;
   constexpr HashMap2018VTable oneHash = { []( void const* ) -> std::size_t { return 7; },
      Impl::holdsKey, Impl::deleteNode };
   HashMap2018Generic map( &oneHash, 1u, false );
   U32 const keys[] = { 1, 2, 3 };
   auto* const first = new Node( keys[0], 10 );
   auto* const second = new Node( keys[1], 20 );
   map.newMemberG( first, &keys[0] );
   map.newMemberG( second, &keys[1] );
   EXPECT_EQ( map.lookupNodeG( &keys[0] ), first );
   EXPECT_EQ( map.lookupNodeG( &keys[1] ), second );
   EXPECT_EQ( map.lookupNodeG( &keys[2] ), nullptr );
   map.deleteMemberG( first );
   EXPECT_EQ( map.lookupNodeG( &keys[0] ), nullptr );
   EXPECT_EQ( map.lookupNodeG( &keys[1] ), second );
}

TEST_F( Collection, that_instantiates_makes_its_members_under_their_own_key ) {
   KelAttr made = attr( box, "made" );
   auto member = made.genericIfSet( box, ArgVector{ text( "x" ) } );
   EXPECT_FALSE( member->isConst() );
   EXPECT_EQ( keys( "made" ), "x " );
   EXPECT_THROW( made.genericIfSet( box, ArgVector{ text( "x" ) } ), NameInUseException );
   EXPECT_THROW( made.genericIfSet( box, nullptr, member ), OpNotSupportedException );
   auto view = KelType::genericIf( &object(), true );
   EXPECT_TRUE( made.genericIfGet( view, text( "x" ) )->isConst() );
}

TEST_F( Collection, of_pointers_takes_members_by_their_own_key ) {
   auto part = make( "Unit::Part", { text( "p" ) } );
   KelAttr seen = attr( box, "seen" );
   seen.genericIfSet( box, nullptr, part );
   EXPECT_TRUE( seen.genericIfGet( box, text( "p" ) )->isConst() );
   EXPECT_THROW( seen.genericIfSet( box, nullptr, nullptr ), RangeException );
   EXPECT_TRUE( seen.genericIfDel( box, text( "p" ) ) );
}

TEST_F( Collection, that_is_a_set_maps_elements_to_true ) {
   KelAttr tag = attr( box, "tag" );
   tag.genericIfSet( box, text( "new" ), generic( true ) );
   EXPECT_TRUE( as< bool >( tag.genericIfGet( box, text( "new" ) ) ) );
   tag.genericIfSet( box, text( "new" ), generic( false ) );
   EXPECT_FALSE( tag.genericIfExist( box, text( "new" ) ) );
}

TEST_F( Collection, that_is_a_queue_is_first_in_first_out ) {
   KelAttr order = attr( box, "order" );
   for( auto* name : { "a", "b", "c" } ) {
      order.genericIfAdd( box, text( name ) );
   }
   EXPECT_EQ( as< String >( order.genericIfFront( box ) ), String( "a" ) );
   EXPECT_EQ( as< String >( order.genericIfBack( box ) ), String( "c" ) );
   EXPECT_EQ( as< String >( order.genericIfRemove( box ) ), String( "a" ) );
   EXPECT_EQ( keys( "order" ), "1 2 " );
   EXPECT_EQ( as< String >( order.genericIfGet( box, generic( U32( 2 ) ) ) ), String( "c" ) );
   object().order.del( 1 );
   object().order.del( 2 );
   EXPECT_THROW( order.genericIfRemove( box ), RangeException );
   EXPECT_THROW( order.genericIfFront( box ), RangeException );
}

TEST_F( Collection, that_is_a_stack_has_its_front_on_top ) {
   KelAttr undo = attr( box, "undo" );
   for( U32 cents : { 1u, 2u, 3u } ) {
      undo.genericIfAdd( box, generic( Money{ cents } ) );
   }
   EXPECT_EQ( as< Money >( undo.genericIfFront( box ) ).cents, 3u );
   EXPECT_EQ( as< Money >( undo.genericIfBack( box ) ).cents, 1u );
   EXPECT_EQ( keys( "undo" ), "2 1 0 " );
   EXPECT_EQ( as< Money >( undo.genericIfRemove( box ) ).cents, 3u );
   EXPECT_EQ( undo.genericIfMembers( box ), 2u );
}

TEST_F( Collection, that_is_a_vector_adds_and_takes_at_its_back ) {
   KelAttr track = attr( box, "track" );
   for( S32 value : { 7, 8, 9 } ) {
      track.genericIfAdd( box, generic( value ) );
   }
   EXPECT_EQ( as< S32 >( track.genericIfRemove( box ) ), 9 );
   track.genericIfSet( box, generic( U32( 0 ) ), generic( S32( 1 ) ) );
   EXPECT_EQ( as< S32 >( track.genericIfFront( box ) ), 1 );
   EXPECT_THROW(
      track.genericIfSet( box, generic( U32( 2 ) ), generic( S32( 1 ) ) ), RangeException );
}

TEST_F( Collection, that_is_a_dynamic_array_grows_and_resets ) {
   KelAttr slot = attr( box, "slot" );
   EXPECT_EQ( slot.genericIfMembers( box ), 4u );
   slot.genericIfSet( box, generic( U32( 6 ) ), generic( U32( 9 ) ) );
   EXPECT_EQ( slot.genericIfMembers( box ), 7u );
   EXPECT_TRUE( slot.genericIfDel( box, generic( U32( 6 ) ) ) );
   EXPECT_EQ( as< U32 >( slot.genericIfGet( box, generic( U32( 6 ) ) ) ), 0u );
   EXPECT_THROW(
      slot.genericIfSet( box, generic( U32( 1u << 31 ) ), generic( U32( 1 ) ) ), RangeException );
}

TEST_F( Collection, keeps_the_order_of_its_making_as_it_grows ) {
   std::string wanted;
   for( int i = 0; i < 1000; ++i ) {
      String name = _fmt( "%d", i );
      object().stock.set( name, 1 );
      wanted += name.stdString() + " ";
   }
   EXPECT_EQ( keys( "stock" ), wanted );
}

TEST_F( Collection, may_lose_the_member_under_an_iterator ) {
   fillStock( { "a", "b", "c", "d" } );
   auto it = attr( box, "stock" ).genericIfIterator( box );
   object().stock.del( "a" );
   object().stock.del( "b" );
   EXPECT_EQ( keys( std::move( it ) ), "c d " );
}

TEST_F( Collection, may_lose_and_gain_members_ahead_of_an_iterator ) {
   fillStock( { "a", "b", "c" } );
   auto it = attr( box, "stock" ).genericIfIterator( box );
   object().stock.del( "c" );
   object().stock.set( "d", 1 );
   EXPECT_EQ( keys( std::move( it ) ), "a b d " );
}

TEST_F( Collection, leaves_an_exhausted_iterator_exhausted ) {
   std::vector< GenericIf::Iterator > all;
   for( auto* name : { "stock", "order", "undo", "track" } ) {
      all.push_back( attr( box, name ).genericIfIterator( box ) );
      EXPECT_FALSE( all.back() ) << name;
   }
   fillStock( { "z" } );
   object().order.add( "z" );
   object().undo.add( { 1 } );
   object().track.add( 1 );
   for( auto const& it : all ) {
      EXPECT_FALSE( it );
   }
}

TEST_F( Collection, may_end_before_its_iterator ) {
   auto it = [] {
      auto other = make( "Unit::Box", { text( "other" ), generic( U32( 3 ) ) } );
      static_cast< Box* >( other->voidPtrIs( kelType< Box >() ) )->stock.set( "k", 1 );
      return attr( other, "stock" ).genericIfIterator( other );
   }();
   EXPECT_EQ( keys( std::move( it ) ), "k " );
}

TEST_F( Collection, that_is_ordered_may_change_under_an_iterator ) {
   auto& order = object().order;
   for( auto* name : { "a", "b", "c", "d" } ) {
      order.add( name );
   }
   auto it = attr( box, "order" ).genericIfIterator( box );
   order.remove();
   order.remove();
   EXPECT_EQ( as< String >( it.ptr() ), String( "c" ) );
   ++it;
   order.del( 3 );
   order.add( "e" );
   EXPECT_EQ( as< String >( it.ptr() ), String( "e" ) );
}

TEST_F( Collection, is_emptied_by_deleting_a_snapshot_of_its_keys ) {
   object().order.add( "a" );
   object().order.add( "b" );
   object().undo.add( { 1 } );
   object().undo.add( { 2 } );
   for( auto* name : { "order", "undo" } ) {
      std::vector< Ptr< GenericIf > > all;
      for( auto it = attr( box, name ).genericIfIterator( box ); it; ++it ) {
         all.push_back( it.key() );
      }
      for( auto const& key : all ) {
         EXPECT_TRUE( attr( box, name ).genericIfDel( box, key ) );
      }
      EXPECT_EQ( attr( box, name ).genericIfMembers( box ), 0u ) << name;
   }
}

TEST_F( Collection, of_a_million_members_walks_without_a_copy ) {
   Map< U32, U32 > map;
   for( U32 i = 0; i < 1'000'000; ++i ) {
      map.set( i, i );
   }
   U32 seen = 0;
   for( auto it = map.iterator(); it; ++it ) {
      seen += it.key() == it.member();
      map.del( it.key() );
   }
   // Deleting under the iterator moves it on by itself, so every other member is left out.
   EXPECT_EQ( seen, 500'000u );
}

TEST_F( Collection, equals_one_with_equal_members_in_any_order ) {
   using Numbers = Map< U32, U32 >;
   auto const of = []( std::initializer_list< std::pair< U32, U32 > > members ) {
      Numbers numbers;
      for( auto const& [key, member] : members ) {
         numbers.set( key, member );
      }
      return numbers;
   };
   EXPECT_TRUE( of( {} ) == of( {} ) );
   EXPECT_TRUE( of( { { 1, 10 }, { 2, 20 } } ) == of( { { 2, 20 }, { 1, 10 } } ) );
   EXPECT_FALSE( of( { { 1, 10 } } ) == of( { { 1, 10 }, { 2, 20 } } ) );
   EXPECT_FALSE( of( { { 1, 10 }, { 2, 20 } } ) == of( { { 1, 10 }, { 3, 20 } } ) );
   EXPECT_FALSE( of( { { 1, 10 }, { 2, 20 } } ) == of( { { 1, 10 }, { 2, 21 } } ) );
}

TEST_F( Collection, keeps_its_members_when_it_is_assigned_to_itself ) {
   Map< U32, U32 > map;
   map.set( 1, 10 );
   auto& same = map;
   map = same;
   EXPECT_EQ( *map.find( 1 ), 10u );
}

TEST_F( Collection, of_pointers_takes_a_member_that_it_has_once ) {
   auto const part = newObject< Part >( String( "p" ) );
   auto const other = newObject< Part >( String( "p" ) );
   object().seen.addMember( part );
   auto const version = object().seen.version();
   object().seen.addMember( part );
   EXPECT_EQ( object().seen.members(), 1u );
   EXPECT_EQ( object().seen.version(), version );
   object().seen.addMember( other );
   EXPECT_EQ( object().seen.get( "p" ), other );
   EXPECT_EQ( object().seen.members(), 1u );
}

TEST_F( Collection, that_keeps_its_table_finds_new_members_and_no_old_ones ) {
   using Node = MapNode< U32, U32 >;
   constexpr HashMap2018VTable table = HashMap2018VTable::Impl< Node, U32 >::vtable();
   HashMap2018Generic map( &table, 100u, true );
   map._memberDelAll();
   map.emptyAllBuckets( &table, false );
   EXPECT_EQ( map.version(), 0u );
   for( U32 round = 1; round <= 2; ++round ) {
      for( U32 key = round; key < 300; key += 2 ) {
         map.newMemberG( new Node( key, round ), &key );
      }
      for( U32 key = 1; key < 300; ++key ) {
         EXPECT_EQ( map.lookupNodeG( &key ) != nullptr, key >= round && key % 2 == round % 2 );
      }
      map._memberDelAll();
      EXPECT_EQ( map.members(), 0u );
      EXPECT_EQ( map.first(), nullptr );
   }
}

TEST_F( Collection, ends_the_iterators_that_stand_in_it_and_their_copies ) {
   using Node = MapNode< U32, U32 >;
   constexpr HashMap2018VTable table = HashMap2018VTable::Impl< Node, U32 >::vtable();
   alignas( HashMap2018Generic ) unsigned char place[sizeof( HashMap2018Generic )];
   auto* map = new( place ) HashMap2018Generic( &table, 1u, false );
   U32 const key = 7;
   map->newMemberG( new Node( key, 1 ), &key );
   {
      HashMap2018IteratorGeneric first( *map ), second( *map );
      EXPECT_TRUE( first.currNodeNonStale() );
      map->~HashMap2018Generic();
      std::ranges::fill( place, 0xab );
      EXPECT_FALSE( first.currNodeNonStale() );
      EXPECT_FALSE( second.currNodeNonStale() );
      HashMap2018IteratorGeneric copy( first );
      copy.advance();
      EXPECT_FALSE( copy.currNodeNonStale() );
   }
   // None of them came back to where the map had been.
   EXPECT_EQ( std::ranges::count( place, 0xab ), std::ssize( place ) );
}

TEST_F( Collection, that_is_ordered_finds_members_by_number_among_gaps ) {
   Queue< U32 > queue;
   for( U32 member : { 10u, 20u, 30u } ) {
      queue.add( member );
   }
   EXPECT_TRUE( queue.del( 1 ) );
   EXPECT_FALSE( queue.del( 1 ) );
   EXPECT_FALSE( queue.exist( 1 ) );
   EXPECT_FALSE( queue.exist( 3 ) );
   EXPECT_EQ( *queue.find( 2 ), 30u );
   queue.set( 2, 31 );
   EXPECT_EQ( queue.back(), 31u );
   EXPECT_THROW( queue.set( 1, 21 ), RangeException );
   EXPECT_THROW( queue.set( 3, 41 ), RangeException );
}

TEST_F( Collection, that_is_a_queue_moves_an_iterator_off_a_member_that_goes ) {
   Queue< U32 > queue;
   for( U32 member : { 10u, 20u, 30u, 40u } ) {
      queue.add( member );
   }
   auto it = queue.iterator();
   queue.remove();
   EXPECT_EQ( it.member(), 20u ); // at the new front
   ++it;
   EXPECT_EQ( it.member(), 30u );
   queue.del( 2 );
   EXPECT_EQ( it.member(), 40u );
   queue.del( 3 );
   EXPECT_FALSE( it ); // there is none behind
   ++it;
   EXPECT_FALSE( it );
   auto last = queue.iterator();
   EXPECT_TRUE( last );
   queue.remove();
   EXPECT_FALSE( last );
}

TEST_F( Collection, that_is_a_stack_moves_an_iterator_off_a_member_that_goes ) {
   Stack< U32 > stack;
   for( U32 member : { 10u, 20u, 30u, 40u } ) {
      stack.add( member );
   }
   auto it = stack.iterator();
   stack.remove();
   EXPECT_EQ( it.member(), 30u ); // at the new top
   ++it;
   EXPECT_EQ( it.member(), 20u );
   stack.del( 1 );
   EXPECT_EQ( it.member(), 10u );
   stack.del( 0 );
   EXPECT_FALSE( it ); // there is none below
   auto last = stack.iterator();
   EXPECT_EQ( last.member(), 30u );
   stack.remove();
   EXPECT_FALSE( last );
}

TEST_F( Collection, by_position_deletes_no_member_behind_its_last ) {
   Vector< S32 > vector;
   vector.add( 5 );
   EXPECT_FALSE( vector.del( 1 ) );
   EXPECT_TRUE( vector.del( 0 ) );
   EXPECT_FALSE( vector.del( 0 ) );
   DynArray< U32 > array( 2 );
   EXPECT_FALSE( array.del( 2 ) );
   EXPECT_TRUE( array.del( 1 ) );
   EXPECT_EQ( array.members(), 2u );
}
