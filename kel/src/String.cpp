#include <kel/String.h>

#include <cxxabi.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <new>
#include <ostream>

#include <kel/Exception.h>
#include <kel/Mem.h>

namespace Kel {

namespace Impl {

namespace {

std::size_t dataBytes( std::size_t length ) {
   return sizeof( StringData ) + length + 1;
}

void checkLength( std::size_t length ) {
   if( length > std::numeric_limits< std::uint32_t >::max() ) {
      throw RangeException( "a string is longer than 2^32 - 1 bytes" );
   }
}

void lengthIs( StringData* data, std::size_t length ) {
   data->length = static_cast< std::uint32_t >( length );
   data->text()[length] = '\0';
}

bool soleOwner( StringData const* data ) {
   return __atomic_load_n( &data->references, __ATOMIC_ACQUIRE ) == 1;
}

// Grows the text in place or moves it; bytes out of the text itself move with it.
StringData* appendToOwned( StringData* data, char const* bytes, std::size_t length ) {
   std::size_t const old = data->length;
   std::less<> const before;
   bool const inside = !before( bytes, data->text() ) && before( bytes, data->text() + old );
   std::ptrdiff_t const offset = inside ? bytes - data->text() : 0;
   data =
      static_cast< StringData* >( memRealloc( data, dataBytes( old ), dataBytes( old + length ) ) );
   std::memcpy( data->text() + old, inside ? data->text() + offset : bytes, length );
   lengthIs( data, old + length );
   return data;
}

// A text of its own, then lets the shared one go.
StringData* appendToShared( StringData* data, char const* bytes, std::size_t length ) {
   std::size_t const old = data->length;
   auto* joined = new( memAlloc( dataBytes( old + length ) ) ) StringData{ 1, 0 };
   std::memcpy( joined->text(), data->text(), old );
   std::memcpy( joined->text() + old, bytes, length );
   lengthIs( joined, old + length );
   if( VFPtrInterface::refDecrement( data->references ) == 0 ) {
      stringDataDelete( data );
   }
   return joined;
}

} // namespace

StringData* stringDataNew( void const* bytes, std::size_t length ) {
   if( length == 0 ) {
      return nullptr;
   }
   checkLength( length );
   auto* data = new( memAlloc( dataBytes( length ) ) ) StringData{ 1, 0 };
   std::memcpy( data->text(), bytes, length );
   lengthIs( data, length );
   return data;
}

void stringDataDelete( StringData* data ) noexcept {
   memFree( data, dataBytes( data->length ) );
}

StringData* stringDataAppend( StringData* data, void const* bytes, std::size_t length ) {
   if( length == 0 ) {
      return data;
   }
   if( !data ) {
      return stringDataNew( bytes, length );
   }
   checkLength( length );
   checkLength( data->length + length );
   auto const* text = static_cast< char const* >( bytes );
   return soleOwner( data ) ? appendToOwned( data, text, length )
                            : appendToShared( data, text, length );
}

} // namespace Impl

std::ostream& operator<<( std::ostream& out, String const& text ) {
   return out << text.view();
}

String _fmt( char const* format, ... ) {
   char local[256];
   std::va_list arguments;
   va_start( arguments, format );
   int const length = std::vsnprintf( local, sizeof local, format, arguments );
   va_end( arguments );
   if( length < 0 ) {
      throw ErrnoException( errno, "cannot format a text" );
   }
   auto const size = static_cast< std::size_t >( length );
   if( size < sizeof local ) {
      return String( local, size );
   }
   std::string text( size, '\0' );
   va_start( arguments, format );
   std::vsnprintf( text.data(), size + 1, format, arguments );
   va_end( arguments );
   return String( text );
}

String demangle( char const* mangled ) {
   struct Free {
      void operator()( char* text ) const { std::free( text ); }
   };
   int status = 0;
   std::unique_ptr< char, Free > const name(
      abi::__cxa_demangle( mangled, nullptr, nullptr, &status ) );
   return String( name ? name.get() : mangled );
}

String demangle( std::type_info const& type ) {
   return demangle( type.name() );
}

} // namespace Kel
