// The schema record of a unit, its rows and their bit fields. Records are immutable and constant
// initialised, so everything here is read with no lock and at any time, static initialisation
// included.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <kel/Export.h>

namespace Kel {

struct KelModule;
struct TypeImpl;

using AttributeId = std::uint32_t;

// Bits of a type row's first word.
enum class TypeFlag : std::uint8_t {
   isValue = 0,
   isBuiltinType = 1,
   isEnumType = 2,
   isBitSetOrConstrainer = 3,
   hasOwnPtrInterface = 4,
   hasAttrLogSupport = 5,
   isPolymorphic = 6,
   hasBackupSupport = 7,
   isAbstractType = 8,
   containsOptionalsOrCollections = 10,
   hasValAttr = 11,
   toGnmiString = 12,
   gnmiDelete = 13,
   toGnmiBytes = 14,
   isUnionType = 15,
};

// Bits of an attribute row's flag word (bytes 4 to 7).
enum class AttrFlag : std::uint8_t {
   collectionForm = 0,
   isQueueCollection = 1,
   isStackCollection = 2,
   isStatic = 3,
   isFunction = 4,
   isPtr = 5,
   isDynArray = 6,
   constantForm = 7,
   instantiating = 8,
   anonymous = 9,
   isIndependentDomainAttr = 10,
   readable = 11,
   writable = 12,
   isImmutable = 13,
   doesNotify = 14,
   isLogging = 15,
   hasDataMember = 16,
   isPodArray = 17,
   rawPtrInterface = 18,
   isSet = 19,
   isConstPtr = 20,
   isNonconstPtr = 21,
   hasConstPtrIndex = 22,
   gnmiScalarArray = 23,
   gnmiStreamAttr = 24,
   toGnmiJsonString = 25,
   hasPackedRep = 26,
   isOptionalValue = 27,
};

constexpr std::uint32_t attrBit( AttrFlag flag ) {
   return 1u << static_cast< unsigned >( flag );
}
constexpr std::uint64_t typeBit( TypeFlag flag ) {
   return std::uint64_t( 1 ) << static_cast< unsigned >( flag );
}

// One type, 16 bytes.
struct TypeRow {
   std::uint64_t word;
   std::int16_t typeRef;       // the underlying type of an enum type, otherwise the base type
   std::uint16_t firstCtorArg; // index of an argument row
   std::uint16_t firstAttr;    // index of an attribute row
   std::uint16_t attrCount;    // own attributes

   constexpr bool flag( TypeFlag which ) const { return word & typeBit( which ); }
   constexpr std::uint32_t nameOffset() const { return ( word >> 19 ) & 0xfffff; }
   constexpr std::uint32_t align() const { return ( word >> 39 ) & 0xf; }
   constexpr std::uint32_t size() const { return static_cast< std::uint32_t >( word >> 43 ); }

   // `flags` is a sum of typeBit; the other words are the fields above. Bytes for size and align.
   static constexpr TypeRow make( std::uint64_t flags, std::uint32_t nameOffset, std::uint32_t size,
      std::uint32_t align, std::int16_t typeRef, std::uint16_t firstCtorArg,
      std::uint16_t firstAttr, std::uint16_t attrCount ) {
      return { flags | std::uint64_t( nameOffset ) << 19 | std::uint64_t( align ) << 39 |
                  std::uint64_t( size ) << 43,
         typeRef, firstCtorArg, firstAttr, attrCount };
   }
};

// One attribute, 20 bytes. Bytes 12 onward hold the index type, the first argument row and the name
// of the internal index, or the value of an enum constant, little-endian and unaligned.
struct AttrRow {
   AttributeId id;
   std::uint32_t flagsAndName;
   std::uint16_t nameHigh;
   std::int16_t memberType;
   unsigned char tail[8];

   constexpr bool flag( AttrFlag which ) const { return flagsAndName & attrBit( which ); }
   constexpr std::uint32_t nameOffset() const {
      return std::uint32_t( nameHigh ) << 4 | flagsAndName >> 28;
   }
   constexpr std::int16_t indexType() const {
      return static_cast< std::int16_t >( tail[0] | tail[1] << 8 );
   }
   constexpr std::uint16_t firstArg() const {
      return static_cast< std::uint16_t >( tail[2] | tail[3] << 8 );
   }
   constexpr std::uint32_t indexNameOffset() const {
      return tail[4] | tail[5] << 8 | tail[6] << 16;
   }
   constexpr bool isEnumConst() const {
      return flag( AttrFlag::constantForm ) &&
             ( !flag( AttrFlag::collectionForm ) || flag( AttrFlag::isFunction ) );
   }
   constexpr bool isCollection() const {
      return flag( AttrFlag::collectionForm ) && !flag( AttrFlag::isFunction );
   }
   constexpr bool isVector() const { return isCollection() && flag( AttrFlag::constantForm ); }
   constexpr bool isInvasiveFunction() const {
      return flag( AttrFlag::collectionForm ) && flag( AttrFlag::isFunction );
   }
   // The constant's bits, sign-extended by the caller's choice of T.
   template< class T >
   constexpr T enumBits() const {
      std::uint64_t bits = 0;
      for( unsigned i = 0; i < sizeof( T ); ++i ) {
         bits |= std::uint64_t( tail[i] ) << 8 * i;
      }
      return static_cast< T >( bits );
   }

