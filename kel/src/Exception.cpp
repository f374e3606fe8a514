#include <kel/Exception.h>

#include <atomic>
#include <cstring>

namespace Kel {

namespace {

constinit std::atomic< bool > captureBacktraces_{ false };
// Set while this thread captures, for want of memory then is an exception, too.
constinit thread_local bool isCapturing = false;

String errnoMessage( int errnoValue, String const& text ) {
   char buffer[256];
   char const* reason = strerror_r( errnoValue, buffer, sizeof buffer );
   if( text.empty() ) {
      return reason;
   }
   return text + ": " + reason;
}

// Made at load, while there is memory for it, and never destroyed.
String const& outOfMemoryText() {
   alignas( String ) static char place[sizeof( String )];
   static String const* const text = new( place ) String( "out of memory" );
   return *text;
}

[[gnu::constructor]] void makeOutOfMemoryText() {
   outOfMemoryText();
}

} // namespace

Exception::Exception( char const* message ) : Exception( String( message ) ) {}

Exception::Exception( String message ) : message_( std::move( message ) ) {
   if( captureBacktraces() && !isCapturing ) {
      isCapturing = true;
      try {
         backtrace_ = Backtrace::capture();
      } catch( MemoryException const& ) {
         // The failure that is about to be thrown matters more than its stack.
      }
      isCapturing = false;
   }
}

Exception::~Exception() = default;

void Exception::captureBacktracesIs( bool on ) noexcept {
   captureBacktraces_.store( on, std::memory_order_relaxed );
}

bool Exception::captureBacktraces() noexcept {
   return captureBacktraces_.load( std::memory_order_relaxed );
}

ErrnoException::ErrnoException( int errnoValue ) : ErrnoException( errnoValue, String() ) {}

ErrnoException::ErrnoException( int errnoValue, char const* text )
   : ErrnoException( errnoValue, String( text ) ) {}

ErrnoException::ErrnoException( int errnoValue, String text )
   : Exception( errnoMessage( errnoValue, text ) ),
     errno_( errnoValue ),
     text_( std::move( text ) ) {}

void throwOutOfMemory() {
   throw MemoryException( outOfMemoryText() );
}

} // namespace Kel
