#include <kel/Entity.h>

#include <cstring>
#include <map>
#include <string>

#include <kel/Assert.h>
#include <kel/Dir.h>
#include <kel/Schema.h>

namespace Kel {

Entity::~Entity() = default;

String Entity::fullName() const {
   if( !parent_ ) {
      return lastFullName_.empty() ? name_ : lastFullName_;
   }
   String above = parent_->fullName();
   if( above != "/" ) {
      above += '/';
   }
   return above + name_;
}

String Entity::strRep() const {
   return _fmt( "entity('%s')", fullName().charPtr() );
}

namespace {

// Immortal, like the entities in it. Activity lock, and static initialisation.
std::map< std::string, Ptr< Entity > >& singletons() {
   static auto* const singletons = new std::map< std::string, Ptr< Entity > >();
   return *singletons;
}

} // namespace

Ptr< Entity > Entity::singleton( String const& typeName ) {
   auto at = singletons().find( typeName.stdString() );
   return at == singletons().end() ? nullptr : at->second;
}

void Entity::singletonIs( Ptr< Entity > entity ) {
   std::string typeName = entity->fwkType().fullTypeName();
   bool typeHasNoSingleton = singletons().emplace( typeName, std::move( entity ) ).second;
   KEL_ASSERT( typeHasNoSingleton );
}

Ptr< Entity > entity( String const& fullName ) {
   std::string path = fullName.stdString();
   if( path.empty() || path[0] != '/' ) {
      return nullptr;
   }
   Ptr< Entity > at( Dir::root() );
   std::size_t begin = 1;
   while( at && begin < path.size() ) {
      std::size_t end = std::min( path.find( '/', begin ), path.size() );
      auto dir = dynamicPtrCast< Dir >( at );
      if( !dir ) {
         return nullptr;
      }
      at = dir->entityPtr( String( path.substr( begin, end - begin ) ) );
      // A "/" at the end names nothing.
      if( end + 1 == path.size() ) {
         return nullptr;
      }
      begin = end + 1;
   }
   return at;
}

KEL_UNIT( _Kel_Entity_kelModule,
   enumeration< MountMode >(
      constant< MountMode::read >( "read" ), constant< MountMode::write >( "write" ) ),
   entity< Entity, PtrInterface >( args( arg< String >( "name" ) ),
      attr< &Entity::name >( "name", immutable ), attr< &Entity::fullName >( "fullName" ) ) )

} // namespace Kel
