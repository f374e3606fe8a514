// What a declared C++ type can do, taken from the type itself: operators, hash() and texts become
// the operations of the runtime type, and what it lacks stays null.
#pragma once

#include <kel/TypeImpl.h>
#include <kel/schema/Declare.h>

namespace Kel {
class Entity;
} // namespace Kel

namespace Kel::Schema {

template< class T >
T const& as( void const* address ) {
   return *static_cast< T const* >( address );
}

template< class T >
constexpr bool hasTruth = std::is_constructible_v< bool, T const& > && !std::is_enum_v< T >;

#define KEL_IF_VALID( Expression, Function )                                                       \
   [] {                                                                                            \
      if constexpr( requires( T const& a, T const& b ) { Expression; } ) {                         \
         return Function;                                                                          \
      } else {                                                                                     \
         return nullptr;                                                                           \
      }                                                                                            \
   }()

template< class T >
bool truthOf( void const* a, void const* ) {
   return static_cast< bool >( as< T >( a ) );
}
template< class T >
bool equalOf( void const* a, void const* b ) {
   return as< T >( a ) == as< T >( b );
}
template< class T >
bool lessOf( void const* a, void const* b ) {
   return as< T >( a ) < as< T >( b );
}

// One arithmetic operation as a functor class, so that each is one instance of one template.
#define KEL_ARITHMETIC( Name, Expression )                                                         \
   struct Name {                                                                                   \
      template< class T >                                                                          \
      auto operator()( T const& a, [[maybe_unused]] T const& b ) const requires requires {         \
         Expression;                                                                               \
      }                                                                                            \
      { return Expression; }                                                                       \
   };
KEL_ARITHMETIC( Plus, a + b )
KEL_ARITHMETIC( Minus, a - b )
KEL_ARITHMETIC( Mult, a* b )
KEL_ARITHMETIC( Div, a / b )
KEL_ARITHMETIC( Mod, a % b )
KEL_ARITHMETIC( And, a& b )
KEL_ARITHMETIC( Or, a | b )
KEL_ARITHMETIC( Xor, a ^ b )
KEL_ARITHMETIC( Compl, ~a )
#undef KEL_ARITHMETIC

template< class T, class F >
Ptr< GenericIf > arithmeticOf( void const* a, void const* b ) {
   return makeValue< T >( false, T( F()( as< T >( a ), as< T >( b ? b : a ) ) ) );
}

template< class T, class F >
constexpr ValueOps::ArithmeticFn arithmetic() {
   if constexpr( std::is_invocable_v< F, T const&, T const& > ) {
      if constexpr( std::is_constructible_v< T, std::invoke_result_t< F, T const&, T const& > > ) {
         return &arithmeticOf< T, F >;
      }
   }
   return nullptr;
}

template< class T >
constexpr bool hasStdHash = requires( T const& a ) {
   std::hash< T >()( a );
};

template< class T >
std::uint64_t hashOfValue( void const* a ) {
   return hashOfKey( as< T >( a ) );
}

template< class T >
constexpr auto hashFunction() -> std::uint64_t ( * )( void const* ) {
   if constexpr( requires( T const& a ) { a.hash(); } || hasStdHash< T > ) {
      return &hashOfValue< T >;
   } else {
      return nullptr;
   }
}

template< class T >
constexpr ValueOps::BooleanFn truth() {
   if constexpr( hasTruth< T > ) {
      return &truthOf< T >;
   } else {
      return nullptr;
   }
}

template< class T >
constexpr ValueOps valueOps = {
   { truth< T >(), KEL_IF_VALID( static_cast< bool >( a == b ), &equalOf< T > ),
      KEL_IF_VALID( static_cast< bool >( a < b ), &lessOf< T > ) },
   { arithmetic< T, Plus >(), arithmetic< T, Minus >(), arithmetic< T, Mult >(),
      arithmetic< T, Div >(), arithmetic< T, Mod >(), arithmetic< T, And >(), arithmetic< T, Or >(),
      arithmetic< T, Xor >(), arithmetic< T, Compl >() },
   hashFunction< T >(),
   KEL_IF_VALID(
      String( a.strRep() ), +[]( void const* a ) { return String( as< T >( a ).strRep() ); } ),
   KEL_IF_VALID(
      std::string( a.gnmiStrRep() ),
      +[]( void const* a ) { return std::string( as< T >( a ).gnmiStrRep() ); } ),
   KEL_IF_VALID(
      std::vector< unsigned char >( a.gnmiByterep() ),
      +[]( void const* a ) { return std::vector< unsigned char >( as< T >( a ).gnmiByterep() ); } ),
};

// An entity made by name alone: the first constructor argument is the name, the others are empty.
template< class T, class First, class... Rest >
Ptr< Entity > newNamedEntity( String const& name ) {
   return newObject< T >( First( name ), Rest()... );
}

template< class T, class... Args >
constexpr auto entityMaker( TypeList< Args... > ) -> Ptr< Entity > ( * )( String const& ) {
   if constexpr( std::is_base_of_v< Entity, T > && sizeof...( Args ) > 0 ) {
      return &newNamedEntity< T, Args... >;
   } else {
      return nullptr;
   }
}

template< class T >
struct PtrFunctions {
   static constexpr bool own = !std::is_base_of_v< PtrInterface, T >;

