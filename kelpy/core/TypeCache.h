// What the module knows of a runtime type for good, found again by one comparison in most cases.
// GIL, like the map behind it.
#pragma once

#include <array>
#include <cstdint>
#include <unordered_map>
#include <utility>

#include <kel/KelType.h>

// A map of which no entry is ever taken back, and in front of it a table of the types asked for
// last. A type has one place there, by its record and index.
template< class Value >
class TypeCache {
 public:
   // Null if there is no entry; valid for good.
   Value const* find( Kel::KelType const& type ) {
      Recent& recent = recent_[place( type )];
      if( recent.type == type ) [[likely]] {
         return recent.value;
      }
      auto const found = all_.find( type );
      if( found == all_.end() ) {
         return nullptr;
      }
      recent = { type, &found->second };
      return recent.value;
   }
   // Adds an entry, unless there is one; gives that of the type.
   Value const& add( Kel::KelType type, Value value ) {
      return all_.emplace( type, std::move( value ) ).first->second;
   }

 private:
   struct Recent {
      Kel::KelType type;
      Value const* value = nullptr;
   };

   static constexpr std::size_t places = 256;

   static std::size_t place( Kel::KelType const& type ) {
      auto const record = reinterpret_cast< std::uintptr_t >( type.module() );
      return ( ( record >> 5 ) + type.typeIndex() ) % places;
   }

   std::array< Recent, places > recent_;
   std::unordered_map< Kel::KelType, Value > all_{ 1 };
};
