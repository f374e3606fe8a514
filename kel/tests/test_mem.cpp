#include <gtest/gtest.h>

#include <malloc.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <set>
#include <thread>
#include <vector>

#include <kel/Exception.h>
#include <kel/Mem.h>

namespace Kel {

namespace {

TEST( Mem, givesDistinctAlignedBlocksOfEverySize ) {
   for( std::size_t size = 0; size <= 600; ++size ) {
      void* a = memAlloc( size );
      void* b = memAlloc( size );
      ASSERT_NE( a, b );
      ASSERT_EQ( reinterpret_cast< std::uintptr_t >( a ) % 16, 0U );
      std::memset( a, 1, size );
      std::memset( b, 2, size );
      memFree( a, size );
      memFree( b, size );
   }
}

#ifndef KEL_SANITIZED
TEST( Mem, reusesABlockForAnySizeOfItsClass ) {
   memFree( memAlloc( 20 ), 20 ); // opens the thread's lists
   void* block = memAlloc( 25 );
   memFree( block, 25 );
   void* again = memAlloc( 40 );
   EXPECT_EQ( again, block );
   memFree( again, 40 );
}

TEST( Mem, takesBlocksThatTheCLibraryDoesNotPad ) {
   for( std::size_t size : { 1, 24, 25, 40, 41, 56, 200, 248 } ) {
      void* block = memAlloc( size );
      EXPECT_GE( malloc_usable_size( block ), size );
      EXPECT_LT( malloc_usable_size( block ), std::max( size, std::size_t{ 24 } ) + 16 ) << size;
      memFree( block, size );
   }
}

TEST( Mem, keepsAFreedBlockFromTheCLibrary ) {
   memFree( memAlloc( 32 ), 32 );
   void* block = memAlloc( 32 );
   memFree( block, 32 );
   void* others = std::malloc( 32 );
   EXPECT_NE( others, block );
   std::free( others );
}
#endif

TEST( Mem, takesMoreBlocksThanItsListsHold ) {
   std::set< void* > blocks;
   for( int i = 0; i < 2000; ++i ) {
      blocks.insert( memAlloc( 40 ) );
   }
   EXPECT_EQ( blocks.size(), 2000U );
   for( void* block : blocks ) {
      memFree( block, 40 );
   }
   std::set< void* > again;
   for( int i = 0; i < 2000; ++i ) {
      again.insert( memAlloc( 40 ) );
   }
   EXPECT_EQ( again.size(), 2000U );
   for( void* block : again ) {
      memFree( block, 40 );
   }
}

TEST( Mem, allowsAFreeOnAnotherThread ) {
   std::vector< void* > blocks;
   std::thread( [&blocks] {
      for( std::size_t i = 0; i < 500; ++i ) {
         blocks.push_back( memAlloc( 48 ) );
      }
   } ).join();
   std::thread( [&blocks] {
      for( void* block : blocks ) {
         memFree( block, 48 );
      }
   } ).join();
}

TEST( Mem, allowsAFreeInADestructorAtTheThreadsEnd ) {
   struct Late {
      void* block = memAlloc( 24 );
      ~Late() { memFree( block, 24 ); }
   };
   std::thread( [] {
      thread_local Late late; // made before the lists are opened, so it goes after them
      ASSERT_NE( late.block, nullptr );
      memFree( memAlloc( 24 ), 24 );
   } ).join();
}

TEST( Mem, makesABlockOfNone ) {
   for( std::size_t const size : { 1u, 64u, 100'000u } ) {
      void* const block = memRealloc( nullptr, 0, size );
      ASSERT_NE( block, nullptr );
      std::memset( block, 1, size );
      memFree( block, size );
   }
   // As if the size that there was had not been forgotten.
   void* const block = memRealloc( nullptr, 64, 64 );
   EXPECT_NE( block, nullptr );
   memFree( block, 64 );
}

TEST( Mem, ignoresANullPointer ) {
   memFree( nullptr, 16 );
   memFree( nullptr, 1000 );
}

#ifndef KEL_SANITIZED // they end the process on such a size
TEST( Mem, throwsWhenThereIsNoMemory ) {
   std::size_t const tooMuch = std::numeric_limits< std::size_t >::max() / 2;
   EXPECT_THROW( static_cast< void >( memAlloc( tooMuch ) ), MemoryException );
   void* block = memAlloc( 1000 );
   std::memset( block, 7, 1000 );
   EXPECT_THROW( static_cast< void >( memRealloc( block, 1000, tooMuch ) ), MemoryException );
   EXPECT_EQ( static_cast< char* >( block )[999], 7 );
   memFree( block, 1000 );
}
#endif

TEST( Mem, keepsTheBytesWhenABlockGrowsOrShrinks ) {
   std::size_t size = 1;
   auto* block = static_cast< unsigned char* >( memAlloc( size ) );
   block[0] = 0;
   for( std::size_t const next : { 10U, 16U, 17U, 250U, 256U, 257U, 5000U, 300U, 100U, 3U } ) {
      block = static_cast< unsigned char* >( memRealloc( block, size, next ) );
      for( std::size_t i = 0; i < std::min( size, next ); ++i ) {
         ASSERT_EQ( block[i], i % 251 );
      }
      for( std::size_t i = size; i < next; ++i ) {
         block[i] = static_cast< unsigned char >( i % 251 );
      }
      size = next;
   }
   memFree( block, size );
}

} // namespace

} // namespace Kel
