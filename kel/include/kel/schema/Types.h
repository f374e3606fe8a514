// Which C++ type is which runtime type: units list their types, classes say which one they are.
#pragma once

#include <optional>
#include <string_view>
#include <type_traits>

#include <kel/AllocTrack.h>
#include <kel/KelModule.h>
#include <kel/KelType.h>
#include <kel/Ptr.h>
#include <kel/Seconds.h>
#include <kel/String.h>

namespace Kel::Schema {

template< class T >
struct Tag {};

// No type: the index type of a plain attribute, the base of a type without one.
struct NoType {};

template< class... Ts >
struct TypeList {
   static constexpr std::size_t size = sizeof...( Ts );

   template< class T >
   static constexpr bool contains = ( std::is_same_v< T, Ts > || ... );

   template< class T >
   static constexpr std::uint16_t index = [] {
      std::uint16_t at = 0;
      (void)( ( std::is_same_v< T, Ts > ? false : ( ++at, true ) ) && ... );
      return at;
   }();
};

// A built-in index that no C++ type stands behind.
template< int index >
struct Reserved {};

struct BuiltinUnit {
   using Types = TypeList< void, U8, S8, U16, S16, U32, S32, U64, S64, bool, char, float, double,
      String, Bytes, Reserved< 15 >, Reserved< 16 >, Reserved< 17 >, Reserved< 18 >, Reserved< 19 >,
      Reserved< 20 >, Seconds >;
   static constexpr KelModule const* module() { return &_Kel_BuiltinType_kelModule; }
};

template< class T >
requires( BuiltinUnit::Types::contains< T > ) BuiltinUnit kelUnitOf( Tag< T > );

template< class T >
concept Declared = requires {
   kelUnitOf( Tag< T >() );
};

template< class T >
concept Builtin = BuiltinUnit::Types::contains< T >;

template< class T >
using UnitOf = decltype( kelUnitOf( Tag< T >() ) );

// The full runtime name of a C++ type: its qualified C++ name, unless it is a built-in one.
template< class T >
constexpr std::string_view typeNameOf() {
   std::string_view text = __PRETTY_FUNCTION__;
   text.remove_prefix( text.find( "T = " ) + 4 );
   return text.substr( 0, text.find_first_of( ";]" ) );
}
#define KEL_BUILTIN_NAME( Type, name )                                                             \
   template<>                                                                                      \
   constexpr std::string_view typeNameOf< Type >() {                                               \
      return name;                                                                                 \
   }
KEL_BUILTIN_NAME( void, "void" )
KEL_BUILTIN_NAME( U8, "U8" )
KEL_BUILTIN_NAME( S8, "S8" )
KEL_BUILTIN_NAME( U16, "U16" )
KEL_BUILTIN_NAME( S16, "S16" )
KEL_BUILTIN_NAME( U32, "U32" )
KEL_BUILTIN_NAME( S32, "S32" )
KEL_BUILTIN_NAME( U64, "U64" )
KEL_BUILTIN_NAME( S64, "S64" )
KEL_BUILTIN_NAME( bool, "bool" )
KEL_BUILTIN_NAME( char, "char" )
KEL_BUILTIN_NAME( float, "float" )
KEL_BUILTIN_NAME( double, "double" )
KEL_BUILTIN_NAME( String, "Kel::String" )
KEL_BUILTIN_NAME( Bytes, "Kel::Bytes" )
KEL_BUILTIN_NAME( Seconds, "Kel::Seconds" )
#undef KEL_BUILTIN_NAME

// What stands behind an attribute's C++ type: pointers and optionals taken off.
template< class T >
struct Shape {
   using Type = T;
   static constexpr bool isPtr = false, isConst = false, isRaw = false, isOptional = false;
};
template< class T >
struct Shape< Ptr< T > > {
   using Type = std::remove_const_t< T >;
   static constexpr bool isPtr = true, isConst = std::is_const_v< T >, isRaw = false,
                         isOptional = false;
};
template< class T >
struct Shape< T* > {
   using Type = std::remove_const_t< T >;
   static constexpr bool isPtr = true, isConst = std::is_const_v< T >, isRaw = true,
                         isOptional = false;
};
template< class T >
struct Shape< std::optional< T > > : Shape< T > {
   static constexpr bool isOptional = true;
};
template< class T >
using ShapeOf = Shape< std::remove_cvref_t< T > >;

} // namespace Kel::Schema

namespace Kel {

// The runtime type of a declared C++ type or a built-in one.
template< class T >
constexpr KelType kelType() {
   using Unit = Schema::UnitOf< T >;
   return KelType( Unit::module(), Unit::Types::template index< T > );
}

// Makes an object that is counted from the start and takes part in notification. Activity lock.
template< class T, class... Args >
Ptr< T > newObject( Args&&... args ) {
   Ptr< T > object( new T( std::forward< Args >( args )... ) );
   if constexpr( std::is_base_of_v< PtrInterface, T > ) {
      object->hasNotificationActiveIs( true );
   }
   return object;
}

} // namespace Kel

// In a unit's header, in the namespace of its types and behind their forward declarations: the
// unit's record and its types, in the order of their indices. Types outside the list are not the
// unit's.
#define KEL_TYPES( record, ... )                                                                   \
   extern "C" KEL_API ::Kel::KelModule const record;                                               \
   struct record##_unit {                                                                          \
      using Types = ::Kel::Schema::TypeList< __VA_ARGS__ >;                                        \
      static constexpr ::Kel::KelModule const* module() { return &record; }                        \
   };                                                                                              \
   template< class T >                                                                             \
   requires( record##_unit::Types::template contains< T > )                                        \
      record##_unit kelUnitOf( ::Kel::Schema::Tag< T > )

// First in the body of a class with its own pointer interface: reports each object's memory. What
// follows is public.
#define KEL_TRACKED( Class )                                                                       \
 public:                                                                                           \
   inline static ::Kel::AllocTrackTypeInfo* kelAllocTrackTypeInfo_ = nullptr;                      \
   static void* operator new( std::size_t size ) {                                                 \
      ::Kel::AllocTrackTypeInfo::_trackAllocation(                                                 \
         &kelAllocTrackTypeInfo_, typeid( Class ), size, alignof( Class ) );                       \
      try {                                                                                        \
         return ::Kel::PtrInterface::kelMemAlloc( size );                                          \
      } catch( ... ) {                                                                             \
         ::Kel::AllocTrackTypeInfo::trackDeallocation( kelAllocTrackTypeInfo_ );                   \
         throw;                                                                                    \
      }                                                                                            \
   }                                                                                               \
   static void operator delete( void* memory, std::size_t size ) noexcept {                        \
      ::Kel::AllocTrackTypeInfo::trackDeallocation( kelAllocTrackTypeInfo_ );                      \
      ::Kel::memFree( memory, size );                                                              \
   }

// The same for a class derived from PtrInterface: gives its runtime type as well.
#define KEL_OBJECT( Class )                                                                        \
   KEL_TRACKED( Class )                                                                            \
   ::Kel::KelType fwkType() const override {                                                       \
      return ::Kel::kelType< Class >();                                                            \
   }
