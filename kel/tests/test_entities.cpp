#include <gtest/gtest.h>

#include <kel/Exception.h>
#include <kel/Notifiee.h>

#include "GenericHelp.h"
#include "TestUnit.h"

using namespace Kel;
using namespace Unit;

namespace {

struct Entities : testing::Test {
   Locked locked;
   Ptr< Dir > dir = newObject< Dir >( String( "d" ) );
};

} // namespace

TEST_F( Entities, have_full_names_by_their_place_in_the_tree ) {
   auto* root = Dir::root();
   EXPECT_EQ( root->fullName(), String( "/" ) );
   auto a = root->createEntity( "Kel::Dir", "a" );
   auto b = static_cast< Dir* >( a.get() )->createEntity( "Unit::Box", "b" );
   EXPECT_EQ( a->fullName(), String( "/a" ) );
   EXPECT_EQ( b->fullName(), String( "/a/b" ) );
   EXPECT_EQ( entity( "/a/b" ), b );
   EXPECT_EQ( entity( "/" ).get(), root );
   for( char const* path : { "", "a", "/a/", "//a", "/a/b/", "/a/b/c", "/x" } ) {
      EXPECT_FALSE( entity( path ) ) << path;
   }
   EXPECT_EQ( dir->fullName(), String( "d" ) );
   root->deleteAllEntities();
   EXPECT_FALSE( entity( "/a" ) );
   EXPECT_TRUE( a->kelMarkedForDeletion() );
}

TEST_F( Entities, are_made_by_type_and_name ) {
   auto made = dir->createEntity( "Unit::Box", "b" );
   EXPECT_TRUE( made->fwkType() == kelType< Box >() );
   EXPECT_EQ( static_cast< Box* >( made.get() )->size(), 0u );
   EXPECT_EQ( made->references(), 2u );
   EXPECT_EQ( dir->entityPtr( "b" ), made );
   EXPECT_THROW( dir->createEntity( "Unit::Box", "b" ), NameInUseException );
   EXPECT_THROW( dir->createEntity( "Unit::Box", "" ), IllegalNameException );
   EXPECT_THROW( dir->createEntity( "Unit::Box", "a/b" ), IllegalNameException );
   EXPECT_THROW( dir->createEntity( "Unit::Nothing", "x" ), NoTypeNodeException );
   EXPECT_THROW( dir->createEntity( "Unit::Part", "x" ), TypeException );
   EXPECT_THROW( dir->createEntity( "Kel::Clock", "x" ), TypeException );
   EXPECT_EQ( dir->entities().members(), 1u );
}

TEST_F( Entities, that_are_deleted_are_zombies_for_those_who_hold_them ) {
   auto made = dir->createEntity( "Unit::Box", "b" );
   auto view = KelType::genericIf( dir.get(), false );
   EXPECT_TRUE( attr( view, "entityPtr" ).genericIfDel( view, text( "b" ) ) );
   EXPECT_TRUE( made->kelMarkedForDeletion() );
   EXPECT_EQ( made->parent(), nullptr );
   EXPECT_EQ( made->references(), 1u );
}

TEST_F( Entities, stand_in_one_directory_at_most_and_never_in_themselves ) {
   auto made = dir->createEntity( "Kel::Dir", "inner" );
   auto other = newObject< Dir >( String( "other" ) );
   EXPECT_THROW( other->entities().addMember( made ), RangeException );
   EXPECT_THROW( dir->entities().addMember( dir ), RangeException );
   EXPECT_THROW( static_cast< Dir* >( made.get() )->entities().addMember( dir ), RangeException );
   auto single = newObject< Box >( String( "single" ) );
   other->entities().addMember( single );
   EXPECT_EQ( single->fullName(), String( "other/single" ) );
}

TEST_F( Entities, outlive_their_directory_where_they_are_held ) {
   auto made = dir->createEntity( "Unit::Box", "b" );
   dir = nullptr;
   EXPECT_EQ( made->parent(), nullptr );
   EXPECT_EQ( made->fullName(), String( "d/b" ) );
   EXPECT_EQ( made->references(), 1u );
}

