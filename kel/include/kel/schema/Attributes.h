// What stands behind a declared attribute: a member or accessor functions, a function, an object
// that is made in place. Each binding is a class with a static operation, called under the activity
// lock with the object as its declaring class D.
#pragma once

#include <tuple>
#include <utility>

#include <kel/TypeImpl.h>
#include <kel/schema/Convert.h>

namespace Kel::Schema {

template< class F >
struct FunctionTraits;
template< class R, class... A >
struct FunctionTraits< R ( * )( A... ) > {
   using Class = void;
   using Result = R;
   using Args = TypeList< std::remove_cvref_t< A >... >;
   static constexpr bool isConst = true;
};
template< class C, class R, class... A >
struct FunctionTraits< R ( C::* )( A... ) > {
   using Class = C;
   using Result = R;
   using Args = TypeList< std::remove_cvref_t< A >... >;
   static constexpr bool isConst = false;
};
template< class C, class R, class... A >
struct FunctionTraits< R ( C::* )( A... ) const > : FunctionTraits< R ( C::* )( A... ) > {
   static constexpr bool isConst = true;
};
template< class R, class... A >
struct FunctionTraits< R ( * )( A... ) noexcept > : FunctionTraits< R ( * )( A... ) > {};
template< class C, class R, class... A >
struct FunctionTraits< R ( C::* )( A... ) const noexcept >
   : FunctionTraits< R ( C::* )( A... ) const > {};

template< auto member >
constexpr bool isFunctionLike = std::is_member_function_pointer_v< decltype( member ) > ||
                                std::is_function_v< std::remove_pointer_t< decltype( member ) > >;
template< auto member >
constexpr bool isMember = std::is_member_pointer_v< decltype( member ) >;

// Reads through a member, a static variable, or a function of either sort.
template< class D, auto get >
decltype( auto ) readOf( void* object ) {
   if constexpr( isMember< get > ) {
      auto* self = static_cast< D* >( object );
      if constexpr( isFunctionLike< get > ) {
         return ( self->*get )();
      } else {
         return ( self->*get );
      }
   } else if constexpr( isFunctionLike< get > ) {
      return get();
   } else {
      return *get;
   }
}

template< class T >
struct MemberTypeOf {
   using Type = T;
};
template< class C, class T >
struct MemberTypeOf< T C::* > {
   using Type = T;
};
template< class T >
requires( std::is_pointer_v< T > &&
          !std::is_function_v< std::remove_pointer_t< T > > ) struct MemberTypeOf< T > {
   using Type = std::remove_pointer_t< T >;
};

template< auto get >
struct ReadTypeOf {
   using Type = typename MemberTypeOf< decltype( get ) >::Type;
};
template< auto get >
requires( isFunctionLike< get > ) struct ReadTypeOf< get > {
   using Type = typename FunctionTraits< decltype( get ) >::Result;
};

// Tells the object's notifiees of a change made through a generic write.
template< class D >
void notifyAttr( AttrCall const& call ) {
   if constexpr( std::is_base_of_v< PtrInterface, D > ) {
      if( call.attr.flag( AttrFlag::doesNotify ) ) {
         static_cast< D* >( call.object )->notify( call.attr.attributeId() );
      }
   }
}

// A plain attribute: `get` reads it, `set` writes it; a data member without `set` is assigned.
template< auto get, auto set >
struct PlainBinding {
   using Read = std::remove_cvref_t< typename ReadTypeOf< get >::Type >;
   static constexpr bool isStatic = !isMember< get >;
   static constexpr bool hasDataMember = !isFunctionLike< get >;
   static constexpr bool hasSetter = !std::is_null_pointer_v< decltype( set ) >;
   static constexpr bool writable =
      hasSetter || ( hasDataMember && !std::is_const_v< typename ReadTypeOf< get >::Type > );

   template< class D >
   static int op( AttrCall& call ) {
      switch( call.op ) {
      case GenericIf::AttributeOp::get:
         call.result = toGeneric< Read >( readOf< D, get >( call.object ) );
         return attrOpDone;
      case GenericIf::AttributeOp::set:
         return write< D >( call );
      default:
         return attrOpNotApplicable;
      }
   }

 private:
   template< class D >
   static int write( AttrCall& call ) {
      if constexpr( hasSetter ) {
         using Arg = typename SetterArg< decltype( set ) >::Type;
         if constexpr( isMember< set > ) {
            ( static_cast< D* >( call.object )->*set )( fromGeneric< Arg >( call.value ) );
         } else {
            set( fromGeneric< Arg >( call.value ) );
         }
         return attrOpDone;
      } else if constexpr( writable ) {
         assign< D >( call );
         return attrOpDone;
      } else {
         return attrOpNotApplicable;
      }
   }

   template< class D >
   static void assign( AttrCall& call ) {
      auto value = fromGeneric< Read >( call.value );
      if constexpr( isStatic ) {
         *get = std::move( value );
      } else {
         auto& member = static_cast< D* >( call.object )->*get;
         bool const differs = !sameValue< Read >( member, value );
         member = std::move( value );
         if( differs ) {
            notifyAttr< D >( call );
         }
      }
   }

