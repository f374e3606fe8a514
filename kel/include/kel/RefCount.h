// The one switch between plain and atomic reference counts, and the two steps on a count word.
// No lock: a word that several threads count at once needs the switch on before they start.
#pragma once

#include <atomic>
#include <cstdint>

#include <kel/Export.h>

namespace Kel {

class KEL_API VFPtrInterface {
 public:
   // Whether reference counts are atomic. Read at every step of every count.
   static bool threadSafePointers() {
      return threadSafePointers_.load( std::memory_order_relaxed );
   }

   // Turn it on before the second thread touches counted objects. Never throws.
   static void threadSafePointersIs( bool on ) {
      threadSafePointers_.store( on, std::memory_order_relaxed );
   }

   static void refIncrement( std::uint32_t& word ) {
      if( threadSafePointers() ) {
         __atomic_add_fetch( &word, 1U, __ATOMIC_SEQ_CST );
      } else {
         ++word;
      }
   }

   // Returns the new word; the caller applies its own mask before it tests for zero.
   static std::uint32_t refDecrement( std::uint32_t& word ) {
      if( threadSafePointers() ) {
         return __atomic_sub_fetch( &word, 1U, __ATOMIC_SEQ_CST );
      }
      return --word;
   }

   static std::atomic< bool > threadSafePointers_;
};

} // namespace Kel
