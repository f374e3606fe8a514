#include <kel/Backtrace.h>

#include <execinfo.h>

#include <algorithm>
#include <new>

#include <kel/Mem.h>

void ( *printBacktraceFn )( int fd ) = nullptr;

namespace Kel {

namespace {

constexpr int maxFrames = 64;

std::size_t blockBytes( unsigned frames ) {
   return sizeof( Backtrace ) + frames * sizeof( void* );
}

} // namespace

Backtrace::Backtrace( unsigned frames ) noexcept
   : frames_( frames ), addresses_( reinterpret_cast< void** >( this + 1 ) ) {}

[[gnu::noinline]] Ptr< Backtrace const > Backtrace::capture() {
   void* addresses[maxFrames + 1];
   int const found = ::backtrace( addresses, maxFrames + 1 );
   int const own = found > 0 ? 1 : 0;
   return fromAddresses( addresses + own, static_cast< unsigned >( found - own ) );
}

Ptr< Backtrace const > Backtrace::fromAddresses( void* const* addresses, unsigned frames ) {
   auto* backtrace = new( memAlloc( blockBytes( frames ) ) ) Backtrace( frames );
   std::copy_n( addresses, frames, backtrace->addresses_ );
   return Ptr< Backtrace const >( backtrace );
}

void Backtrace::handleZeroRef() const noexcept {
   memFree( const_cast< Backtrace* >( this ), blockBytes( frames_ ) );
}

} // namespace Kel
