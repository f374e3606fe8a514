// Turns the declarations of a unit into its record: rows, name pools, referenced types and
// operations, all of them constants. Refuses a wrong declaration with a static_assert that says
// what is wrong.
#pragma once

#include <kel/schema/Declare.h>
#include <kel/schema/Operations.h>

namespace Kel {
class Dir;
} // namespace Kel

namespace Kel::Schema {

// All declarations of a unit.
template< class... Types >
struct UnitDecl {
   std::tuple< Types... > types;
   static constexpr std::size_t typeCount = sizeof...( Types );
   static constexpr std::size_t attrCount = ( Types::attrCount + ... + 0 );
};

template< class... Decls >
using DeclaredTypes = TypeList< typename Decls::T... >;

template< class Unit, class... Decls >
constexpr UnitDecl< Decls... > unit( Decls... types ) {
   static_assert( std::is_same_v< typename Unit::Types, DeclaredTypes< Decls... > >,
      "the unit's declarations must stand in the order of its KEL_TYPES list" );
   return { { types... } };
}

// Calls f( typeDecl ) for each type, f( attrDecl ) for each attribute of one.
template< class Decl, class F >
constexpr void forTypes( Decl const& decl, F f ) {
   std::apply( [&]( auto const&... types ) { ( f( types ), ... ); }, decl.types );
}
template< class Type, class F >
constexpr void forAttrs( Type const& type, F f ) {
   std::apply( [&]( auto const&... attrs ) { ( f( attrs ), ... ); }, type.attrs );
}

template< class T >
constexpr bool needsReference =
   !std::is_same_v< T, NoType > && !std::is_same_v< T, PtrInterface > && !Builtin< T >;

template< class List, class T >
struct AddUnique;
template< class... Ts, class T >
struct AddUnique< TypeList< Ts... >, T > {
   using Type =
      std::conditional_t< !needsReference< T > || TypeList< Ts... >::template contains< T >,
         TypeList< Ts... >, TypeList< Ts..., T > >;
};
template< class List, class... Ts >
struct AddAll {
   using Type = List;
};
template< class List, class T, class... Ts >
struct AddAll< List, T, Ts... > : AddAll< typename AddUnique< List, T >::Type, Ts... > {};

template< class List, class Type >
struct AddTypeDecl;
template< class List, TypeKind kind, class T, class Base, class Ctor, class... Attrs >
struct AddTypeDecl< List, TypeDecl< kind, T, Base, Ctor, Attrs... > > {
   using Type =
      typename AddAll< List, Base, typename Attrs::Member..., typename Attrs::Index... >::Type;
};
template< class List, class... Types >
struct ReferencesOf {
   using Type = List;
};
template< class List, class First, class... Rest >
struct ReferencesOf< List, First, Rest... >
   : ReferencesOf< typename AddTypeDecl< List, First >::Type, Rest... > {};

template< class... Ts >
constexpr auto referenceTable( TypeList< Ts... > ) {
   static_assert(
      ( Declared< Ts > && ... ), "an attribute's type is neither built in nor declared in a unit" );
   return std::array< TypeRef, sizeof...( Ts ) + 1 >{
      TypeRef{ UnitOf< Ts >::module(), UnitOf< Ts >::Types::template index< Ts >, {} }..., TypeRef{}
   };
}

template< class T, class References >
constexpr std::int16_t referenceTo() {
   if constexpr( std::is_same_v< T, NoType > ) {
      return ~0;
   } else if constexpr( std::is_same_v< T, PtrInterface > ) {
      return ~1;
   } else if constexpr( Builtin< T > ) {
      return ~static_cast< std::int16_t >(
         Impl::coreTypeOfBuiltin + BuiltinUnit::Types::index< T > );
   } else {
      return static_cast< std::int16_t >( References::template index< T > );
   }
}

constexpr bool sameName( std::string_view a, std::string_view b ) {
   return a == b;
}

template< class Type >
constexpr bool idsDiffer( Type const& type ) {
   bool differ = true;
   std::size_t at = 0;
   forAttrs( type, [&]( auto const& attr ) {
      std::size_t other = 0;
      forAttrs( type, [&]( auto const& that ) {
         differ = differ && ( at == other || attr.id != that.id );
         ++other;
      } );
      ++at;
   } );
   return differ;
}

template< class Decl >
constexpr bool allIdsDiffer( Decl const& decl ) {
   bool differ = true;
   forTypes( decl, [&]( auto const& type ) { differ = differ && idsDiffer( type ); } );
   return differ;
}

template< class Decl, class F >
constexpr bool anyAttr( Decl const& decl, F f ) {
   bool any = false;
   forAttrs( decl, [&]( auto const& attr ) { any = any || f( attr ); } );
   return any;
}

// True if the type or a base declares the attribute, as far as the unit itself can tell: a chain
// that leaves the unit is checked when the unit is registered.
template< class T, class Decl >
constexpr bool mayHaveAttr( Decl const& decl, std::string_view name ) {
   if constexpr( std::is_same_v< T, NoType > ) {
      return false;
   } else {
      bool inUnit = false;
      bool found = false;
      forTypes( decl, [&]( auto const& type ) {
         using Type = std::remove_cvref_t< decltype( type ) >;
         if constexpr( std::is_same_v< typename Type::T, T > ) {
            inUnit = true;
            found =
               anyAttr( type, [&]( auto const& attr ) { return sameName( attr.name, name ); } ) ||
               mayHaveAttr< typename Type::Base >( decl, name );
         }
      } );
      return found || !inUnit;
   }
}

template< class Decl >
constexpr bool indexAttrsExist( Decl const& decl ) {
   bool exist = true;
   forTypes( decl, [&]( auto const& type ) {
      forAttrs( type, [&]( auto const& attr ) {
         using Member = typename std::remove_cvref_t< decltype( attr ) >::Member;
         exist = exist && ( !attr.indexName[0] || mayHaveAttr< Member >( decl, attr.indexName ) );
      } );
   } );
   return exist;
}

template< class Type >
constexpr bool isDirectoryInOrder( Type const& type ) {
   if constexpr( std::is_base_of_v< Dir, typename Type::T > ) {
      constexpr AttrOptions ordered = attrBit( AttrFlag::isQueueCollection ) |
                                      attrBit( AttrFlag::isStackCollection ) |
                                      attrBit( AttrFlag::constantForm );
      if constexpr( Type::attrCount >= 3 ) {
         AttrOptions options = std::get< 2 >( type.attrs ).options;
         return ( options & attrBit( AttrFlag::collectionForm ) ) && !( options & ordered );
      }
      return false;
   }
   return true;
}

template< class Decl >
constexpr bool directoriesInOrder( Decl const& decl ) {
   bool inOrder = true;
   forTypes( decl, [&]( auto const& type ) { inOrder = inOrder && isDirectoryInOrder( type ); } );
   return inOrder;
}

struct Sizes {
   std::size_t args = 1; // row 0 ends the empty list
   std::size_t typePool = 0;
   std::size_t attrPool = 1; // offset 0 is the empty string
};

template< std::size_t count >
constexpr void addArgSizes( Sizes& sizes, std::array< ArgInfo, count > const& infos ) {
   for( auto const& info : infos ) {
      sizes.attrPool += std::string_view( info.name ).size() + 1;
      sizes.typePool += info.typeName.size() + 1;
   }
   sizes.args += count ? count + 1 : 0;
}

template< class Decl >
constexpr Sizes sizesOf( Decl const& decl ) {
   Sizes sizes;
   forTypes( decl, [&]( auto const& type ) {
      sizes.typePool +=
         typeNameOf< typename std::remove_cvref_t< decltype( type ) >::T >().size() + 1;
      addArgSizes( sizes, type.ctor.infos );
      forAttrs( type, [&]( auto const& attr ) {
         sizes.attrPool += std::string_view( attr.name ).size() + 1;
         sizes.attrPool += std::string_view( attr.indexName ).size() + 1;
         addArgSizes( sizes, attr.args );
      } );
   } );
   return sizes;
}

template< std::size_t size >
struct Pool {
   std::array< char, size + 1 > text{};
   std::uint32_t used = 0;

