// Texts and byte strings of the runtime: one pointer to shared counted data, null for the empty
// value. No lock of their own; shared data is counted as RefCount.h says.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include <kel/Export.h>
#include <kel/RefCount.h>

namespace Kel {

namespace Impl {

// The head of shared data; the bytes and a NUL follow it.
struct StringData {
   std::uint32_t references;
   std::uint32_t length;

   char* text() { return reinterpret_cast< char* >( this + 1 ); }
   char const* text() const { return reinterpret_cast< char const* >( this + 1 ); }
};

// One reference on new data holding a copy of the bytes; null for length 0. Throws
// Kel::RangeException for a length beyond 32 bits and Kel::MemoryException.
[[nodiscard]] KEL_API StringData* stringDataNew( void const* bytes, std::size_t length );
KEL_API void stringDataDelete( StringData* data ) noexcept;
// Consumes the reference on `data` (perhaps null) and returns one on the joined text. `bytes` may
// lie inside of `data`. On an exception `data` keeps its reference.
[[nodiscard]] KEL_API StringData* stringDataAppend(
   StringData* data, void const* bytes, std::size_t length );

} // namespace Impl

// What texts and byte strings share: the counted pointer, length, appending, comparison by bytes.
template< class C >
class StringBase {
   static_assert( sizeof( C ) == 1 );

 public:
   constexpr StringBase() noexcept = default;
   StringBase( StringBase const& other ) noexcept : data_( other.data_ ) {
      if( data_ ) {
         VFPtrInterface::refIncrement( data_->references );
      }
   }
   StringBase( StringBase&& other ) noexcept : data_( std::exchange( other.data_, nullptr ) ) {}
   StringBase& operator=( StringBase const& other ) noexcept {
      StringBase( other ).swap( *this );
      return *this;
   }
   StringBase& operator=( StringBase&& other ) noexcept {
      StringBase( std::move( other ) ).swap( *this );
      return *this;
   }
   ~StringBase() {
      if( data_ && VFPtrInterface::refDecrement( data_->references ) == 0 ) {
         Impl::stringDataDelete( data_ );
      }
   }

   void swap( StringBase& other ) noexcept { std::swap( data_, other.data_ ); }

   // In bytes, without the NUL. Both names mean the same.
   std::uint32_t length() const noexcept { return data_ ? data_->length : 0; }
   std::uint32_t bytes() const noexcept { return length(); }
   bool empty() const noexcept { return length() == 0; }

   // Never null, NUL-terminated behind the length. Valid until this value is changed or goes.
   unsigned char const* bytesPtr() const noexcept {
      return reinterpret_cast< unsigned char const* >( text() );
   }

   // Less than, equal to, or greater than 0; a prefix is less than what it begins.
   int compare( void const* bytes, std::size_t length ) const noexcept {
      std::size_t const own = this->length();
      std::size_t const common = own < length ? own : length;
      if( int const order = common ? std::memcmp( text(), bytes, common ) : 0 ) {
         return order;
      }
      return own < length ? -1 : own > length;
   }

   friend bool operator==( StringBase const& a, StringBase const& b ) noexcept {
      return a.data_ == b.data_ ||
             ( a.length() == b.length() && a.compare( b.text(), b.length() ) == 0 );
   }
   friend std::strong_ordering operator<=>( StringBase const& a, StringBase const& b ) noexcept {
      return a.compare( b.text(), b.length() ) <=> 0;
   }

 protected:
   StringBase( void const* bytes, std::size_t length )
      : data_( Impl::stringDataNew( bytes, length ) ) {}

   char const* text() const noexcept { return data_ ? data_->text() : ""; }
   void append( void const* bytes, std::size_t length ) {
      data_ = Impl::stringDataAppend( data_, bytes, length );
   }

 private:
   Impl::StringData* data_ = nullptr;
};

// Whatever is a text to the standard library: literals, std::string, std::string_view.
template< class T >
concept StandardText = std::is_convertible_v< T const&, std::string_view >;

// A text; it may hold any byte, also NUL. Every member that makes or joins text may throw
// Kel::MemoryException, and Kel::RangeException beyond 2^32 - 1 bytes; then nothing has changed.
class KEL_API String : public StringBase< char > {
 public:
   constexpr String() noexcept = default;
   // A null pointer gives the empty text.
   String( char const* text ) : StringBase( text, text ? std::strlen( text ) : 0 ) {}
   String( char const* text, std::size_t length ) : StringBase( text, length ) {}
   String( std::string const& text ) : StringBase( text.data(), text.size() ) {}
   String( std::string_view text ) : StringBase( text.data(), text.size() ) {}

   String& operator=( char const* text ) { return *this = String( text ); }
   String& operator=( String const& ) noexcept = default;
   String& operator=( String&& ) noexcept = default;
   String( String const& ) noexcept = default;
   String( String&& ) noexcept = default;
   ~String() = default;

   // Never null, NUL-terminated behind the length. Valid until this text is changed or goes.
   char const* charPtr() const noexcept { return text(); }
   std::string_view view() const noexcept { return { text(), length() }; }
   std::string stdString() const { return std::string( view() ); }

   // Appends.
   String& merge( String const& other ) {
      if( empty() ) {
         return *this = other;
      }
      append( other.charPtr(), other.length() );
      return *this;
   }
   String& merge( char const* text, std::size_t length ) {
      append( text, length );
      return *this;
   }
   String& operator+=( String const& other ) { return merge( other ); }
   String& operator+=( char c ) { return merge( &c, 1 ); }
   template< StandardText T >
   String& operator+=( T const& other ) {
      std::string_view const view = other;
      return merge( view.data(), view.size() );
   }

   friend String operator+( String a, String const& b ) {
      a.merge( b );
      return a;
   }

   template< StandardText T >
   friend bool operator==( String const& a, T const& b ) noexcept {
      return a.view() == std::string_view( b );
   }
   template< StandardText T >
   friend std::strong_ordering operator<=>( String const& a, T const& b ) noexcept {
      std::string_view const view = b;
      return a.compare( view.data(), view.size() ) <=> 0;
   }
};

// A string of bytes. Limits and exceptions as for String.
class KEL_API Bytes : public StringBase< unsigned char > {
 public:
   constexpr Bytes() noexcept = default;
   Bytes( unsigned char const* bytes, std::size_t length ) : StringBase( bytes, length ) {}

   Bytes& merge( Bytes const& other ) {
      append( other.bytesPtr(), other.length() );
      return *this;
   }
   Bytes& operator+=( Bytes const& other ) { return merge( other ); }
};

static_assert( sizeof( String ) == 8 && sizeof( Bytes ) == 8 );

KEL_API std::ostream& operator<<( std::ostream& out, String const& text );

// A text formatted as printf does.
[[nodiscard]] KEL_API String _fmt( char const* format, ... )
   __attribute__( ( format( printf, 1, 2 ) ) );

// The C++ name behind a mangled one, or the text itself if it is none.
[[nodiscard]] KEL_API String demangle( char const* mangled );
[[nodiscard]] KEL_API String demangle( std::type_info const& type );

} // namespace Kel

template<>
struct std::hash< Kel::String > {
   std::size_t operator()( Kel::String const& text ) const noexcept {
      return std::hash< std::string_view >()( text.view() );
   }
};

template<>
struct std::hash< Kel::Bytes > {
   std::size_t operator()( Kel::Bytes const& bytes ) const noexcept {
      return std::hash< std::string_view >()(
         { reinterpret_cast< char const* >( bytes.bytesPtr() ), bytes.length() } );
   }
};
