#include <gtest/gtest.h>

#include <algorithm>
#include <thread>
#include <vector>

#include <kel/AllocTrack.h>
#include <kel/AllocationTracker.h>
#include <kel/Exception.h>
#include <kel/Lock.h>

namespace Kel {

namespace {

struct alignas( 32 ) Tracked {
   char bytes[64];
};

class AllocTrack : public testing::Test {
 protected:
   void allocate() {
      AllocTrackTypeInfo::_trackAllocation(
         &slot, typeid( Tracked ), sizeof( Tracked ), alignof( Tracked ) );
   }
   void TearDown() override {
      if( slot ) {
         EXPECT_EQ( slot->live(), 0U );
      }
   }

   AllocTrackTypeInfo* slot = nullptr;
};

TEST_F( AllocTrack, isToldByTheTrackerAsOfItsLastUpdate ) {
   LockAnchor const lock( activityLock() );
   AllocTrackTypeInfo* other = nullptr; // a record of the same name, as from another library
   AllocTrackTypeInfo::_trackAllocation( &other, typeid( Tracked ), 64, 32 );
   auto tracker =
      dynamicPtrCast< AllocationTracker >( Entity::singleton( "Kel::AllocationTracker" ) );
   tracker->update();
   std::uint64_t const before =
      tracker->type().find( "Kel::(anonymous namespace)::Tracked" )->objects;
   allocate();
   allocate();
   EXPECT_EQ( tracker->type().find( "Kel::(anonymous namespace)::Tracked" )->objects, before );
   tracker->update();
   auto const* counted = tracker->type().find( "Kel::(anonymous namespace)::Tracked" );
   EXPECT_EQ( counted->objects, before + 2 );
   EXPECT_EQ( counted->bytes, counted->objects * 64 );
   AllocTrackTypeInfo::trackDeallocation( other );
   AllocTrackTypeInfo::trackDeallocation( slot );
   AllocTrackTypeInfo::trackDeallocation( slot );
}

TEST_F( AllocTrack, makesTheRecordAtTheFirstAllocationAndKeepsIt ) {
   allocate();
   ASSERT_NE( slot, nullptr );
   AllocTrackTypeInfo* const first = slot;
   EXPECT_EQ( first->name(), "Kel::(anonymous namespace)::Tracked" );
   EXPECT_EQ( first->size(), 64U );
   EXPECT_EQ( first->alignment(), 32U );
   allocate();
   EXPECT_EQ( slot, first );
   AllocTrackTypeInfo::trackDeallocation( slot );
   AllocTrackTypeInfo::trackDeallocation( slot );
}

TEST_F( AllocTrack, countsObjectsAndBytes ) {
   allocate();
   allocate();
   EXPECT_EQ( slot->live(), 2U );
   EXPECT_EQ( slot->bytes(), 128U );
   AllocTrackTypeInfo::trackDeallocation( slot );
   EXPECT_EQ( slot->live(), 1U );
   AllocTrackTypeInfo::trackDeallocation( slot );
   EXPECT_EQ( slot->bytes(), 0U );
}

TEST_F( AllocTrack, countsTheObjectsOfAnArray ) {
   AllocTrackTypeInfo::trackArrayAllocation(
      &slot, typeid( Tracked ), sizeof( Tracked ), alignof( Tracked ), 10 );
   EXPECT_EQ( slot->live(), 10U );
   AllocTrackTypeInfo::trackArrayDeallocation( slot, 10 );
}

TEST_F( AllocTrack, listsEveryRecordOnce ) {
   allocate();
   auto const all = AllocTrackTypeInfo::all();
   EXPECT_EQ( std::count( all.begin(), all.end(), slot ), 1 );
   AllocTrackTypeInfo::trackDeallocation( slot );
}

TEST_F( AllocTrack, countsTheFirstAllocationsOfSeveralThreads ) {
   std::vector< std::thread > threads;
   for( int i = 0; i < 8; ++i ) {
      threads.emplace_back( [this] {
         for( int round = 0; round < 1000; ++round ) {
            allocate();
         }
      } );
   }
   for( std::thread& thread : threads ) {
      thread.join();
   }
   EXPECT_EQ( slot->live(), 8000U );
   AllocTrackTypeInfo::trackArrayDeallocation( slot, 8000 );
}

TEST( AllocTrackAllocator, failsWithAMemoryException ) {
   EXPECT_THROW( allocTrackAllocatorBadAlloc(), MemoryException );
}

} // namespace

} // namespace Kel
