#include <kel/AllocTrack.h>

#include <kel/Exception.h>

namespace Kel {

namespace {

constinit std::atomic< AllocTrackTypeInfo* > newestInfo{ nullptr };

} // namespace

// Two threads may meet at a type's first allocation: the record that reaches the slot stays.
AllocTrackTypeInfo* AllocTrackTypeInfo::recordFor( AllocTrackTypeInfo** slot,
   std::type_info const& type, std::size_t size, std::size_t alignment ) {
   AllocTrackTypeInfo* info = __atomic_load_n( slot, __ATOMIC_ACQUIRE );
   if( info ) {
      return info;
   }
   auto* made = new AllocTrackTypeInfo( type, size, alignment );
   if( !__atomic_compare_exchange_n(
          slot, &info, made, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE ) ) {
      delete made;
      return info;
   }
   made->next_ = newestInfo.load( std::memory_order_relaxed );
   while( !newestInfo.compare_exchange_weak(
      made->next_, made, std::memory_order_release, std::memory_order_relaxed ) ) {
   }
   return made;
}

void AllocTrackTypeInfo::trackArrayAllocation( AllocTrackTypeInfo** slot,
   std::type_info const& type, std::size_t size, std::size_t alignment, std::size_t count ) {
   recordFor( slot, type, size, alignment )->live_.fetch_add( count, std::memory_order_relaxed );
}

void AllocTrackTypeInfo::trackArrayDeallocation(
   AllocTrackTypeInfo* info, std::size_t count ) noexcept {
   info->live_.fetch_sub( count, std::memory_order_relaxed );
}

std::vector< AllocTrackTypeInfo const* > AllocTrackTypeInfo::all() {
   std::vector< AllocTrackTypeInfo const* > infos;
   AllocTrackTypeInfo const* info = newestInfo.load( std::memory_order_acquire );
   for( ; info; info = info->next_ ) {
      infos.push_back( info );
   }
   return infos;
}

void allocTrackAllocatorBadAlloc() {
   throwOutOfMemory();
}

} // namespace Kel
