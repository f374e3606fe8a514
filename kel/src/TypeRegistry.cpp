#include <kel/TypeRegistry.h>

#include <kel/Schema.h>

namespace Kel {

TypeRegistry::TypeRegistry() : Entity( String( "typeRegistry" ) ) {}

String TypeRegistry::typeNames() const {
   std::string lines;
   for( char const* name : Kel::typeNames() ) {
      lines.append( name ).append( "\n" );
   }
   return String( lines );
}

KEL_UNIT( _TypeRegistry_c2be9417_kelModule,
   entity< TypeRegistry, Entity >( notMade, attr< &TypeRegistry::typeNames >( "typeNames" ) ) )

namespace {
[[maybe_unused]] bool const registryExistsFromLoad = [] {
   Entity::singletonIs( newObject< TypeRegistry >() );
   return true;
}();
} // namespace

} // namespace Kel