   constexpr std::uint32_t add( std::string_view name ) {
      std::uint32_t at = used;
      for( char c : name ) {
         text[used++] = c;
      }
      ++used;
      return at;
   }
};

template< std::size_t types, std::size_t attrs, std::size_t argRows, std::size_t typePool,
   std::size_t attrPool >
struct Rows {
   std::array< TypeRow, types > typeRows{};
   std::array< AttrRow, attrs + 1 > attrRows{};
   std::array< ArgRow, argRows > args{};
   Pool< typePool > typeNames;
   Pool< attrPool > attrNames;
   std::uint16_t attrCount = 0;
   std::uint16_t argCount = 1;

   template< std::size_t count >
   constexpr std::uint16_t addArgs( std::array< ArgInfo, count > const& infos ) {
      if( count == 0 ) {
         return 0;
      }
      auto first = argCount;
      for( auto const& info : infos ) {
         args[argCount++] = ArgRow::make(
            attrNames.add( info.name ), typeNames.add( info.typeName ), info.isOptional );
      }
      ++argCount;
      return first;
   }
};

template< class Type >
constexpr std::uint64_t typeFlags( Type const& type ) {
   using T = typename Type::T;
   std::uint64_t flags = type.options;
   auto set = [&]( TypeFlag flag, bool on ) { flags |= on ? typeBit( flag ) : 0; };
   set( TypeFlag::isValue, Type::kind != TypeKind::pointer );
   set( TypeFlag::isEnumType, Type::kind == TypeKind::enumeration );
   set( TypeFlag::isPolymorphic, std::is_polymorphic_v< T > );
   set( TypeFlag::isAbstractType, std::is_abstract_v< T > );
   if constexpr( Type::kind == TypeKind::pointer ) {
      set( TypeFlag::hasOwnPtrInterface, OwnPtr< T > );
   } else {
      set(
         TypeFlag::toGnmiString, requires( T const& a ) { a.gnmiStrRep(); } );
      set(
         TypeFlag::toGnmiBytes, requires( T const& a ) { a.gnmiByterep(); } );
   }
   forAttrs( type, [&]( auto const& attr ) {
      auto options = attr.options;
      bool holdsMore =
         options & ( attrBit( AttrFlag::isOptionalValue ) | attrBit( AttrFlag::collectionForm ) );
      set( TypeFlag::containsOptionalsOrCollections,
         holdsMore && !( options & attrBit( AttrFlag::isFunction ) ) );
      set( TypeFlag::hasAttrLogSupport, options & logging );
      set( TypeFlag::hasValAttr, options & valAttr );
   } );
   return flags;
}

// Flags that a type has because its base in the same unit has them.
template< class T, class Decl >
constexpr std::uint64_t inheritedFlags( Decl const& decl ) {
   std::uint64_t flags = 0;
   forTypes( decl, [&]( auto const& type ) {
      using Type = std::remove_cvref_t< decltype( type ) >;
      if constexpr( std::is_same_v< typename Type::T, T > ) {
         flags = typeFlags( type ) | inheritedFlags< typename Type::Base >( decl );
      }
   } );
   return flags &
          ( typeBit( TypeFlag::hasValAttr ) | typeBit( TypeFlag::containsOptionalsOrCollections ) |
             typeBit( TypeFlag::hasAttrLogSupport ) );
}

// The row flags of one attribute: its options, and the independent domain of a value type.
template< class Type, class Attr >
constexpr std::uint32_t attrFlags( Attr const& attr ) {
   constexpr AttrOptions notPlain =
      attrBit( AttrFlag::collectionForm ) | attrBit( AttrFlag::isFunction ) |
      attrBit( AttrFlag::isStatic ) | attrBit( AttrFlag::constantForm ) | notDomain;
   AttrOptions options = attr.options;
   if( Type::kind == TypeKind::value && !( options & notPlain ) ) {
      options |= attrBit( AttrFlag::isIndependentDomainAttr );
   }
   return static_cast< std::uint32_t >( options & 0x0fffffff );
}

template< class References, class Type, class Attr, class R >
constexpr AttrRow attrRow( Attr const& attr, R& rows ) {
   auto flags = attrFlags< Type >( attr );
   auto name = rows.attrNames.add( attr.name );
   constexpr auto member = referenceTo< typename Attr::Member, References >();
   if( flags & attrBit( AttrFlag::constantForm ) &&
       !( flags & attrBit( AttrFlag::collectionForm ) ) ) {
      return AttrRow::makeConstant( attr.id, flags, name, member, attr.constantValue );
   }
   auto index = attr.indexName[0] ? rows.attrNames.add( attr.indexName ) : 0;
   return AttrRow::make( attr.id, flags, name, member,
      referenceTo< typename Attr::Index, References >(), rows.addArgs( attr.args ), index );
}

template< class References, class Type, class Decl, class R >
constexpr TypeRow typeRow( Decl const& decl, Type const& type, R& rows ) {
   using T = typename Type::T;
   static_assert( sizeof( T ) < ( 1u << 21 ) && alignof( T ) <= 8,
      "a type row holds sizes below 2 MiB and alignments up to 8" );
   auto firstAttr = rows.attrCount;
   forAttrs( type, [&]( auto const& attr ) {
      rows.attrRows[rows.attrCount++] = attrRow< References, Type >( attr, rows );
   } );
   std::int16_t reference;
   if constexpr( Type::kind == TypeKind::enumeration ) {
      reference = referenceTo< std::underlying_type_t< T >, References >();
   } else {
      reference = referenceTo< typename Type::Base, References >();
   }
   return TypeRow::make( typeFlags( type ) | inheritedFlags< typename Type::Base >( decl ),
      rows.typeNames.add( typeNameOf< T >() ), sizeof( T ), alignof( T ), reference,
      rows.addArgs( type.ctor.infos ), firstAttr, static_cast< std::uint16_t >( Type::attrCount ) );
}

template< class Type >
struct AttrOps;
template< TypeKind kind, class T, class Base, class Ctor, class... Attrs >
struct AttrOps< TypeDecl< kind, T, Base, Ctor, Attrs... > > {
   static constexpr std::array< TypeImpl::AttrOpFn, sizeof...( Attrs ) + 1 > table = {
      &Attrs::Binding::template op< T >..., nullptr
   };
};

template< class Ctor >
constexpr bool madeByItself = false;
template< class... Ts >
constexpr bool madeByItself< ArgList< nullptr, Ts... > > = true;

template< class Type >
constexpr auto typeImplParts() {
   using T = typename Type::T;
   struct Parts {
      ValueOps value{};
      PtrOps ptr{};
   } parts;
   if constexpr( Type::kind == TypeKind::enumeration ) {
      parts.value = valueOps< std::underlying_type_t< T > >;
   } else if constexpr( Type::kind == TypeKind::value ) {
      parts.value = valueOps< T >;
   } else if constexpr( madeByItself< typename Type::Ctor > ) {
      parts.ptr = ptrOps< T, typename Type::Ctor::Types >();
   } else {
      parts.ptr = ptrOps< T, TypeList<> >();
   }
   return parts;
}

template< class Type >
struct ImplOf {
   static constexpr auto parts = typeImplParts< Type >();
   static constexpr TypeImpl impl = {
      AttrOps< Type >::table.data(),
      constructFunction< Type, typename Type::T >(),
      &fromAddress< Type >,
      toBaseFunction< Type >(),
      Type::kind == TypeKind::pointer ? nullptr : &parts.value,
      Type::kind == TypeKind::pointer ? &parts.ptr : nullptr,
   };
};

// The tables of one unit and its record.
template< class Unit, auto const& decl, class Decl = std::remove_cvref_t< decltype( decl ) > >
struct Tables;
template< class Unit, auto const& decl, class... Types >
struct Tables< Unit, decl, UnitDecl< Types... > > {
   static_assert( allIdsDiffer( decl ), "an attribute name or id stands twice in one type" );
   static_assert(
      indexAttrsExist( decl ), "indexedBy names an attribute that the member type does not have" );
   static_assert( directoriesInOrder( decl ),
      "the third own attribute of a directory type must be a keyed collection" );

