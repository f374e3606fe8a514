#include <kel/HashMap2018.h>

#include <cstdlib>
#include <cstring>

#include <kel/Assert.h>
#include <kel/Exception.h>

namespace Kel {

namespace {

// Spreads what a weak hash leaves in the low bits.
std::size_t mix( std::size_t hash ) {
   hash *= 0x9e3779b97f4a7c15u;
   return hash ^ hash >> 32;
}

HashMap2018Node** newBuckets( std::size_t count ) {
   auto** buckets =
      static_cast< HashMap2018Node** >( std::calloc( count, sizeof( HashMap2018Node* ) ) );
   if( !buckets ) {
      throw MemoryException( "no memory for the buckets of a collection" );
   }
   return buckets;
}

std::size_t powerOfTwo( std::size_t least ) {
   std::size_t count = 8;
   while( count < least ) {
      count *= 2;
   }
   return count;
}

} // namespace

HashMap2018Generic::HashMap2018Generic(
   HashMap2018VTable const* vtable, TypeSafeIndex< unsigned int, 355 > buckets, bool keepBuckets )
   : vtable_( vtable ), firstBuckets_( buckets.value() ), keepBuckets_( keepBuckets ) {}

HashMap2018Generic::~HashMap2018Generic() {
   emptyAllBuckets( vtable_, true );
   while( iterators_ ) {
      iterators_->detach();
   }
}

HashMap2018Node* HashMap2018Generic::lookupNodeG( void const* key ) const {
   if( !members_ ) {
      return nullptr;
   }
   if( lastFound_ && vtable_->holdsKey( lastFound_, key ) ) {
      return lastFound_;
   }
   std::size_t hash = mix( vtable_->hash( key ) );
   for( auto* node = buckets_[slot( hash )]; node; node = node->bucketNext ) {
      if( node->hash == hash && vtable_->holdsKey( node, key ) ) {
         return lastFound_ = node;
      }
   }
   return nullptr;
}

void HashMap2018Generic::newMemberG( HashMap2018Node* node, void const* key ) {
   if( members_ >= bucketCount_ ) {
      grow();
   }
   node->hash = mix( vtable_->hash( key ) );
   link( node );
   node->prev = last_;
   node->next = nullptr;
   ( last_ ? last_->next : first_ ) = node;
   last_ = node;
   ++members_;
   ++version_;
}

void HashMap2018Generic::deleteMemberG( HashMap2018Node* node ) {
   for( auto* it = iterators_; it; it = it->nextOfMap_ ) {
      if( it->node_ == node ) {
         it->node_ = node->next;
      }
   }
   if( lastFound_ == node ) {
      lastFound_ = nullptr;
   }
   unlink( node );
   ( node->prev ? node->prev->next : first_ ) = node->next;
   ( node->next ? node->next->prev : last_ ) = node->prev;
   --members_;
   ++version_;
   // Last, since the end of a member may come back to this map.
   vtable_->deleteNode( node );
}

void HashMap2018Generic::_memberDelAll() {
   if( members_ ) {
      emptyAllBuckets( vtable_, !keepBuckets_ );
      ++version_;
   }
}

void HashMap2018Generic::emptyAllBuckets( HashMap2018VTable const* vtable, bool freeBuckets ) {
   for( auto* it = iterators_; it; it = it->nextOfMap_ ) {
      it->node_ = nullptr;
   }
   auto* node = first_;
   first_ = last_ = lastFound_ = nullptr;
   members_ = 0;
   if( freeBuckets ) {
      std::free( buckets_ );
      buckets_ = nullptr;
      bucketCount_ = 0;
   } else if( buckets_ ) {
      std::memset( buckets_, 0, bucketCount_ * sizeof( *buckets_ ) );
   }
   while( node ) {
      auto* next = node->next;
      vtable->deleteNode( node );
      node = next;
   }
}

void HashMap2018Generic::grow() {
   std::size_t count = bucketCount_ ? bucketCount_ * 2 : powerOfTwo( firstBuckets_ );
   auto** buckets = newBuckets( count );
   std::free( buckets_ );
   buckets_ = buckets;
   bucketCount_ = count;
   for( auto* node = first_; node; node = node->next ) {
      link( node );
   }
}

void HashMap2018Generic::link( HashMap2018Node* node ) {
   auto*& bucket = buckets_[slot( node->hash )];
   node->bucketNext = bucket;
   bucket = node;
}

void HashMap2018Generic::unlink( HashMap2018Node* node ) {
   auto** at = &buckets_[slot( node->hash )];
   while( *at != node ) {
      KEL_ASSERT( *at );
      at = &( *at )->bucketNext;
   }
   *at = node->bucketNext;
}

HashMap2018IteratorGeneric::HashMap2018IteratorGeneric( HashMap2018Generic const& map )
   : map_( const_cast< HashMap2018Generic* >( &map ) ), node_( map.first_ ) {
   attach();
}

HashMap2018IteratorGeneric::HashMap2018IteratorGeneric( HashMap2018IteratorGeneric const& other )
   : map_( other.map_ ), node_( other.node_ ) {
   if( map_ ) {
      attach();
   }
}

HashMap2018IteratorGeneric::~HashMap2018IteratorGeneric() {
   if( map_ ) {
      detach();
   }
}

void HashMap2018IteratorGeneric::advance() {
   if( node_ ) {
      node_ = node_->next;
   }
}

void HashMap2018IteratorGeneric::attach() {
   nextOfMap_ = map_->iterators_;
   if( nextOfMap_ ) {
      nextOfMap_->prevOfMap_ = this;
   }
   map_->iterators_ = this;
}

void HashMap2018IteratorGeneric::detach() {
   ( prevOfMap_ ? prevOfMap_->nextOfMap_ : map_->iterators_ ) = nextOfMap_;
   if( nextOfMap_ ) {
      nextOfMap_->prevOfMap_ = prevOfMap_;
   }
   map_ = nullptr;
   node_ = nullptr;
   nextOfMap_ = prevOfMap_ = nullptr;
}

} // namespace Kel
