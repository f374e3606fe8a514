// The containers behind ordered collection attributes: queue, stack, vector and arrays.
// Notifications of the first three carry no key. Activity lock.
#pragma once

#include <algorithm>
#include <deque>

#include <kel/Collections.h>

namespace Kel {

[[noreturn]] KEL_API void throwEmptyCollection();
[[noreturn]] KEL_API void throwNoPosition( U32 position );

// A queue takes at its back and gives from its front; a stack's front is its top, where it takes
// and gives. A member's key is its number in order of arrival, which stays as others go; numbering
// starts again at 0 in an empty collection, and a stack goes on behind its top.
template< class T, bool isStack >
class QueueOrStack : public CollectionBase {
   struct Entry {
      U32 key;
      T member;

      friend bool operator==( Entry const& a, Entry const& b ) { return a.member == b.member; }
   };

 public:
   using Key = U32;
   using Member = T;
   static constexpr std::uint32_t attrFlags =
      attrBit( isStack ? AttrFlag::isStackCollection : AttrFlag::isQueueCollection );

   // Goes from front to back. It keeps the number of its member, so any other may come or go.
   class Iterator {
    public:
      explicit Iterator( QueueOrStack const& collection )
         : collection_( collection.entries_.empty() ? nullptr : &collection ),
           key_( collection_ ? collection.frontEntry().key : 0 ) {}
      explicit operator bool() const { return entry(); }
      Iterator& operator++() {
         if( auto* at = entry() ) {
            auto* next = collection_->behind( at->key );
            next ? void( key_ = next->key ) : void( collection_ = nullptr );
         }
         return *this;
      }
      Key key() const { return entry()->key; }
      Member const& member() const { return entry()->member; }

    private:
      // Found once at its end, the iterator stays there.
      Entry const* entry() const {
         auto* entry = collection_ ? collection_->atOrBehind( key_ ) : nullptr;
         if( !entry ) {
            collection_ = nullptr;
         }
         return entry;
      }

      mutable QueueOrStack const* collection_;
      U32 key_;
   };

   using CollectionBase::CollectionBase;

   void add( T const& member ) {
      U32 key = entries_.empty() ? 0 : entries_.back().key + 1;
      entries_.push_back( { key, member } );
      ++version_;
      changed();
   }
   T remove() {
      requireMember();
      T member = frontEntry().member;
      isStack ? entries_.pop_back() : entries_.pop_front();
      ++version_;
      changed();
      return member;
   }
   T const& front() const {
      requireMember();
      return frontEntry().member;
   }
   T const& back() const {
      requireMember();
      return isStack ? entries_.front().member : entries_.back().member;
   }
   bool exist( U32 key ) const { return find( key ); }
   T const* find( U32 key ) const {
      auto at = lowerBound( key );
      return at != entries_.end() && at->key == key ? &at->member : nullptr;
   }
   // Gives a member another value; throws RangeException if there is none of that key.
   void set( U32 key, T const& member ) {
      if( auto* at = const_cast< T* >( find( key ) ) ) {
         *at = member;
         ++version_;
         changed();
      } else {
         throwNoPosition( key );
      }
   }
   bool del( U32 key ) {
      auto at = lowerBound( key );
      if( at == entries_.end() || at->key != key ) {
         return false;
      }
      entries_.erase( at );
      ++version_;
      changed();
      return true;
   }
   std::uint32_t members() const { return static_cast< std::uint32_t >( entries_.size() ); }
   std::uint32_t version() const { return version_; }
   Iterator iterator() const { return Iterator( *this ); }

   friend bool operator==( QueueOrStack const& a, QueueOrStack const& b ) {
      return a.entries_ == b.entries_;
   }

 private:
   void requireMember() const {
      if( entries_.empty() ) {
         throwEmptyCollection();
      }
   }
   Entry const& frontEntry() const { return isStack ? entries_.back() : entries_.front(); }
   // Numbers are compared by their distance from the first, so they may pass the end of 32 bits;
   // one ahead of the first is farther than any, and the end stands for it.
   auto lowerBound( U32 key ) const {
      U32 base = entries_.empty() ? 0 : entries_.front().key;
      return std::lower_bound( entries_.begin(), entries_.end(), key - base,
         [base]( Entry const& entry, U32 distance ) { return entry.key - base < distance; } );
   }
   // The member of that key or the next one towards the back; null if there is none.
   Entry const* atOrBehind( U32 key ) const {
      auto at = lowerBound( key );
      if( !isStack ) {
         return at == entries_.end() ? frontOrNull( key ) : &*at;
      }
      if( at != entries_.end() && at->key == key ) {
         return &*at;
      }
      return at == entries_.begin() || isBefore( key ) ? nullptr : &*( at - 1 );
   }
   // True if the key's member stood before the first that is left.
   bool isBefore( U32 key ) const {
      return !entries_.empty() && static_cast< S32 >( key - entries_.front().key ) < 0;
   }
   Entry const* frontOrNull( U32 key ) const {
      return isBefore( key ) ? &entries_.front() : nullptr;
   }
   Entry const* behind( U32 key ) const {
      auto at = lowerBound( key );
      if( isStack ) {
         return at == entries_.begin() ? nullptr : &*( at - 1 );
      }
      ++at;
      return at == entries_.end() ? nullptr : &*at;
   }