   using References = typename ReferencesOf< TypeList<>, Types... >::Type;
   static constexpr Sizes sizes = sizesOf( decl );
   using AllRows = Rows< sizeof...( Types ), UnitDecl< Types... >::attrCount, sizes.args,
      sizes.typePool, sizes.attrPool >;

   static constexpr AllRows makeRows() {
      AllRows rows;
      rows.attrNames.add( "" );
      std::size_t at = 0;
      forTypes( decl, [&]( auto const& type ) {
         rows.typeRows[at++] = typeRow< References >( decl, type, rows );
      } );
      return rows;
   }

   static constexpr AllRows rows = makeRows();
   static constexpr auto references = referenceTable( References() );
   static constexpr std::array< TypeImpl, sizeof...( Types ) > impls = { ImplOf< Types >::impl... };

   static constexpr KelModule module = { rows.typeRows.data(), rows.attrRows.data(),
      rows.args.data(), rows.typeNames.text.data(), rows.attrNames.text.data(),
      References::size ? references.data() : nullptr, impls.data(), sizeof...( Types ) };
};

} // namespace Kel::Schema

// Declares all types of a unit, once, in one source of it, in the namespace of its KEL_TYPES.
#define KEL_UNIT( record, ... )                                                                    \
   namespace {                                                                                     \
   constexpr auto record##_declarations = [] {                                                     \
      using namespace ::Kel::Schema;                                                               \
      return unit< record##_unit >( __VA_ARGS__ );                                                 \
   }();                                                                                            \
   }                                                                                               \
   constinit ::Kel::KelModule const record =                                                       \
      ::Kel::Schema::Tables< record##_unit, record##_declarations >::module;                       \
   namespace {                                                                                     \
   [[maybe_unused]] bool const record##_registered = ( ::Kel::kelModuleIs( &record ), true );      \
   }
