#include <kel/Mem.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <kel/Exception.h>

namespace Kel {

namespace Impl {

constinit thread_local MemCache memCache{};

namespace {

constexpr std::size_t blocksPerList = 256;

// Ends the lists with the thread. Later frees, from other destructors of the thread, find no room
// and go to the C library.
struct MemCacheRelease {
   ~MemCacheRelease() {
      closed = true;
      for( MemList& list : memCache.lists ) {
         list.room = 0;
         while( MemBlock* block = list.head ) {
            list.head = block->next;
            std::free( block );
         }
      }
   }

   void open() {
      if( !opened ) {
         opened = true;
         for( MemList& list : memCache.lists ) {
            list.room = blocksPerList;
         }
      }
   }

   bool opened = false;
   static constinit thread_local bool closed;
};

constinit thread_local bool MemCacheRelease::closed = false;
thread_local MemCacheRelease memCacheRelease;

// Whole classes, so that a block fits every size of its class. The sanitizers see exact sizes.
std::size_t allocatedBytes( std::size_t size ) {
#ifdef KEL_SANITIZED
   return std::max( size, std::size_t{ 1 } );
#endif
   if( size > memMaxBytes ) {
      return size;
   }
   return std::max( memClassOf( size ), std::size_t{ 1 } ) * memClassBytes + memClassBytes / 2;
}

} // namespace

void* memAllocSlow( std::size_t size ) {
   void* memory = std::malloc( allocatedBytes( size ) );
   if( !memory ) {
      throwOutOfMemory();
   }
   return memory;
}

void memFreeSlow( void* memory, std::size_t size ) noexcept {
#ifndef KEL_SANITIZED
   if( size <= memMaxBytes && !MemCacheRelease::closed ) {
      memCacheRelease.open();
   }
#else
   static_cast< void >( size );
#endif
   std::free( memory );
}

} // namespace Impl

void* memRealloc( void* memory, std::size_t oldSize, std::size_t newSize ) {
   using namespace Impl;
   if( memory && oldSize > memMaxBytes && newSize > memMaxBytes ) {
      void* moved = std::realloc( memory, newSize );
      if( !moved ) {
         throwOutOfMemory();
      }
      return moved;
   }
#ifndef KEL_SANITIZED
   if( memory && allocatedBytes( oldSize ) == allocatedBytes( newSize ) ) {
      return memory;
   }
#endif
   void* moved = memAlloc( newSize );
   if( memory ) {
      std::memcpy( moved, memory, std::min( oldSize, newSize ) );
      memFree( memory, oldSize );
   }
   return moved;
}

} // namespace Kel