   std::deque< Entry > entries_;
   std::uint32_t version_ = 0;
};

template< class T >
using Queue = QueueOrStack< T, false >;
template< class T >
using Stack = QueueOrStack< T, true >;

// Positions from 0 without gaps. Shared by vector and arrays; Derived says what a write does.
template< class T >
class PositionIterator {
 public:
   explicit PositionIterator( std::vector< T > const& members )
      : members_( members.empty() ? nullptr : &members ) {}
   // Found once at its end, the iterator stays there.
   explicit operator bool() const {
      if( members_ && position_ >= members_->size() ) {
         members_ = nullptr;
      }
      return members_;
   }
   PositionIterator& operator++() {
      ++position_;
      static_cast< void >( static_cast< bool >( *this ) );
      return *this;
   }
   U32 key() const { return position_; }
   T member() const { return ( *members_ )[position_]; }

 private:
   mutable std::vector< T > const* members_;
   U32 position_ = 0;
};

template< class T >
class Positions : public CollectionBase {
 public:
   using Key = U32;
   using Member = T;
   using Iterator = PositionIterator< T >;

   using CollectionBase::CollectionBase;

   bool exist( U32 position ) const { return position < members_.size(); }
   std::optional< T > find( U32 position ) const {
      return exist( position ) ? std::optional< T >( T( members_[position] ) ) : std::nullopt;
   }
   std::uint32_t members() const { return static_cast< std::uint32_t >( members_.size() ); }
   std::uint32_t version() const { return version_; }
   Iterator iterator() const { return Iterator( members_ ); }

   friend bool operator==( Positions const& a, Positions const& b ) {
      return a.members_ == b.members_;
   }

 protected:
   void requirePosition( U32 position ) const {
      if( !exist( position ) ) {
         throwNoPosition( position );
      }
   }

   std::vector< T > members_;
   std::uint32_t version_ = 0;
};

// Adds and takes at its back.
template< class T >
class Vector : public Positions< T > {
   using Base = Positions< T >;

 public:
   static constexpr std::uint32_t attrFlags = attrBit( AttrFlag::constantForm );
   using Base::Base;

   void add( T const& member ) {
      this->members_.push_back( member );
      touch();
   }
   T remove() {
      T member = back();
      this->members_.pop_back();
      touch();
      return member;
   }
   T front() const { return at( 0 ); }
   T back() const { return at( this->members_.size() - 1 ); }
   void set( U32 position, T const& member ) {
      this->requirePosition( position );
      this->members_[position] = member;
      touch();
   }
   // Members behind move up.
   bool del( U32 position ) {
      if( !this->exist( position ) ) {
         return false;
      }
      this->members_.erase( this->members_.begin() + position );
      touch();
      return true;
   }

 private:
   T at( std::size_t position ) const {
      if( this->members_.empty() ) {
         throwEmptyCollection();
      }
      return this->members_[position];
   }
   void touch() {
      ++this->version_;
      this->changed();
   }
};

// Grows to the highest position written, up to maxMembers; a delete resets a member.
template< class T >
class DynArray : public Positions< T > {
   using Base = Positions< T >;

 public:
   static constexpr std::uint32_t attrFlags = attrBit( AttrFlag::isDynArray );
   static constexpr U32 maxMembers = 1u << 24;

   explicit DynArray(
      U32 members = 0, PtrInterface const* owner = nullptr, AttributeId attribute = 0 )
      : Base( owner, attribute ) {
      this->members_.resize( members );
   }
   void set( U32 position, T const& member ) {
      if( position >= maxMembers ) {
         throwNoPosition( position );
      }
      if( position >= this->members_.size() ) {
         this->members_.resize( position + 1 );
      }
      this->members_[position] = member;
      ++this->version_;
      this->changed( position );
   }
   bool del( U32 position ) {
      if( !this->exist( position ) ) {
         return false;
      }
      set( position, T() );
      return true;
   }
};

// A fixed number of members of a plain type.
template< class T, U32 size >
class PodArray : public Positions< T > {
   using Base = Positions< T >;

 public:
   static constexpr std::uint32_t attrFlags = attrBit( AttrFlag::isPodArray );

   PodArray( PtrInterface const* owner = nullptr, AttributeId attribute = 0 )
      : Base( owner, attribute ) {
      this->members_.resize( size );
   }
   void set( U32 position, T const& member ) {
      this->requirePosition( position );
      this->members_[position] = member;
      ++this->version_;
      this->changed( position );
   }
   bool del( U32 position ) {
      this->requirePosition( position );
      set( position, T() );
      return true;
   }
};

// An array that keeps only the members that were written.
template< class T >
class PackedArray : public Map< U32, T > {
 public:
   static constexpr std::uint32_t attrFlags =
      attrBit( AttrFlag::isDynArray ) | attrBit( AttrFlag::hasPackedRep );
   using Map< U32, T >::Map;
};

} // namespace Kel
