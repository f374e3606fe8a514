// Counts of live objects and their bytes, one record a type. No lock: counters are atomic, records
// are made at a type's first allocation and stay to the end of the process.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <typeinfo>
#include <vector>

#include <kel/Export.h>
#include <kel/String.h>

namespace Kel {

class KEL_API AllocTrackTypeInfo {
 public:
   // Reports an allocation before it is made. `*slot` is the static of the class, null until the
   // first call, and the record afterwards. Throws std::bad_alloc if a first record finds no
   // memory.
   static void _trackAllocation( AllocTrackTypeInfo** slot, std::type_info const& type,
      std::size_t size, std::size_t alignment ) {
      trackArrayAllocation( slot, type, size, alignment, 1 );
   }
   // Reports that an object went, or that the reported allocation failed.
   static void trackDeallocation( AllocTrackTypeInfo* info ) noexcept {
      trackArrayDeallocation( info, 1 );
   }

   // The same for `count` objects of that size each.
   static void trackArrayAllocation( AllocTrackTypeInfo** slot, std::type_info const& type,
      std::size_t size, std::size_t alignment, std::size_t count );
   static void trackArrayDeallocation( AllocTrackTypeInfo* info, std::size_t count ) noexcept;

   AllocTrackTypeInfo( AllocTrackTypeInfo const& ) = delete;
   AllocTrackTypeInfo& operator=( AllocTrackTypeInfo const& ) = delete;

   // The C++ name of the type.
   String name() const { return demangle( type_ ); }
   std::size_t size() const noexcept { return size_; }
   std::size_t alignment() const noexcept { return alignment_; }
   std::uint64_t live() const noexcept { return live_.load( std::memory_order_relaxed ); }
   std::uint64_t bytes() const noexcept { return live() * size_; }

   // All records there are, the newest first; the pointers stay valid.
   static std::vector< AllocTrackTypeInfo const* > all();

 private:
   AllocTrackTypeInfo( std::type_info const& type, std::size_t size, std::size_t alignment )
      : type_( type ), size_( size ), alignment_( alignment ) {}
   ~AllocTrackTypeInfo() = default;

   static AllocTrackTypeInfo* recordFor( AllocTrackTypeInfo** slot, std::type_info const& type,
      std::size_t size, std::size_t alignment );

   std::type_info const& type_;
   std::size_t const size_;
   std::size_t const alignment_;
   std::atomic< std::uint64_t > live_{ 0 };
   AllocTrackTypeInfo* next_ = nullptr;
};

// What an allocator throws when there is no memory: MemoryException.
[[noreturn]] KEL_API void allocTrackAllocatorBadAlloc();

} // namespace Kel
