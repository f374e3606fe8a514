// The containers behind collection attributes. Each knows its key and member type and the flags of
// its kind; given an owner and an attribute id it notifies of each change. Activity lock.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include <kel/Exception.h>
#include <kel/HashMap2018.h>
#include <kel/Ptr.h>
#include <kel/schema/Convert.h>

namespace Kel {

// Who is told of a change. A copy of a collection has no owner: it belongs to another value.
class CollectionBase {
 public:
   CollectionBase() = default;
   CollectionBase( PtrInterface const* owner, AttributeId attribute )
      : owner_( owner ), attribute_( attribute ) {}
   CollectionBase( CollectionBase const& ) noexcept {}
   CollectionBase& operator=( CollectionBase const& ) noexcept { return *this; }

 protected:
   template< class Key >
   void changed( Key const& key ) const {
      if( owner_ && owner_->hasNotifiees() ) {
         owner_->notify( attribute_, Schema::toGeneric< Key >( key ) );
      }
   }
   void changed() const {
      if( owner_ ) {
         owner_->notify( attribute_ );
      }
   }

 private:
   PtrInterface const* owner_ = nullptr;
   AttributeId attribute_ = 0;
};

// The part that keyed containers share. Node has key() and member().
template< class Node >
class KeyedCollection : public CollectionBase {
 public:
   using Key = typename Node::Key;
   using Member = typename Node::Member;
   static constexpr std::uint32_t attrFlags = 0;

   class Iterator {
    public:
      explicit Iterator( KeyedCollection const& collection ) : at_( collection.map_ ) {}
      explicit operator bool() const { return at_.currNodeNonStale(); }
      Iterator& operator++() {
         at_.advance();
         return *this;
      }
      Key const& key() const { return node()->key(); }
      Member const& member() const { return node()->member(); }

    private:
      Node const* node() const { return static_cast< Node const* >( at_.currNodeNonStale() ); }

      HashMap2018IteratorGeneric at_;
   };

   KeyedCollection() : KeyedCollection( nullptr, 0 ) {}
   KeyedCollection( PtrInterface const* owner, AttributeId attribute )
      : CollectionBase( owner, attribute ), map_( &vtable_, 1u, false ) {}
   KeyedCollection( KeyedCollection const& other )
      : CollectionBase( other ), map_( &vtable_, 1u, false ) {
      copyFrom( other );
   }
   KeyedCollection& operator=( KeyedCollection const& other ) {
      if( this != &other ) {
         map_._memberDelAll();
         copyFrom( other );
      }
      return *this;
   }

   bool exist( Key const& key ) const { return map_.lookupNodeG( &key ); }
   // The member under the key, or null.
   Member const* find( Key const& key ) const {
      auto* node = this->node( key );
      return node ? &node->member() : nullptr;
   }
   bool del( Key const& key ) {
      auto* node = this->node( key );
      if( !node ) {
         return false;
      }
      Key kept = node->key();
      map_.deleteMemberG( node );
      changed( kept );
      return true;
   }
   void delAll() {
      while( auto* node = static_cast< Node* >( map_.first() ) ) {
         del( Key( node->key() ) );
      }
   }
   std::uint32_t members() const { return map_.members(); }
   std::uint32_t version() const { return map_.version(); }
   Iterator iterator() const { return Iterator( *this ); }

   // Equal keys with equal members, in any order.
   friend bool operator==( KeyedCollection const& a, KeyedCollection const& b ) {
      if( a.members() != b.members() ) {
         return false;
      }
      for( auto it = a.iterator(); it; ++it ) {
         auto* other = b.find( it.key() );
         if( !other || !( *other == it.member() ) ) {
            return false;
         }
      }
      return true;
   }

 protected:
   Node* node( Key const& key ) const { return static_cast< Node* >( map_.lookupNodeG( &key ) ); }
   void insert( std::unique_ptr< Node > node ) { changed( own( std::move( node ) ).key() ); }
   // All at once, and nobody is told.
   void memberDelAll() { map_._memberDelAll(); }

