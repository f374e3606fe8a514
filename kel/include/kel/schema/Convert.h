// Between C++ values and generics, by C++ type. Activity lock.
#pragma once

#include <kel/GenericIf.h>
#include <kel/schema/Types.h>

namespace Kel {

// Throws the TypeException of a generic that is not of the wanted type.
[[noreturn]] KEL_API void throwWrongType( KelType wanted, GenericIf const* got );
// Throws the ConstException of a const object given where a non-const pointer is wanted.
[[noreturn]] KEL_API void throwConstPointer( KelType wanted );

namespace Schema {

// An enum is kept as its underlying type, so that readers need not know the C++ enum.
template< class T >
struct StoredAs {
   using Type = T;
};
template< class T >
requires std::is_enum_v< T >
struct StoredAs< T > {
   using Type = std::underlying_type_t< T >;
};

template< class Stored >
class ValueGeneric final : public GenericIf {
 public:
   template< class... Args >
   ValueGeneric( KelType type, bool isConst, Args&&... args )
      : GenericIf( type, &value_, isConst, Kind::value ),
        value_( std::forward< Args >( args )... ) {}

   Stored& value() noexcept { return value_; }

 private:
   Stored value_;
};

// A generic of a new value made from `args`.
template< class T, class... Args >
Ptr< GenericIf > makeValue( bool isConst, Args&&... args ) {
   using Stored = typename StoredAs< T >::Type;
   if constexpr( std::is_enum_v< T > ) {
      return new ValueGeneric< Stored >(
         kelType< T >(), isConst, static_cast< Stored >( args )... );
   } else {
      return new ValueGeneric< Stored >( kelType< T >(), isConst, std::forward< Args >( args )... );
   }
}

// A view of an object whose type has its own pointer interface.
template< class T >
class OwnPtrGeneric final : public GenericIf {
 public:
   OwnPtrGeneric( Ptr< T > object, bool isConst )
      : GenericIf( kelType< T >(), object.get(), isConst, Kind::ownPtr ),
        object_( std::move( object ) ) {}

   std::uint32_t references() const noexcept override {
      return object_ ? object_->kelReferenceWord() & referencesMask : 0;
   }

 private:
   Ptr< T > object_;
};

template< class T >
concept OwnPtr = Declared< T > && !std::is_base_of_v< PtrInterface, T >;

template< class T >
Ptr< GenericIf > makeView( T const* object, bool isConst ) {
   if constexpr( OwnPtr< T > ) {
      return new OwnPtrGeneric< T >( Ptr< T >( const_cast< T* >( object ) ), isConst );
   } else {
      return KelType::genericIf( const_cast< T* >( object ), isConst );
   }
}

// The generic of what an attribute, a member or a result holds: a const copy of a value when
// `isConst` says so, a view of an object by the pointer's own constness, null for null and for an
// absent value.
template< class T >
Ptr< GenericIf > toGeneric( T const& value, bool isConst = true ) {
   using S = ShapeOf< T >;
   if constexpr( S::isOptional ) {
      return value ? toGeneric( *value, isConst ) : Ptr< GenericIf >();
   } else if constexpr( S::isRaw ) {
      return makeView( value, S::isConst );
   } else if constexpr( S::isPtr ) {
      return makeView( value.get(), S::isConst );
   } else {
      return makeValue< T >( isConst, value );
   }
}

// Whether nobody has to be told of an assignment; false where the type cannot tell. Equal values
// may still differ, as the two zeros of a floating point number do.
template< class T >
bool sameValue( T const& a, T const& b ) {
   if constexpr( requires { a == b; } ) {
      return a == b;
   } else {
      return false;
   }
}

template< class T >
void requireType( GenericIf const* generic ) {
   if( !generic || !generic->type().isDerived( kelType< T >() ) ) {
      throwWrongType( kelType< T >(), generic );
   }
}

template< class T >
T* objectFromGeneric( GenericIf const* generic, bool wantConst ) {
   if( !generic ) {
      return nullptr;
   }
   if constexpr( !Declared< T > ) {
      throwWrongType( KelType(), generic );
   } else {
      requireType< T >( generic );
      if( !wantConst && generic->isConst() ) {
         throwConstPointer( kelType< T >() );
      }
      return static_cast< T* >( generic->voidPtrIs( kelType< T >() ) );
   }
}

template< class T >
T const& valueFromGeneric( GenericIf const* generic ) {
   requireType< T >( generic );
   return *static_cast< T const* >( generic->voidPtrIs( kelType< T >() ) );
}

// The C++ value of a generic, which itself stands for a wanted generic of any type. Throws
// TypeException for one of another type, ConstException for a const object where a non-const
// pointer is wanted.
template< class T >
T fromGeneric( GenericIf const* generic ) {
   using S = ShapeOf< T >;
   if constexpr( S::isOptional ) {
      return generic ? T( fromGeneric< typename T::value_type >( generic ) ) : T();
   } else if constexpr( std::is_same_v< T, Ptr< GenericIf const > > ) {
      return T( generic );
   } else if constexpr( S::isPtr ) {
      return T( objectFromGeneric< typename S::Type >( generic, S::isConst ) );
   } else if constexpr( !Declared< T > ) {
      throwWrongType( KelType(), generic );
   } else if constexpr( std::is_enum_v< T > ) {
      requireType< T >( generic );
      return static_cast< T >( *generic->attrValPtr< typename StoredAs< T >::Type >() );
   } else {
      return valueFromGeneric< T >( generic );
   }
}

// The same for a key that is only looked up: the generic's own value, where its C++ type is T.
template< class T >
decltype( auto ) keyFromGeneric( GenericIf const* generic ) {
   if constexpr( std::is_same_v< T, String > ) {
      return valueFromGeneric< T >( generic );
   } else {
      return fromGeneric< T >( generic );
   }
}

} // namespace Schema
} // namespace Kel
