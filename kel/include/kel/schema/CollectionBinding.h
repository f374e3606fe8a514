// What stands behind a declared collection: a container member, whose kind and operations its class
// tells. Activity lock.
#pragma once

#include <kel/Collections.h>
#include <kel/OrderedCollections.h>
#include <kel/schema/Attributes.h>

namespace Kel::Schema {

// Throws the RangeException of a read whose key has no member.
[[noreturn]] KEL_API void throwNoMember( KelAttr attr );

// The generic of a member: const values; pointers as declared, those that an instantiating
// collection owns as const as the view of their owner.
template< class Member, bool instantiating >
Ptr< GenericIf > memberToGeneric( Member const& member, bool ownerConst ) {
   if constexpr( instantiating ) {
      return makeView( member.get(), ownerConst );
   } else {
      return toGeneric< Member >( member );
   }
}

template< class Container, bool instantiating >
class ContainerIterator final : public GenericIfRaw::IteratorImpl {
   using Member = typename Container::Member;

 public:
   ContainerIterator( typename Container::Iterator at, bool ownerConst )
      : at_( std::move( at ) ), ownerConst_( ownerConst ) {}

   bool nonnull() const override { return static_cast< bool >( at_ ); }
   void increment() override { ++at_; }
   Ptr< GenericIf > key() const override {
      return toGeneric< typename Container::Key >( at_.key() );
   }
   Ptr< GenericIf > ptr() const override {
      return memberToGeneric< Member, instantiating >( at_.member(), ownerConst_ );
   }

 private:
   typename Container::Iterator at_;
   bool ownerConst_;
};

// `container` is a member or static variable, or a function that gives a reference to one. CtorArgs
// is NoType for a collection that does not make its members.
template< auto container, class CtorArgs = NoType >
struct CollectionBinding {
   using Container = std::remove_cvref_t< typename ReadTypeOf< container >::Type >;
   using Read = typename Container::Member;
   using Key = typename Container::Key;
   using Args = CtorArgs;
   using Op = GenericIf::AttributeOp;
   static constexpr bool isStatic = !isMember< container >;
   static constexpr bool instantiating = !std::is_same_v< CtorArgs, NoType >;
   static constexpr bool hasInternalKey = requires( Container & c, Read const& member ) {
      c.addMember( member );
   };

   template< class D >
   static int op( AttrCall& call ) {
      Container& c = const_cast< Container& >( readOf< D, container >( call.object ) );
      switch( call.op ) {
      case Op::get:
      case Op::exist:
      case Op::members:
      case Op::version:
      case Op::iterate:
         return look( c, call );
      case Op::set:
         return call.args ? make( c, call ) : set( c, call );
      case Op::del:
         call.flag = c.del( fromGeneric< Key >( call.key ) );
         return attrOpDone;
      case Op::add:
      case Op::remove:
      case Op::front:
      case Op::back:
         return orderedOp( c, call );
      default:
         return attrOpNotApplicable;
      }
   }

 private:
   static int look( Container const& c, AttrCall& call ) {
      switch( call.op ) {
      case Op::get:
         get( c, call );
         break;
      case Op::exist:
         call.flag = c.exist( keyFromGeneric< Key >( call.key ) );
         break;
      case Op::members:
         call.count = c.members();
         break;
      case Op::version:
         call.count = c.version();
         break;
      default:
         *call.iterator = GenericIfRaw::Iterator(
            std::make_unique< ContainerIterator< Container, instantiating > >(
               c.iterator(), call.isConst() ) );
      }
      return attrOpDone;
   }

   static void get( Container const& c, AttrCall& call ) {
      auto&& member = c.find( keyFromGeneric< Key >( call.key ) );
      if( !member ) {
         throwNoMember( call.attr );
      }
      call.result = memberToGeneric< Read, instantiating >( *member, call.isConst() );
   }

   static int set( Container& c, AttrCall& call ) {
      if constexpr( instantiating ) {
         return attrOpNotApplicable;
      } else if constexpr( hasInternalKey ) {
         c.addMember( fromGeneric< Read >( call.value ) );
         return attrOpDone;
      } else {
         c.set( fromGeneric< Key >( call.key ), fromGeneric< Read >( call.value ) );
         return attrOpDone;
      }
   }

   // Makes a member from arguments and adds it.
   static int make( Container& c, AttrCall& call ) {
      if constexpr( instantiating ) {
         auto member = withArgs< Args >( *call.args, []( auto&&... args ) {
            return newObject< typename Read::element_type >(
               std::forward< decltype( args ) >( args )... );
         } );
         if constexpr( requires { c.newMember( member ); } ) {
            c.newMember( member );
         } else {
            c.add( member );
         }
         call.result = makeView( member.get(), false );
         return attrOpDone;
      } else {
         return attrOpNotApplicable;
      }
   }

   static int orderedOp( Container& c, AttrCall& call ) {
      constexpr bool ordered = requires {
         c.front();
      };
      if constexpr( ordered ) {
         if( call.op == Op::add ) {
            c.add( fromGeneric< Read >( call.value ) );
         } else if( call.op == Op::remove ) {
            call.result = memberToGeneric< Read, instantiating >( c.remove(), call.isConst() );
         } else if( call.op == Op::front ) {
            call.result = memberToGeneric< Read, instantiating >( c.front(), call.isConst() );
         } else {
            call.result = memberToGeneric< Read, instantiating >( c.back(), call.isConst() );
         }
         return attrOpDone;
      } else {
         return attrOpNotApplicable;
      }
   }
};

} // namespace Kel::Schema
