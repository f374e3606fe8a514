// The words of the declaration language. A unit's source says KEL_UNIT( record, declarations... )
// once, with one declaration a type of its KEL_TYPES list, in that order:
//
//    KEL_UNIT( _Shop_kelModule,
//       enumeration< Color >( constant< Color::red >( "red" ), constant< Color::blue >( "blue" ) ),
//       value< Size >( args( arg< U32 >( "value" ) ), attr< &Size::value >( "value", valAttr ) ),
//       entity< Item, Thing >( args( arg< Name >( "name" ) ),
//          attr< &Item::size, &Item::sizeIs >( "size", notifies ),
//          function< &Item::lookup >( "lookup", "name" ),
//          collection< &Item::child >( "child" ).indexedBy( "name" ) ) )
//
// All of it is evaluated at compile time; the record and its rows are constants.
#pragma once

#include <array>
#include <tuple>

#include <kel/schema/CollectionBinding.h>

namespace Kel::Schema {

// Flags of an attribute beyond those that its C++ member tells.
using AttrOptions = std::uint64_t;
constexpr AttrOptions notifies = attrBit( AttrFlag::doesNotify );
constexpr AttrOptions immutable = attrBit( AttrFlag::isImmutable );
constexpr AttrOptions logging = attrBit( AttrFlag::isLogging );
constexpr AttrOptions anonymous = attrBit( AttrFlag::anonymous );
constexpr AttrOptions asSet = attrBit( AttrFlag::isSet );
constexpr AttrOptions gnmiScalarArray = attrBit( AttrFlag::gnmiScalarArray );
constexpr AttrOptions gnmiStreamAttr = attrBit( AttrFlag::gnmiStreamAttr );
// A function whose row has the collection form beside the function bit.
constexpr AttrOptions invasive = attrBit( AttrFlag::collectionForm );
// Above the row's 28 bits: options that the language itself acts on.
constexpr AttrOptions readOnly = AttrOptions( 1 ) << 32;
constexpr AttrOptions valAttr = AttrOptions( 1 ) << 33;
constexpr AttrOptions notDomain = AttrOptions( 1 ) << 34;

// Flags of a type beyond those that its C++ class tells.
using TypeOptions = std::uint64_t;
constexpr TypeOptions isUnion = typeBit( TypeFlag::isUnionType );
constexpr TypeOptions isBitSet = typeBit( TypeFlag::isBitSetOrConstrainer );
constexpr TypeOptions isConstrainer = typeBit( TypeFlag::isBitSetOrConstrainer );
constexpr TypeOptions gnmiDelete = typeBit( TypeFlag::gnmiDelete );

// One argument of a constructor, a function or an instantiating attribute.
struct ArgInfo {
   char const* name = "";
   std::string_view typeName;
   bool isOptional = false;
};

template< class T >
struct Arg {
   char const* name;
};
// An argument of the C++ type T; std::optional for one that may be left out with None.
template< class T >
constexpr Arg< T > arg( char const* name ) {
   return { name };
}

template< class T >
constexpr ArgInfo argInfo( char const* name ) {
   using S = ShapeOf< T >;
   return { name, typeNameOf< typename S::Type >(), S::isOptional };
}

// The arguments of a constructor; `make` is null for the class's own constructor, otherwise a
// function with these arguments that gives a Ptr to the class or to one derived from it.
template< auto make, class... Ts >
struct ArgList {
   using Types = TypeList< Ts... >;
   static constexpr auto maker = make;
   std::array< ArgInfo, sizeof...( Ts ) > infos{};
};
template< class... Ts >
constexpr ArgList< nullptr, Ts... > args( Arg< Ts >... list ) {
   return { { argInfo< Ts >( list.name )... } };
}
template< auto make, class... Ts >
constexpr ArgList< make, Ts... > madeBy( Arg< Ts >... list ) {
   return { { argInfo< Ts >( list.name )... } };
}

// One declared attribute. Member and Index are C++ types, NoType for none.
template< class Binding_, class Member_, class Index_, std::size_t argCount_ >
struct AttrDecl {
   using Binding = Binding_;
   using Member = Member_;
   using Index = Index_;
   static constexpr std::size_t argCount = argCount_;

   char const* name;
   AttrOptions options;
   AttributeId id;
   std::array< ArgInfo, argCount_ > args;
   char const* indexName;
   std::uint64_t constantValue;

