// A line of text for places where only async-signal-safe calls are allowed. No lock, no memory.
#pragma once

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Kel::Impl {

// Text beyond the buffer is cut off; a closing newline always finds room.
class SafeText {
 public:
   SafeText& operator<<( char const* text ) {
      std::size_t const length = strnlen( text, limit - length_ );
      std::memcpy( text_ + length_, text, length );
      length_ += length;
      return *this;
   }

   SafeText& operator<<( long number ) {
      if( number < 0 ) {
         *this << "-";
      }
      auto const value = static_cast< std::uintptr_t >( number );
      return digits( number < 0 ? 0 - value : value, 10 );
   }

   SafeText& hex( std::uintptr_t number ) {
      *this << "0x";
      return digits( number, 16 );
   }

   void endLine() { text_[length_++] = '\n'; }
   // For those who want a string of C.
   void endText() { text_[length_] = '\0'; }

   char const* data() const { return text_; }
   std::size_t length() const { return length_; }

 private:
   static constexpr std::size_t limit = 2000;

   SafeText& digits( std::uintptr_t number, unsigned base ) {
      char text[24];
      char* at = text + sizeof text;
      *--at = '\0';
      do {
         *--at = "0123456789abcdef"[number % base];
         number /= base;
      } while( number != 0 );
      return *this << at;
   }

   char text_[limit + 1];
   std::size_t length_ = 0;
};

// Standard error has no one to tell a failure to.
inline void writeToStderr( char const* text, std::size_t length ) {
   [[maybe_unused]] auto const written = ::write( STDERR_FILENO, text, length );
}

} // namespace Kel::Impl
