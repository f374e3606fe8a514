// The generic keyed map under every keyed collection: nodes in hash buckets and in one list in
// order of their making, so that iteration is safe under any change and needs no copy. Activity
// lock.
#pragma once

#include <cstddef>
#include <cstdint>

#include <kel/Export.h>
#include <kel/String.h>

namespace Kel {

// A number that is not mixed up with numbers of other meanings.
template< class T, int tag >
class TypeSafeIndex {
 public:
   constexpr TypeSafeIndex( T value ) : value_( value ) {}
   constexpr T value() const { return value_; }

 private:
   T value_;
};

struct HashHelper {
   // How a text key is handed to the generic map.
   using KeyStringLegacy = String const*;
};

// The part of a node that the map owns; the typed part derives from it.
struct HashMap2018Node {
   HashMap2018Node* bucketNext = nullptr;
   HashMap2018Node* prev = nullptr;
   HashMap2018Node* next = nullptr;
   std::size_t hash = 0;
};

// What the map must know of its keys and nodes. A key is handed as its address.
struct HashMap2018VTable {
   std::size_t ( *hash )( void const* key );
   bool ( *holdsKey )( HashMap2018Node const* node, void const* key );
   void ( *deleteNode )( HashMap2018Node* node );

   template< class Node, class Key >
   struct Impl;
};

class HashMap2018IteratorGeneric;

class KEL_API HashMap2018Generic {
 public:
   // `buckets` is a first size; it grows with the members. With `keepBuckets` the table does not
   // shrink when it is emptied.
   HashMap2018Generic( HashMap2018VTable const* vtable, TypeSafeIndex< unsigned int, 355 > buckets,
      bool keepBuckets );
   HashMap2018Generic( HashMap2018Generic const& ) = delete;
   HashMap2018Generic& operator=( HashMap2018Generic const& ) = delete;
   ~HashMap2018Generic();

   // The node of the key, or null.
   HashMap2018Node* lookupNodeG( void const* key ) const;
   // Takes over a node whose key is not in the map.
   void newMemberG( HashMap2018Node* node, void const* key );
   // Takes the node out and deletes it; iterators that stand on it move on first.
   void deleteMemberG( HashMap2018Node* node );
   // Deletes all members; the version goes up once.
   void _memberDelAll();
   // Deletes all nodes; with `freeBuckets` the table too.
   void emptyAllBuckets( HashMap2018VTable const* vtable, bool freeBuckets );

   std::uint32_t members() const { return members_; }
   // Goes up with every member that comes or goes.
   std::uint32_t version() const { return version_; }
   HashMap2018Node* first() const { return first_; }

 private:
   friend class HashMap2018IteratorGeneric;

   void grow();
   void link( HashMap2018Node* node );
   void unlink( HashMap2018Node* node );
   std::size_t slot( std::size_t hash ) const { return hash & ( bucketCount_ - 1 ); }

   HashMap2018VTable const* vtable_;
   HashMap2018Node** buckets_ = nullptr;
   std::size_t bucketCount_ = 0; // a power of two, or 0 before the first member
   HashMap2018Node* first_ = nullptr;
   HashMap2018Node* last_ = nullptr;
   HashMap2018IteratorGeneric* iterators_ = nullptr; // all that stand in this map
   mutable HashMap2018Node* lastFound_ = nullptr; // who asks whether a key is there reads it next
   std::uint32_t members_ = 0;
   std::uint32_t version_ = 0;
   std::uint32_t firstBuckets_;
   bool keepBuckets_;
};

// Stands on a member or at the end. It is known to its map, which moves it on when its member goes
// and ends it when the map goes.
class KEL_API HashMap2018IteratorGeneric {
 public:
   explicit HashMap2018IteratorGeneric( HashMap2018Generic const& map );
   HashMap2018IteratorGeneric( HashMap2018IteratorGeneric const& other );
   HashMap2018IteratorGeneric& operator=( HashMap2018IteratorGeneric const& ) = delete;
   ~HashMap2018IteratorGeneric();

   void advance();
   // The node at the position, null at the end. A node never goes while an iterator stands on it,
   // so both give the same.
   HashMap2018Node* currNodeNonStale() const { return node_; }
   HashMap2018Node* currNodeMaybeStale() const { return node_; }

 private:
   friend class HashMap2018Generic;

   void attach();
   void detach();

   HashMap2018Generic* map_;
   HashMap2018Node* node_;
   HashMap2018IteratorGeneric* nextOfMap_ = nullptr;
   HashMap2018IteratorGeneric* prevOfMap_ = nullptr;
};

// The operations of a typed node with the member function `key()`.
template< class Node, class Key >
struct HashMap2018VTable::Impl {
   static std::size_t hash( void const* key );
   static bool holdsKey( HashMap2018Node const* node, void const* key ) {
      return static_cast< Node const* >( node )->key() == *static_cast< Key const* >( key );
   }
   static void deleteNode( HashMap2018Node* node ) { delete static_cast< Node* >( node ); }
   static constexpr HashMap2018VTable vtable();
};

// The hash of a key: its own hash() if it has one, otherwise std::hash.
template< class Key >
std::size_t hashOfKey( Key const& key ) {
   if constexpr( requires { key.hash(); } ) {
      return static_cast< std::size_t >( key.hash() );
   } else {
      return std::hash< Key >()( key );
   }
}

template< class Node, class Key >
std::size_t HashMap2018VTable::Impl< Node, Key >::hash( void const* key ) {
   return hashOfKey( *static_cast< Key const* >( key ) );
}

template< class Node, class Key >
constexpr HashMap2018VTable HashMap2018VTable::Impl< Node, Key >::vtable() {
   return { hash, holdsKey, deleteNode };
}

} // namespace Kel