 private:
   void copyFrom( KeyedCollection const& other ) {
      for( auto it = other.iterator(); it; ++it ) {
         own( std::make_unique< Node >( it.key(), it.member() ) );
      }
   }
   // The map owns the node once it has found room for it.
   Node const& own( std::unique_ptr< Node > node ) {
      map_.newMemberG( node.get(), &node->key() );
      return *node.release();
   }

   static constexpr HashMap2018VTable vtable_ = HashMap2018VTable::Impl< Node, Key >::vtable();

   HashMap2018Generic map_;
};

template< class K, class M >
struct MapNode : HashMap2018Node {
   using Key = K;
   using Member = M;

   MapNode( K key, M member ) : key_( std::move( key ) ), member_( std::move( member ) ) {}
   K const& key() const { return key_; }
   M const& member() const { return member_; }

   K key_;
   M member_;
};

// Members under keys of their own.
template< class K, class M >
class Map : public KeyedCollection< MapNode< K, M > > {
   using Base = KeyedCollection< MapNode< K, M > >;

 public:
   using Base::Base;

   void set( K const& key, M const& member ) {
      if( auto* node = this->node( key ) ) {
         bool const differs = !Schema::sameValue( node->member_, member );
         node->member_ = member;
         if( differs ) {
            this->changed( key );
         }
      } else {
         this->insert( std::make_unique< MapNode< K, M > >( key, member ) );
      }
   }
};

// A set: underneath a map from the element to true.
template< class K >
class SetOf : public Map< K, bool > {
 public:
   static constexpr std::uint32_t attrFlags = attrBit( AttrFlag::isSet );
   using Map< K, bool >::Map;

   void set( K const& element, bool present ) {
      if( present ) {
         Map< K, bool >::set( element, true );
      } else {
         this->del( element );
      }
   }
   void add( K const& element ) { set( element, true ); }
};

// The type of the key that a member or const member function gives. It asks nothing of the class,
// which may be incomplete: a class may have a collection of itself.
template< class KeyOf >
struct KeyTypeOf;
template< class C, class K >
struct KeyTypeOf< K C::* > {
   using Type = std::remove_cvref_t< K >;
};
template< class C, class K >
struct KeyTypeOf< K ( C::* )() const > {
   using Type = std::remove_cvref_t< K >;
};
template< class C, class K >
struct KeyTypeOf< K ( C::* )() const noexcept > : KeyTypeOf< K ( C::* )() const > {};

// P is Ptr< T > or Ptr< T const >; `keyOf` a member or const member function of T that does not
// change while the object is a member.
template< class P, auto keyOf >
struct PtrNode : HashMap2018Node {
   using Key = typename KeyTypeOf< decltype( keyOf ) >::Type;
   using Member = P;

   explicit PtrNode( P member )
      : key_( std::invoke( keyOf, *member ) ), member_( std::move( member ) ) {}
   PtrNode( Key const&, P member ) : PtrNode( std::move( member ) ) {}
   Key const& key() const { return key_; }
   P const& member() const { return member_; }

   Key key_;
   P member_;
};

// Objects under a key that they carry themselves.
template< class P, auto keyOf >
class PtrMap : public KeyedCollection< PtrNode< P, keyOf > > {
   using Base = KeyedCollection< PtrNode< P, keyOf > >;

 public:
   using Base::Base;

   // Adds the object; one under the same key is replaced. Throws RangeException for null.
   void addMember( P const& member ) {
      if( !member ) {
         throw RangeException( "a null pointer is no member of a collection" );
      }
      if( auto* node = this->node( std::invoke( keyOf, *member ) ) ) {
         if( node->member_ != member ) {
            node->member_ = member;
            this->changed( node->key() );
         }
      } else {
         this->insert( std::make_unique< PtrNode< P, keyOf > >( member ) );
      }
   }
   // Adds an object that was made for this collection. Throws NameInUseException for a taken key.
   void newMember( P const& member ) {
      if( this->exist( std::invoke( keyOf, *member ) ) ) {
         throw NameInUseException( "the key of the new member is in use" );
      }
      this->insert( std::make_unique< PtrNode< P, keyOf > >( member ) );
   }
   P get( typename Base::Key const& key ) const {
      auto* member = this->find( key );
      return member ? *member : P();
   }
};

} // namespace Kel
