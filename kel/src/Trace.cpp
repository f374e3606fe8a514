#include <kel/Trace.h>

#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>

#include <kel/Lock.h>

#include "TraceConfig.h"

namespace Kel {

namespace {

using Impl::TraceConfig;

constexpr TraceConfig::Levels levelZero = 1;

// What stands in a line before the message.
struct LineHead {
   char const* handle;
   char const* tag; // null for none
   int level;
   char const* file;
   int line;
   char const* function;
};

std::string escaped( std::string_view text ) {
   constexpr std::string_view special = "\n\r\t\\";
   constexpr std::string_view letters = "nrt\\";
   constexpr char digits[] = "0123456789abcdef";
   std::string result;
   result.reserve( text.size() );
   for( char const c : text ) {
      auto const byte = static_cast< unsigned char >( c );
      if( auto const at = special.find( c ); at != special.npos ) {
         result += '\\';
         result += letters[at];
      } else if( byte < 0x20 || byte > 0x7e ) {
         result += { '\\', 'x', digits[byte >> 4], digits[byte & 15] };
      } else {
         result += c;
      }
   }
   return result;
}

// ISO 8601 in UTC, with microseconds.
std::string timeText() {
   timespec now = {};
   clock_gettime( CLOCK_REALTIME, &now );
   tm parts = {};
   gmtime_r( &now.tv_sec, &parts );
   char text[40];
   std::size_t const length = strftime( text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts );
   int const micros = static_cast< int >( now.tv_nsec / 1000 );
   std::snprintf( text + length, sizeof text - length, ".%06dZ", micros );
   return text;
}

void writeLine( LineHead const& head, std::string_view message ) {
   std::string line = timeText();
   line += ' ' + std::to_string( getpid() ) + ' ' + std::to_string( Impl::gettid() );
   line += ' ' + escaped( head.handle );
   if( head.tag ) {
      line += '[' + escaped( head.tag ) + ']';
   }
   line += ' ' + std::to_string( head.level ) + ' ' + escaped( head.file );
   line += ':' + std::to_string( head.line ) + ' ' + escaped( head.function ) + ": ";
   line += escaped( message );
   line += '\n';
   int const descriptor = TraceConfig::instance().descriptor();
   while( write( descriptor, line.data(), line.size() ) < 0 && errno == EINTR ) {
   }
}

char const* facilityName( TraceFacility const* facility ) {
   return facility ? Impl::traceFacilityName( facility ) : "default";
}

} // namespace

TraceHandle::TraceHandle( char const* name, bool levelZeroShown )
   : name_( name ), levelZeroShown_( levelZeroShown ) {}

unsigned TraceHandle::readLevels() const {
   unsigned const unlisted = levelZeroShown_ ? levelZero : 0;
   unsigned const levels = known | TraceConfig::instance().levels( name_, unlisted );
   levels_.store( static_cast< std::uint16_t >( levels ), std::memory_order_relaxed );
   return levels;
}

TraceStream& TraceStream::operator<<( char const* text ) {
   return append( text ? text : "(null)" );
}

TraceStream& TraceStream::operator<<( char c ) {
   return append( { &c, 1 } );
}

TraceStream& TraceStream::operator<<( double number ) {
   char text[32];
   auto const end = std::to_chars( text, text + sizeof text, number ).ptr;
   return append( { text, static_cast< std::size_t >( end - text ) } );
}

TraceHelper::TraceHelper(
   TraceHandle& handle, FacilityLevel level, char const* file, int line, char const* function )
   : handle_( handle ), level_( level ), file_( file ), line_( line ), function_( function ) {}

TraceHelper::~TraceHelper() {
   try {
      if( handle_.levelOn( level_ ) ) {
         writeLine( { handle_.name(), nullptr, level_, file_, line_, function_ }, stream_.text() );
      }
   } catch( ... ) {
      // Without memory for the line there is no line; tracing must not fail what it traces.
   }
}

void trace_h( TraceFacility* facility, char const* file, int line, char const* function,
   String message, int level ) {
   if( !traceLineSuppressed( facility, level ) ) {
      writeLine(
         { facilityName( facility ), nullptr, level, file, line, function }, message.view() );
   }
}

void trace_ht( TraceFacility* facility, char const* tag, char const* file, int line,
   char const* function, String message, int level ) {
   if( !traceLineSuppressed( facility, level ) && !traceTagSuppressed( facility, tag ) ) {
      writeLine( { facilityName( facility ), tag, level, file, line, function }, message.view() );
   }
}

bool traceLineSuppressed( TraceFacility* facility, int level ) {
   if( level < trace0 || level > trace9 ) {
      return true;
   }
   return !(
      ( TraceConfig::instance().levels( facilityName( facility ), levelZero ) >> level ) & 1 );
}

bool traceTagSuppressed( TraceFacility* facility, char const* tag ) {
   TraceConfig const& config = TraceConfig::instance();
   return config.levels( tag, TraceConfig::allLevels ) == 0 ||
          config.levels( facilityName( facility ), levelZero ) == 0;
}

std::string escapedTraceString( char const* text, unsigned length ) {
   return escaped( { text, length } );
}

} // namespace Kel