   static constexpr AttrRow make( AttributeId id, std::uint32_t flags, std::uint32_t nameOffset,
      std::int16_t memberType, std::int16_t indexType, std::uint16_t firstArg,
      std::uint32_t indexNameOffset ) {
      auto index = static_cast< std::uint16_t >( indexType );
      return { id, flags | ( nameOffset & 0xf ) << 28,
         static_cast< std::uint16_t >( nameOffset >> 4 ), memberType,
         { byte( index, 0 ), byte( index, 1 ), byte( firstArg, 0 ), byte( firstArg, 1 ),
            byte( indexNameOffset, 0 ), byte( indexNameOffset, 1 ), byte( indexNameOffset, 2 ),
            0 } };
   }
   static constexpr AttrRow makeConstant( AttributeId id, std::uint32_t flags,
      std::uint32_t nameOffset, std::int16_t memberType, std::uint64_t value ) {
      AttrRow row = make( id, flags, nameOffset, memberType, 0, 0, 0 );
      for( unsigned i = 0; i < 8; ++i ) {
         row.tail[i] = byte( value, i );
      }
      return row;
   }

 private:
   static constexpr unsigned char byte( std::uint64_t word, unsigned which ) {
      return static_cast< unsigned char >( word >> 8 * which );
   }
};

// One constructor, function or instantiating argument, 6 bytes. A row whose name offset is 0 ends a
// list.
struct ArgRow {
   unsigned char bytes[6];

   constexpr std::uint32_t nameOffset() const {
      return ( std::uint32_t( bytes[0] ) | std::uint32_t( bytes[1] ) << 8 ) << 8 | bytes[2];
   }
   constexpr std::uint32_t typeNameOffset() const {
      return std::uint32_t( bytes[3] >> 1 ) << 16 | bytes[4] | std::uint32_t( bytes[5] ) << 8;
   }
   constexpr bool isOptional() const { return bytes[3] & 1; }

   static constexpr ArgRow make(
      std::uint32_t nameOffset, std::uint32_t typeNameOffset, bool optional ) {
      return { { static_cast< unsigned char >( nameOffset >> 8 ),
         static_cast< unsigned char >( nameOffset >> 16 ),
         static_cast< unsigned char >( nameOffset ),
         static_cast< unsigned char >( typeNameOffset >> 16 << 1 | ( optional ? 1 : 0 ) ),
         static_cast< unsigned char >( typeNameOffset ),
         static_cast< unsigned char >( typeNameOffset >> 8 ) } };
   }
};

// An entry of a table of referenced types; a null record is no type.
struct TypeRef {
   KelModule const* module;
   std::uint16_t typeIndex;
   std::uint16_t unused[3];
};

// The schema record of one unit.
struct KelModule {
   TypeRow const* typeRows;
   AttrRow const* attrRows;
   ArgRow const* argRows;
   char const* typeNamePool;
   char const* attrNamePool;       // attribute and argument names; offset 0 is an empty string
   TypeRef const* referencedTypes; // null if the unit references none
   TypeImpl const* impl;           // one a type, in type order (kel/TypeImpl.h)
   std::uint64_t types;
};

static_assert( sizeof( TypeRow ) == 16 && sizeof( AttrRow ) == 20 && sizeof( ArgRow ) == 6 );
static_assert( offsetof( TypeRow, typeRef ) == 8 && offsetof( TypeRow, attrCount ) == 14 );
static_assert( offsetof( AttrRow, nameHigh ) == 8 && offsetof( AttrRow, memberType ) == 10 );
static_assert( offsetof( AttrRow, tail ) == 12 );
static_assert( sizeof( TypeRef ) == 16 && offsetof( TypeRef, typeIndex ) == 8 );
static_assert( sizeof( KelModule ) == 64 && offsetof( KelModule, typeNamePool ) == 24 );
static_assert( offsetof( KelModule, impl ) == 48 && offsetof( KelModule, types ) == 56 );

namespace Impl {
// The types that any unit may refer to without a table of its own: 0 no type, 1 Kel::PtrInterface,
// 2 its notifiee base, then 3 + i for the built-in type of index i.
extern KEL_API TypeRef const coreTypes_[];
constexpr unsigned coreTypeOfBuiltin = 3;
} // namespace Impl

// Registers a unit's types under their full names. Called at load, from any thread; asserts that no
// other type has one of the names.
KEL_API void kelModuleIs( KelModule const* module );

} // namespace Kel

namespace Kel {

// The runtime's own records.
extern "C" {
extern KEL_API KelModule const _Kel_BuiltinType_kelModule;
extern KEL_API KelModule const _Kel_PtrInterface_kelModule;
extern KEL_API KelModule const _Kel_Entity_kelModule;
extern KEL_API KelModule const _Kel_Dir_kelModule;
extern KEL_API KelModule const _Clock_f476dd55_kelModule;
extern KEL_API KelModule const _TraceFacility_9f2b368972944a5e_kelModule;
extern KEL_API KelModule const _Activity_6d1c04e2_kelModule;
}

// Indices of the built-in types in _Kel_BuiltinType_kelModule, shared with every user of the
// runtime.
enum class BuiltinType : std::uint16_t {
   none = 0, // the result of a function without value
   u8 = 1,
   s8 = 2,
   u16 = 3,
   s16 = 4,
   u32 = 5,
   s32 = 6,
   u64 = 7,
   s64 = 8,
   boolean = 9,
   character = 10,
   float32 = 11,
   float64 = 12,
   string = 13,
   bytes = 14,
   seconds = 21,
};

using U8 = unsigned char;
using S8 = signed char;
using U16 = unsigned short;
using S16 = short;
using U32 = unsigned int;
using S32 = int;
using U64 = unsigned long;
using S64 = long;
} // namespace Kel

using Kel::_Activity_6d1c04e2_kelModule;
using Kel::_Clock_f476dd55_kelModule;
using Kel::_Kel_BuiltinType_kelModule;
using Kel::_Kel_Dir_kelModule;
using Kel::_Kel_Entity_kelModule;
using Kel::_Kel_PtrInterface_kelModule;
using Kel::_TraceFacility_9f2b368972944a5e_kelModule;
