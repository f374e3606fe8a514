// A captured native stack, immutable and counted, and the hook by which a crash report shows more
// than the native stack. No lock.
#pragma once

#include <cstdint>

#include <kel/Export.h>
#include <kel/Ptr.h>

// Called with a descriptor, at the end of each crash report, on the thread that crashes, in signal
// context. Called once more, from within, if it faults or does not return for a second. Null at
// first; whoever sets it keeps it callable to the end of the process.
KEL_API extern void ( *printBacktraceFn )( int fd );

namespace Kel {

class KEL_API Backtrace {
 public:
   // The stack of the caller, innermost first, the caller's own frame included and no frame of the
   // capture; at most 64 frames. Throws MemoryException.
   static Ptr< Backtrace const > capture();

   // Over given return addresses, which are copied. Throws MemoryException.
   static Ptr< Backtrace const > fromAddresses( void* const* addresses, unsigned frames );

   Backtrace( Backtrace const& ) = delete;
   Backtrace& operator=( Backtrace const& ) = delete;

   unsigned frames() const noexcept { return frames_; }
   // `frames()` return addresses, valid as long as this object; for the C library's
   // backtrace_symbols.
   void* const* addresses() const noexcept { return addresses_; }

   std::uint32_t& kelReferenceWord() const noexcept { return references_; }
   void handleZeroRef() const noexcept;

 private:
   explicit Backtrace( unsigned frames ) noexcept;
   ~Backtrace() = default;

   mutable std::uint32_t references_ = 0;
   unsigned frames_;
   void** addresses_; // behind this object, in the same block
};

} // namespace Kel
