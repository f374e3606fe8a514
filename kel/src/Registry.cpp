// The registry of type names. Readers take no lock: they see one immutable table, and each
// registration publishes a new one. Old tables are kept, since a reader may still stand in one.
#include <algorithm>
#include <atomic>
#include <mutex>
#include <string_view>
#include <unordered_map>

#include <kel/Assert.h>
#include <kel/Exception.h>
#include <kel/KelAttr.h>
#include <kel/KelType.h>

namespace Kel {

namespace {

struct NameTable {
   std::unordered_map< std::string_view, KelType > types;
   NameTable const* before = nullptr;
};

constinit std::atomic< NameTable const* > published = nullptr;
constinit std::mutex registrationMutex;

// What no compiler of one unit can see, for a reference into another: every internal index stands
// on the member type, and a base's value attribute is flagged on the derived type too.
void checkAgainstOtherUnits( KelType type ) {
   if( KelType base = type.baseType() ) {
      KEL_ASSERT( !base.flag( TypeFlag::hasValAttr ) || type.flag( TypeFlag::hasValAttr ) );
   }
   for( std::uint16_t i = 0; i < type.row().attrCount; ++i ) {
      KelAttr attr( type.module(), type.typeIndex(),
         static_cast< std::uint16_t >( type.row().firstAttr + i ) );
      bool named = !attr.isEnumConst() && attr.row().indexNameOffset();
      KEL_ASSERT( !named || attr.indexAttr() );
   }
}

} // namespace

void kelModuleIs( KelModule const* module ) {
   std::lock_guard guard( registrationMutex );
   auto const* old = published.load( std::memory_order_acquire );
   auto* table = old ? new NameTable( *old ) : new NameTable();
   table->before = old;
   for( std::uint64_t i = 0; i < module->types; ++i ) {
      KelType type( module, static_cast< std::uint16_t >( i ) );
      bool typeNameIsNew = table->types.emplace( type.fullTypeName(), type ).second;
      KEL_ASSERT( typeNameIsNew );
      checkAgainstOtherUnits( type );
   }
   published.store( table, std::memory_order_release );
}

KelType typeNodeOrNull( char const* name ) {
   auto const* table = published.load( std::memory_order_acquire );
   if( table ) {
      if( auto at = table->types.find( name ); at != table->types.end() ) {
         return at->second;
      }
   }
   return KelType();
}

KelType typeNode( char const* name ) {
   KelType type = typeNodeOrNull( name );
   if( !type ) {
      throw NoTypeNodeException( _fmt( "no type '%s'", name ) );
   }
   return type;
}

std::vector< char const* > typeNames() {
   std::vector< char const* > names;
   if( auto const* table = published.load( std::memory_order_acquire ) ) {
      for( auto const& entry : table->types ) {
         names.push_back( entry.second.fullTypeName() );
      }
   }
   std::sort( names.begin(), names.end(),
      []( char const* a, char const* b ) { return std::string_view( a ) < b; } );
   return names;
}

} // namespace Kel
