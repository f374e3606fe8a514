#include <kel/Dir.h>

#include <kel/Exception.h>
#include <kel/Schema.h>

namespace Kel {

namespace {

void requireLegalName( String const& name ) {
   if( name.empty() || name.view().find( '/' ) != std::string_view::npos ) {
      throw IllegalNameException( _fmt( "'%s' is no name of an entity", name.charPtr() ) );
   }
}

} // namespace

Dir::EntityCollection::EntityCollection( Dir* dir )
   : Entities( dir, attrId( "entityPtr" ) ), dir_( dir ) {}

void Dir::EntityCollection::addMember( Ptr< Entity > const& entity ) {
   if( !entity ) {
      throw RangeException( "a null pointer is no member of a directory" );
   }
   requireLegalName( entity->name() );
   auto present = get( entity->name() );
   if( present == entity ) {
      return;
   }
   if( present ) {
      throw NameInUseException( _fmt(
         "the name '%s' is in use in %s", entity->name().charPtr(), dir_->fullName().charPtr() ) );
   }
   if( entity->parent_ ) {
      throw RangeException(
         _fmt( "%s stands in a directory already", entity->fullName().charPtr() ) );
   }
   for( Dir* above = dir_; above; above = above->parent() ) {
      if( above == entity.get() ) {
         throw RangeException( "a directory cannot stand in itself" );
      }
   }
   entity->parent_ = dir_;
   try {
      Entities::addMember( entity );
   } catch( ... ) {
      // Memory has run out; what did not get in must be free to come again.
      if( get( entity->name() ) != entity ) {
         entity->parent_ = nullptr;
      }
      throw;
   }
}

bool Dir::EntityCollection::del( String const& name ) {
   auto entity = get( name );
   if( !entity ) {
      return false;
   }
   dir_->takeOut( entity.get() );
   Entities::del( name );
   entity->kelMarkedForDeletionIs( true );
   return true;
}

Dir::Dir( String name ) : Entity( std::move( name ) ), entities_( this ) {}

Dir::~Dir() {
   for( auto it = entities_.iterator(); it; ++it ) {
      auto const entity = it.member();
      try {
         takeOut( entity.get() );
      } catch( MemoryException const& ) {
         // The full name that it had here is lost.
         entity->parent_ = nullptr;
      }
   }
}

// The entity keeps the full name that it had here.
void Dir::takeOut( Entity* entity ) {
   entity->lastFullName_ = entity->fullName();
   entity->parent_ = nullptr;
}

Ptr< Entity > Dir::createEntity( String const& typeName, String const& name ) {
   KelType type = typeNode( typeName.charPtr() );
   auto* make = type.isEntity() ? type.impl().ptr->newEntity : nullptr;
   if( !make ) {
      throw TypeException(
         _fmt( "%s is no type of entity that can be made by name", typeName.charPtr() ) );
   }
   requireLegalName( name );
   if( entities_.exist( name ) ) {
      throw NameInUseException(
         _fmt( "the name '%s' is in use in %s", name.charPtr(), fullName().charPtr() ) );
   }
   auto entity = make( name );
   entities_.addMember( entity );
   return entity;
}

void Dir::deleteAllEntities() {
   while( auto it = entities_.iterator() ) {
      entities_.del( String( it.key() ) );
   }
}

Dir* Dir::root() {
   static Dir* const root = [] {
      auto dir = newObject< Dir >( String( "/" ) );
      Entity::singletonIs( dir );
      return dir.get();
   }();
   return root;
}

KEL_UNIT( _Kel_Dir_kelModule,
   entity< Dir, Entity >( args( arg< String >( "name" ) ),
      attr< &Dir::mountMode, &Dir::mountModeIs >( "mountMode" ),
      attr< &Dir::isMounted, &Dir::isMountedIs >( "isMounted" ),
      collection< &Dir::entities >( "entityPtr", notifies | readOnly ).indexedBy( "name" ),
      attr< &Dir::mountExempt, &Dir::mountExemptIs >( "mountExempt" ) ) )

namespace {
[[maybe_unused]] Dir* const rootExistsFromLoad = Dir::root();
} // namespace

} // namespace Kel
