// Trace lines of handles and facilities, at levels 0 to 9, for standard error or the file that
// KEL_TRACE_FILE names. KEL_TRACE lists what shows, as "PyClient/*,Acme/0-3,Acme/8": a handle that
// is not listed shows level 0, one listed shows just what is listed, and "Acme/-" shows nothing.
// Both variables are read once, at the first trace or question. No lock: every line is one write.
#pragma once

#include <atomic>
#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>

#include <kel/Export.h>
#include <kel/String.h>

namespace Kel {

class TraceFacility;

// TraceFacility::FacilityLevel is this type.
enum FacilityLevel : int {
   trace0,
   trace1,
   trace2,
   trace3,
   trace4,
   trace5,
   trace6,
   trace7,
   trace8,
   trace9,
};

namespace Impl {

// The name by which KEL_TRACE lists the facility; not for null. Valid while the facility lives.
char const* traceFacilityName( TraceFacility const* facility );

} // namespace Impl

// A name for trace lines that belong to no facility. Mostly static, and outlives its helpers.
class KEL_API TraceHandle {
 public:
   // `levelZeroShown` tells whether level 0 shows while KEL_TRACE does not list the handle.
   TraceHandle( char const* name, bool levelZeroShown );

   char const* name() const noexcept { return name_.c_str(); }

   // Whether lines of that level show. Cheap from the second call on.
   bool levelOn( FacilityLevel level ) const {
      unsigned levels = levels_.load( std::memory_order_relaxed );
      return ( ( levels & known ? levels : readLevels() ) >> level ) & 1;
   }

 private:
   static constexpr unsigned known = 0x8000;

   unsigned readLevels() const;

   std::string const name_;
   bool const levelZeroShown_;
   mutable std::atomic< std::uint16_t > levels_{ 0 }; // a bit a level, and `known`
};

// Collects the message of one line.
class KEL_API TraceStream {
 public:
   TraceStream& operator<<( char const* text );
   TraceStream& operator<<( char* text ) { return *this << static_cast< char const* >( text ); }
   TraceStream& operator<<( char c );
   TraceStream& operator<<( int number ) { return append( std::to_string( number ) ); }
   TraceStream& operator<<( String const& text ) { return append( text.view() ); }
   TraceStream& operator<<( std::string const& text ) { return append( text ); }
   TraceStream& operator<<( std::string_view text ) { return append( text ); }
   TraceStream& operator<<( bool flag ) { return append( flag ? "true" : "false" ); }
   TraceStream& operator<<( double number );
   TraceStream& operator<<( std::integral auto number ) {
      return append( std::to_string( number ) );
   }

   std::string const& text() const noexcept { return text_; }

 private:
   TraceStream& append( std::string_view text ) {
      text_ += text;
      return *this;
   }

   std::string text_;
};

// One line: what goes into stream() is written when the helper goes, if the level shows. The
// pointers must stay valid until then.
class KEL_API TraceHelper {
 public:
   TraceHelper(
      TraceHandle& handle, FacilityLevel level, char const* file, int line, char const* function );
   TraceHelper( TraceHelper const& ) = delete;
   TraceHelper& operator=( TraceHelper const& ) = delete;
   ~TraceHelper();

   TraceStream& stream() noexcept { return stream_; }

 private:
   TraceHandle& handle_;
   FacilityLevel level_;
   char const* file_;
   int line_;
   char const* function_;
   TraceStream stream_;
};

// Writes a line for a facility; null stands for the handle "default". A level outside of 0 to 9
// never shows. The message may hold any bytes.
KEL_API void trace_h( TraceFacility* facility, char const* file, int line, char const* function,
   String message, int level );
// The same with a tag, which a "tag/-" in KEL_TRACE suppresses for all facilities.
KEL_API void trace_ht( TraceFacility* facility, char const* tag, char const* file, int line,
   char const* function, String message, int level );

// Whether trace_h of that level writes nothing.
[[nodiscard]] KEL_API bool traceLineSuppressed( TraceFacility* facility, int level );
// Whether trace_ht with that tag writes nothing at any level: the tag or the whole facility is
// listed with no level.
[[nodiscard]] KEL_API bool traceTagSuppressed( TraceFacility* facility, char const* tag );

// The text in printable ASCII: \n, \r, \t, \\, and \xNN for every other byte that is not.
[[nodiscard]] KEL_API std::string escapedTraceString( char const* text, unsigned length );

} // namespace Kel

// Takes the message after it: KEL_TRACE( handle, Kel::trace8 ) << "send returned " << error;
// Nothing after it is evaluated if the level does not show. The switch keeps an `else` that follows
// with the caller's own `if`.
#define KEL_TRACE( handle, level )                                                                 \
   switch( 0 )                                                                                     \
   default:                                                                                        \
      if( !( handle ).levelOn( level ) ) {                                                         \
      } else                                                                                       \
         ::Kel::TraceHelper( handle, level, __FILE__, __LINE__, __func__ ).stream()
