// The record of the built-in types, and the types that any unit may refer to without a table.
#include <array>
#include <cinttypes>

#include <kel/Assert.h>
#include <kel/Exception.h>
#include <kel/Notifiee.h>
#include <kel/Schema.h>
#include <kel/TypeImpl.h>

namespace Kel {

namespace {

using namespace Schema;

template< class T >
String textOf( void const* value ) {
   if constexpr( std::is_same_v< T, bool > ) {
      return as< bool >( value ) ? "true" : "false";
   } else if constexpr( std::is_same_v< T, char > ) {
      return String( static_cast< char const* >( value ), 1 );
   } else if constexpr( std::is_same_v< T, String > ) {
      return as< String >( value );
   } else if constexpr( std::is_same_v< T, Bytes > ) {
      auto const& bytes = as< Bytes >( value );
      return String( reinterpret_cast< char const* >( bytes.bytesPtr() ), bytes.bytes() );
   } else if constexpr( std::is_same_v< T, Seconds > ) {
      return _fmt( "%.17g", as< Seconds >( value ).value() );
   } else if constexpr( std::is_floating_point_v< T > ) {
      return _fmt( "%.17g", static_cast< double >( as< T >( value ) ) );
   } else {
      return String( std::to_string( as< T >( value ) ) );
   }
}

template< class T >
struct BuiltinImpl {
   static constexpr ValueOps makeOps() {
      ValueOps ops{};
      ops.boolean[1] = &equalOf< T >;
      ops.boolean[2] = &lessOf< T >;
      ops.hash = hashFunction< T >();
      ops.strRep = &textOf< T >;
      return ops;
   }
   static constexpr ValueOps ops = makeOps();

   static Ptr< GenericIf > fromAddress( void const* address, bool isConst ) {
      return address ? makeValue< T >( isConst, as< T >( address ) ) : makeValue< T >( isConst );
   }
   static constexpr TypeImpl impl = { nullptr, nullptr, &fromAddress, nullptr, &ops, nullptr };
};

template< class T >
constexpr bool isReserved = false;
template< int i >
constexpr bool isReserved< Reserved< i > > = true;

// An index that this runtime has no type for, and the result of a function without value.
template< class T >
requires( std::is_void_v< T > || isReserved< T > ) struct BuiltinImpl< T > {
   static constexpr ValueOps ops = {};

   static Ptr< GenericIf > fromAddress( void const*, bool ) {
      throw NoImplementationException( "there is no value of this built-in type" );
   }
   static constexpr TypeImpl impl = { nullptr, nullptr, &fromAddress, nullptr, &ops, nullptr };
};

template< class T >
constexpr std::uint32_t sizeOf = sizeof( T );
template<>
constexpr std::uint32_t sizeOf< void > = 0;
template< class T >
constexpr std::uint32_t alignOf = alignof( T );
template<>
constexpr std::uint32_t alignOf< void > = 1;

template< class List >
struct BuiltinTables;
template< class... Ts >
struct BuiltinTables< TypeList< Ts... > > {
   static constexpr std::size_t count = sizeof...( Ts );
   static constexpr std::size_t poolSize = ( ( typeNameOf< Ts >().size() + 1 ) + ... );

   struct Rows {
      std::array< TypeRow, count > types{};
      Pool< poolSize > names;
   };
   static constexpr Rows makeRows() {
      Rows rows;
      std::size_t at = 0;
      constexpr auto flags = typeBit( TypeFlag::isValue ) | typeBit( TypeFlag::isBuiltinType );
      ( ( rows.types[at++] = TypeRow::make( flags, rows.names.add( typeNameOf< Ts >() ),
             sizeOf< Ts >, alignOf< Ts >, ~0, 0, 0, 0 ) ),
         ... );
      return rows;
   }

   static constexpr Rows rows = makeRows();
   static constexpr std::array< TypeImpl, count > impls = { BuiltinImpl< Ts >::impl... };
};
using Builtins = BuiltinTables< BuiltinUnit::Types >;

constexpr ArgRow noArgs[1] = {};

constexpr TypeRef coreBuiltin( BuiltinType index ) {
   return { &_Kel_BuiltinType_kelModule, static_cast< std::uint16_t >( index ), {} };
}
constexpr TypeRef coreBuiltin( unsigned index ) {
   return coreBuiltin( static_cast< BuiltinType >( index ) );
}

} // namespace

constinit KelModule const _Kel_BuiltinType_kelModule = { Builtins::rows.types.data(), nullptr,
   noArgs, Builtins::rows.names.text.data(), "", nullptr, Builtins::impls.data(), Builtins::count };

namespace Impl {

constinit TypeRef const coreTypes_[] = { { nullptr, 0, {} },
   { &_Kel_PtrInterface_kelModule, 0, {} }, { &_Kel_PtrInterface_kelModule, 1, {} },
   coreBuiltin( 0u ), coreBuiltin( 1u ), coreBuiltin( 2u ), coreBuiltin( 3u ), coreBuiltin( 4u ),
   coreBuiltin( 5u ), coreBuiltin( 6u ), coreBuiltin( 7u ), coreBuiltin( 8u ), coreBuiltin( 9u ),
   coreBuiltin( 10u ), coreBuiltin( 11u ), coreBuiltin( 12u ), coreBuiltin( 13u ),
   coreBuiltin( 14u ), coreBuiltin( 15u ), coreBuiltin( 16u ), coreBuiltin( 17u ),
   coreBuiltin( 18u ), coreBuiltin( 19u ), coreBuiltin( 20u ), coreBuiltin( 21u ) };

} // namespace Impl

namespace {
bool const registered = ( kelModuleIs( &_Kel_BuiltinType_kelModule ), true );
} // namespace

KEL_UNIT( _Kel_PtrInterface_kelModule, pointer< PtrInterface >( notMade ),
   pointer< PtrInterface::NotifieeConst, PtrInterface >( notMade ).with( isConstrainer ) )

} // namespace Kel