   static void* fromPtrInterface( PtrInterface* object ) { return static_cast< T* >( object ); }
   static PtrInterface* toPtrInterface( void* object ) { return static_cast< T* >( object ); }
   static void acquire( void* object ) { Ptr< T >( static_cast< T* >( object ) ).release(); }
   static void release( void* object ) { Ptr< T >::adopt( static_cast< T* >( object ) ); }
};

template< class T, class CtorTypes >
constexpr PtrOps ptrOps() {
   PtrOps ops{};
   using F = PtrFunctions< T >;
   if constexpr( F::own ) {
      ops.acquire = &F::acquire;
      ops.release = &F::release;
   } else {
      ops.fromPtrInterface = &F::fromPtrInterface;
      ops.toPtrInterface = &F::toPtrInterface;
      ops.newEntity = entityMaker< T >( CtorTypes() );
   }
   ops.strRep = KEL_IF_VALID(
      String( a.strRep() ), +[]( void const* a ) { return String( as< T >( a ).strRep() ); } );
   return ops;
}

// Construction from arguments.
template< class Decl >
Ptr< GenericIf > construct( ArgVector const& args, bool isConst ) {
   using T = typename Decl::T;
   using Types = typename Decl::Ctor::Types;
   if constexpr( Decl::kind == TypeKind::value ) {
      return withArgs< Types >( args, [&]( auto&&... values ) {
         if constexpr( std::is_constructible_v< T, decltype( values )... > ) {
            return makeValue< T >( isConst, T( std::forward< decltype( values ) >( values )... ) );
         } else {
            return makeValue< T >( isConst, T{ std::forward< decltype( values ) >( values )... } );
         }
      } );
   } else {
      return withArgs< Types >( args, [&]( auto&&... values ) {
         if constexpr( std::is_null_pointer_v< decltype( Decl::Ctor::maker ) > ) {
            auto object = newObject< T >( std::forward< decltype( values ) >( values )... );
            return makeView( object.get(), isConst );
         } else {
            auto object = Decl::Ctor::maker( std::forward< decltype( values ) >( values )... );
            return makeView( object.get(), isConst );
         }
      } );
   }
}

// A copy of the value at the address, or a default one; a view of the object at the address.
template< class Decl >
Ptr< GenericIf > fromAddress( void const* address, bool isConst ) {
   using T = typename Decl::T;
   if constexpr( Decl::kind == TypeKind::pointer ) {
      if constexpr( OwnPtr< T > ) {
         return makeView( static_cast< T const* >( address ), isConst );
      } else {
         return KelType::genericIf( static_cast< T* >( const_cast< void* >( address ) ), isConst );
      }
   } else if constexpr( Decl::kind == TypeKind::enumeration ) {
      using Stored = std::underlying_type_t< T >;
      return makeValue< T >( isConst, address ? as< Stored >( address ) : Stored() );
   } else {
      return address ? makeValue< T >( isConst, as< T >( address ) ) : makeValue< T >( isConst );
   }
}

// Where the base stands must not depend on the object.
template< class T, class Base >
void* toBase( void* object ) {
   static_assert(
      requires( Base * base ) { static_cast< T* >( base ); },
      "a declared base must not be virtual" );
   return static_cast< Base* >( static_cast< T* >( object ) );
}

template< class Decl, class T >
constexpr auto constructFunction() -> Ptr< GenericIf > ( * )( ArgVector const&, bool ) {
   if constexpr( std::is_same_v< typename Decl::Ctor, NotMade > ) {
      return nullptr;
   } else {
      return &construct< Decl >;
   }
}

template< class Decl >
constexpr auto toBaseFunction() -> void* (*)( void* ) {
   if constexpr( std::is_same_v< typename Decl::Base, NoType > ) {
      return nullptr;
   } else {
      return &toBase< typename Decl::T, typename Decl::Base >;
   }
}

#undef KEL_IF_VALID

} // namespace Kel::Schema