TEST_F( Entities, that_every_process_has_are_found_by_type_name ) {
   for( char const* name : { "Kel::Dir", "Kel::Clock", "Kel::TraceFacility", "Kel::ActivityManager",
           "Kel::ActivityManagerConfig" } ) {
      auto single = Entity::singleton( name );
      ASSERT_TRUE( single ) << name;
      EXPECT_STREQ( single->fwkType().fullTypeName(), name );
   }
   EXPECT_EQ( Entity::singleton( "Kel::Dir" ).get(), Dir::root() );
   EXPECT_FALSE( Entity::singleton( "Unit::Box" ) );
}

TEST_F( Entities, show_mount_state_in_the_attributes_of_a_directory ) {
   auto view = KelType::genericIf( dir.get(), false );
   EXPECT_EQ( get( view, "mountMode" )->strRep(), String( "read" ) );
   set( view, "isMounted", generic( true ) );
   set(
      view, "mountMode", kelType< MountMode >().attr( "write" ).genericIfGet( nullptr, nullptr ) );
   set( view, "mountExempt", generic( true ) );
   EXPECT_TRUE( dir->isMounted() && dir->mountExempt() && dir->mountMode() == MountMode::write );
   EXPECT_FALSE( attr( view, "entityPtr" ).writable() );
}

TEST_F( Entities, of_a_derived_directory_share_one_collection ) {
   auto rack = newObject< Rack >( String( "r" ) );
   auto made = rack->createEntity( "Unit::Box", "b" );
   auto view = KelType::genericIf( rack.get(), false );
   EXPECT_EQ(
      get( view, "slot", text( "b" ) )->hash(), get( view, "entityPtr", text( "b" ) )->hash() );
}

TEST( References, ignore_the_flags_of_their_word ) {
   Locked locked;
   auto live = Part::live;
   auto part = newObject< Part >( String( "p" ) );
   part->kelMarkedForDeletionIs( true );
   EXPECT_TRUE( part->hasNotificationActive() && part->kelMarkedForDeletion() );
   EXPECT_EQ( part->references(), 1u );
   part = nullptr;
   EXPECT_EQ( Part::live, live );
}

namespace {

// Points at itself while it ends.
class Reviver : public PtrInterface {
 public:
   ~Reviver() override {
      Ptr< PtrInterface > again( this );
      ++ends;
   }
   inline static int ends = 0;
};

} // namespace

TEST( References, made_while_an_object_ends_do_not_end_it_twice ) {
   { Ptr< PtrInterface > only( new Reviver() ); }
   EXPECT_EQ( Reviver::ends, 1 );
}

TEST_F( Entities, get_into_a_directory_by_a_name_that_is_free_alone ) {
   auto const first = newObject< Box >( String( "b" ) ), second = newObject< Box >( String( "b" ) );
   auto& entities = dir->entities();
   EXPECT_THROW( entities.addMember( nullptr ), RangeException );
   EXPECT_THROW( entities.addMember( newObject< Box >( String( "a/b" ) ) ), IllegalNameException );
   EXPECT_THROW( entities.addMember( Dir::root() ), IllegalNameException );
   entities.addMember( first );
   entities.addMember( first );
   EXPECT_THROW( entities.addMember( second ), NameInUseException );
   EXPECT_EQ( entities.members(), 1u );
   EXPECT_EQ( second->parent(), nullptr );
   EXPECT_EQ( dir->entityPtr( "b" ), first );
}

TEST( References, of_an_object_that_nobody_asks_about_have_no_list_of_notifiees ) {
   Locked const locked;
   auto const part = newObject< Part >( String( "p" ) );
   EXPECT_EQ( part->notifieeList(), nullptr );
   NotifieeList::of( part.get() );
   EXPECT_NE( part->notifieeList(), nullptr );
}

TEST( References, end_an_object_at_zero_alone ) {
   Locked const locked;
   auto const live = Part::live;
   auto const part = newObject< Part >( String( "p" ) );
   part->zeroReferencesIs( false );
   EXPECT_EQ( Part::live, live + 1 );
   EXPECT_EQ( part->id(), String( "p" ) );
}

TEST( AttributeIds, are_never_zero ) {
   EXPECT_EQ( attrId( "\xcc\x24\x31\xc4" ), 1u ); // whose hash is
}