   // The key of the collection's members is their attribute of that name.
   constexpr AttrDecl indexedBy( char const* attribute ) const {
      AttrDecl copy = *this;
      copy.indexName = attribute;
      return copy;
   }
   constexpr AttrDecl with( AttrOptions more ) const {
      AttrDecl copy = *this;
      copy.options |= more;
      return copy;
   }
   // An id other than that of the name, where another program fixes it.
   constexpr AttrDecl withId( AttributeId fixed ) const {
      AttrDecl copy = *this;
      copy.id = fixed;
      return copy;
   }
   // A gNMI JSON form, given by a const member function that returns a String.
   template< auto json >
   constexpr auto withGnmiJson() const {
      return AttrDecl< WithGnmiJson< Binding, json >, Member, Index, argCount >{ name,
         options | attrBit( AttrFlag::toGnmiJsonString ), id, args, indexName, constantValue };
   }
   // For an attribute of a union: a const member function that tells whether it is the live one.
   template< auto isLive >
   constexpr auto aliveIf() const {
      return AttrDecl< WithAlternative< Binding, isLive >, Member, Index, argCount >{ name, options,
         id, args, indexName, constantValue };
   }
   // For an attribute of an object: a const member function that is called with each operation
   // before it runs, also with one that then fails.
   template< auto observer >
   constexpr auto observedBy() const {
      static_assert( !Binding::isStatic, "a static attribute has no object that could observe" );
      return AttrDecl< WithObserver< Binding, observer >, Member, Index, argCount >{ name, options,
         id, args, indexName, constantValue };
   }
};

// The row flags that the C++ type of a member or result tells.
template< class T >
constexpr AttrOptions shapeFlags() {
   using S = ShapeOf< T >;
   AttrOptions flags = 0;
   if( S::isPtr ) {
      flags |= attrBit( AttrFlag::isPtr );
      flags |= attrBit( S::isConst ? AttrFlag::isConstPtr : AttrFlag::isNonconstPtr );
   }
   if( S::isRaw ) {
      flags |= attrBit( AttrFlag::rawPtrInterface );
   }
   if( S::isOptional ) {
      flags |= attrBit( AttrFlag::isOptionalValue );
   }
   return flags;
}

template< class Binding, class Index, class Member = typename Binding::Read, std::size_t count = 0 >
constexpr auto makeAttr(
   char const* name, AttrOptions options, std::array< ArgInfo, count > args = {} ) {
   if( Binding::isStatic ) {
      options |= attrBit( AttrFlag::isStatic );
   }
   return AttrDecl< Binding, typename ShapeOf< Member >::Type, Index, count >{ name,
      options | attrBit( AttrFlag::readable ), attrId( name ), args, "", 0 };
}

// A plain attribute: a data member, a static variable, or functions that read and write.
template< auto get, auto set = nullptr >
constexpr auto attr( char const* name, AttrOptions options = 0 ) {
   using Binding = PlainBinding< get, set >;
   options |= shapeFlags< typename Binding::Read >();
   if( Binding::writable && !( options & readOnly ) ) {
      options |= attrBit( AttrFlag::writable );
   }
   if( Binding::hasDataMember ) {
      options |= attrBit( AttrFlag::hasDataMember );
   }
   return makeAttr< Binding, NoType >( name, options );
}

// A function attribute and the names of its parameters.
template< auto fn, class... Names >
constexpr auto function( char const* name, Names... names ) {
   using Binding = FunctionBinding< fn >;
   static_assert( Binding::Args::size == sizeof...( Names ),
      "a function attribute needs a name for each parameter" );
   auto infos = [&]< class... A >( TypeList< A... > ) {
      return std::array< ArgInfo, sizeof...( A ) >{ argInfo< A >( names )... };
   }( typename Binding::Args() );
   return makeAttr< Binding, NoType >(
      name, shapeFlags< typename Binding::Read >() | attrBit( AttrFlag::isFunction ), infos );
}

// A pointer attribute whose object is made in place from these arguments.
template< auto member, class... Ts >
constexpr auto instance(
   char const* name, ArgList< nullptr, Ts... > list, AttrOptions options = 0 ) {
   using Binding = InstanceBinding< member, TypeList< Ts... > >;
   options |= attrBit( AttrFlag::instantiating ) | attrBit( AttrFlag::isPtr ) |
              attrBit( AttrFlag::writable );
   return makeAttr< Binding, NoType >( name, options, list.infos );
}

template< class Binding, std::size_t count >
constexpr auto makeCollection(
   char const* name, AttrOptions options, std::array< ArgInfo, count > infos ) {
   using Container = typename Binding::Container;
   using Index = ShapeOf< typename Container::Key >;
   options |= Container::attrFlags | attrBit( AttrFlag::collectionForm );
   if( Binding::instantiating ) {
      options |= attrBit( AttrFlag::instantiating ) | attrBit( AttrFlag::isPtr );
   } else {
      options |= shapeFlags< typename Binding::Read >();
   }
   if( Index::isPtr && Index::isConst ) {
      options |= attrBit( AttrFlag::hasConstPtrIndex );
   }
   if( !( options & readOnly ) ) {
      options |= attrBit( AttrFlag::writable );
   }
   return makeAttr< Binding, typename Index::Type >( name, options, infos );
}

// A collection: a container (kel/Collections.h, kel/OrderedCollections.h) as member, static
// variable or function that gives a reference to it.
template< auto container >
constexpr auto collection( char const* name, AttrOptions options = 0 ) {
   return makeCollection< CollectionBinding< container > >(
      name, options, std::array< ArgInfo, 0 >() );
}
// One that makes its members, from these arguments.
template< auto container, class... Ts >
constexpr auto collection(
   char const* name, ArgList< nullptr, Ts... > list, AttrOptions options = 0 ) {
   return makeCollection< CollectionBinding< container, TypeList< Ts... > > >(
      name, options, list.infos );
}

// A constant of an enum type.
template< auto value >
constexpr auto constant( char const* name ) {
   auto decl = makeAttr< ConstantBinding< value >, NoType >(
      name, AttrOptions( attrBit( AttrFlag::constantForm ) ) );
   decl.constantValue = static_cast< std::uint64_t >(
      static_cast< std::underlying_type_t< decltype( value ) > >( value ) );
   return decl;
}

enum class TypeKind { enumeration, value, pointer };

// One declared type.
template< TypeKind kind_, class T_, class Base_, class Ctor_, class... Attrs_ >
struct TypeDecl {
   using T = T_;
   using Base = Base_;
   using Ctor = Ctor_;
   using Attrs = std::tuple< Attrs_... >;
   static constexpr TypeKind kind = kind_;
   static constexpr std::size_t attrCount = sizeof...( Attrs_ );