   template< class F >
   struct SetterArg;
   template< class R, class A >
   struct SetterArg< R ( * )( A ) > {
      using Type = std::remove_cvref_t< A >;
   };
   template< class C, class R, class A >
   struct SetterArg< R ( C::* )( A ) > : SetterArg< R ( * )( A ) > {};
};

// Throws the ConstException of a non-const function called through a const view.
[[noreturn]] KEL_API void throwConstCall( KelAttr attr );
// The wanted number of arguments, or a TypeException.
KEL_API void requireArgs( ArgVector const& args, std::size_t wanted );

template< class F, class... A, std::size_t... i >
decltype( auto ) applyArgs(
   ArgVector const& args, F&& f, TypeList< A... >, std::index_sequence< i... > ) {
   return f( fromGeneric< A >( args[i].get() )... );
}

// Calls f with the arguments as C++ values, by the types of the list.
template< class Args, class F >
decltype( auto ) withArgs( ArgVector const& args, F&& f ) {
   requireArgs( args, Args::size );
   return applyArgs(
      args, std::forward< F >( f ), Args(), std::make_index_sequence< Args::size >() );
}

// A function attribute.
template< auto function >
struct FunctionBinding {
   using Traits = FunctionTraits< decltype( function ) >;
   using Read = std::remove_cvref_t< typename Traits::Result >;
   using Args = typename Traits::Args;
   static constexpr bool isStatic = !isMember< function >;

   template< class D >
   static int op( AttrCall& call ) {
      if( call.op != GenericIf::AttributeOp::call ) {
         return attrOpNotApplicable;
      }
      if( !Traits::isConst && call.isConst() ) {
         throwConstCall( call.attr );
      }
      withArgs< Args >( *call.args, [&]( auto&&... args ) {
         auto run = [&]() -> decltype( auto ) {
            if constexpr( isStatic ) {
               return function( std::forward< decltype( args ) >( args )... );
            } else {
               return ( static_cast< D* >( call.object )->*function )(
                  std::forward< decltype( args ) >( args )... );
            }
         };
         if constexpr( std::is_void_v< typename Traits::Result > ) {
            run();
         } else {
            call.result = toGeneric< Read >( run(), false );
         }
      } );
      return attrOpDone;
   }
};

// A pointer whose object is made from arguments by a write and dropped by a delete. `make` is null
// for the member type's constructor, otherwise a function that gives a Ptr.
template< auto member, class CtorArgs >
struct InstanceBinding {
   using Read = std::remove_cvref_t< typename ReadTypeOf< member >::Type >;
   using Args = CtorArgs;
   static constexpr bool isStatic = !isMember< member >;

   template< class D >
   static int op( AttrCall& call ) {
      Read& slot = const_cast< Read& >( readOf< D, member >( call.object ) );
      switch( call.op ) {
      case GenericIf::AttributeOp::get:
         call.result = makeView( slot.get(), call.isConst() );
         return attrOpDone;
      case GenericIf::AttributeOp::set:
         if( !call.args ) {
            return attrOpNotApplicable;
         }
         slot = withArgs< Args >( *call.args, []( auto&&... args ) {
            return newObject< typename Read::element_type >(
               std::forward< decltype( args ) >( args )... );
         } );
         notifyAttr< D >( call );
         call.result = makeView( slot.get(), false );
         return attrOpDone;
      case GenericIf::AttributeOp::del:
         call.flag = static_cast< bool >( slot );
         if( call.flag ) {
            slot = nullptr;
            notifyAttr< D >( call );
         }
         return attrOpDone;
      default:
         return attrOpNotApplicable;
      }
   }
};

// A plain attribute with a gNMI JSON form, given by a member function.
template< class Plain, auto json >
struct WithGnmiJson : Plain {
   template< class D >
   static int op( AttrCall& call ) {
      if( call.op == GenericIf::AttributeOp::gnmiJsonString ) {
         *call.text = ( static_cast< D const* >( call.object )->*json )();
         return attrOpDone;
      }
      return Plain::template op< D >( call );
   }
};

// A plain attribute of a union: the member function `isLive` tells whether it is the live
// alternative.
template< class Plain, auto isLive >
struct WithAlternative : Plain {
   template< class D >
   static int op( AttrCall& call ) {
      if( call.op == GenericIf::AttributeOp::unionAlternative ) {
         call.flag = ( static_cast< D const* >( call.object )->*isLive )();
         return attrOpDone;
      }
      return Plain::template op< D >( call );
   }
};

// An attribute whose object is told of each operation before it runs.
template< class Plain, auto observer >
struct WithObserver : Plain {
   template< class D >
   static int op( AttrCall& call ) {
      ( static_cast< D const* >( call.object )->*observer )( call.op );
      return Plain::template op< D >( call );
   }
};

// A constant of an enum type: no operation reaches it, its row says all.
template< auto constant >
struct ConstantBinding {
   using Read = decltype( constant );
   static constexpr bool isStatic = true;

   template< class D >
   static int op( AttrCall& ) {
      return attrOpNotApplicable;
   }
};

} // namespace Kel::Schema
