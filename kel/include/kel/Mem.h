// Memory for small counted objects and strings: free lists of each thread's own, so no lock is
// taken and any thread may free what another one allocated.
#pragma once

#include <cstddef>

#include <kel/Export.h>

#if defined( __SANITIZE_ADDRESS__ ) || defined( __SANITIZE_THREAD__ )
#define KEL_SANITIZED 1
#elif defined( __has_feature ) && !defined( KEL_SANITIZED )
#if __has_feature( address_sanitizer ) || __has_feature( thread_sanitizer ) ||                     \
   __has_feature( memory_sanitizer )
#define KEL_SANITIZED 1
#endif
#endif

namespace Kel {

namespace Impl {

// The blocks of a class are as large as the C library's are anyway: 24 bytes, 40, 56 and so on.
constexpr std::size_t memClassBytes = 16;
constexpr std::size_t memMaxBytes = 248;
constexpr std::size_t memClassOf( std::size_t size ) {
   return ( size + memClassBytes / 2 - 1 ) / memClassBytes;
}
constexpr std::size_t memClasses = memClassOf( memMaxBytes ) + 1;

struct MemBlock {
   MemBlock* next;
};

// One size class of one thread. `room` is how many more blocks the list takes: 0 at first, until
// the slow path has arranged for the release at the thread's end, and 0 for good after it.
struct MemList {
   MemBlock* head;
   std::size_t room;
};

struct MemCache {
   MemList lists[memClasses];
};

// Constant-initialised and in the static part of thread storage, so that reading it is one
// instruction without a wrapper call.
KEL_API extern constinit thread_local MemCache memCache
   __attribute__( ( tls_model( "initial-exec" ) ) );

KEL_API void* memAllocSlow( std::size_t size );
KEL_API void memFreeSlow( void* block, std::size_t size ) noexcept;

inline MemList& memList( std::size_t size ) {
   return memCache.lists[memClassOf( size )];
}

} // namespace Impl

// Never null; aligned to 16 bytes. Throws Kel::MemoryException when there is no memory. Not for use
// in a signal handler.
[[nodiscard]] inline void* memAlloc( std::size_t size ) {
#ifndef KEL_SANITIZED
   if( size <= Impl::memMaxBytes ) {
      Impl::MemList& list = Impl::memList( size );
      if( Impl::MemBlock* block = list.head ) {
         list.head = block->next;
         ++list.room;
         return block;
      }
   }
#endif
   return Impl::memAllocSlow( size );
}

// Gives back what memAlloc or memRealloc gave; `size` is the size asked for there. Null is allowed.
inline void memFree( void* memory, std::size_t size ) noexcept {
#ifndef KEL_SANITIZED
   if( memory && size <= Impl::memMaxBytes ) {
      Impl::MemList& list = Impl::memList( size );
      if( list.room != 0 ) {
         auto* block = static_cast< Impl::MemBlock* >( memory );
         block->next = list.head;
         list.head = block;
         --list.room;
         return;
      }
   }
#endif
   Impl::memFreeSlow( memory, size );
}

// The block grown or shrunk, perhaps at another address, with its bytes up to the lesser size. On
// Kel::MemoryException the old block stays as it was.
[[nodiscard]] KEL_API void* memRealloc( void* memory, std::size_t oldSize, std::size_t newSize );

} // namespace Kel