   Ctor ctor;
   Attrs attrs;
   TypeOptions options = 0;

   constexpr TypeDecl with( TypeOptions more ) const {
      TypeDecl copy = *this;
      copy.options |= more;
      return copy;
   }
};

// A type that Python and other generic callers cannot make.
struct NotMade {
   using Types = TypeList<>;
   std::array< ArgInfo, 0 > infos{};
};
constexpr NotMade notMade;

template< TypeKind kind, class T, class Base, class First, class... Rest >
constexpr auto makeType( First first, Rest... rest ) {
   if constexpr( requires { first.infos; } ) {
      return TypeDecl< kind, T, Base, First, Rest... >{ first, { rest... } };
   } else {
      return TypeDecl< kind, T, Base, ArgList< nullptr >, First, Rest... >{ {},
         { first, rest... } };
   }
}
template< TypeKind kind, class T, class Base >
constexpr auto makeType() {
   return TypeDecl< kind, T, Base, ArgList< nullptr > >{};
}

template< class T, class... Attrs >
constexpr auto enumeration( Attrs... attrs ) {
   static_assert(
      std::is_enum_v< T >, "enumeration< T > needs an enum with a fixed underlying type" );
   return TypeDecl< TypeKind::enumeration, T, NoType, NotMade, Attrs... >{ {}, { attrs... } };
}
// A value type, perhaps with a base: constructor arguments first, if there are any, then
// attributes.
template< class T, class Base = NoType, class... Parts >
constexpr auto value( Parts... parts ) {
   static_assert( !std::is_base_of_v< PtrInterface, T >, "a value type is no counted object" );
   return makeType< TypeKind::value, T, Base >( parts... );
}
// A type of counted objects. Without PtrInterface as C++ base it has its own pointer interface.
template< class T, class Base = NoType, class... Parts >
constexpr auto pointer( Parts... parts ) {
   return makeType< TypeKind::pointer, T, Base >( parts... );
}
// A type of named objects in directories.
template< class T, class Base, class... Parts >
constexpr auto entity( Parts... parts ) {
   return makeType< TypeKind::pointer, T, Base >( parts... );
}

} // namespace Kel::Schema
