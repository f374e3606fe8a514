#include "TraceConfig.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "SafeText.h"

namespace Kel::Impl {

namespace {

using Levels = TraceConfig::Levels;

constinit std::atomic< TraceConfig const* > theConfig{ nullptr };

std::optional< unsigned > level( std::string_view text ) {
   if( text.size() != 1 || text[0] < '0' || text[0] > '9' ) {
      return std::nullopt;
   }
   return text[0] - '0';
}

// "*" for all, "-" for none, "8" for one, "0-3" for a range; nothing for any other text.
std::optional< Levels > levelsOf( std::string_view text ) {
   if( text == "*" ) {
      return TraceConfig::allLevels;
   }
   if( text == "-" ) {
      return 0;
   }
   std::size_t const dash = text.find( '-' );
   auto const low = level( text.substr( 0, dash ) );
   auto const high = dash == text.npos ? low : level( text.substr( dash + 1 ) );
   if( !low || !high || *high < *low ) {
      return std::nullopt;
   }
   return ( TraceConfig::allLevels >> ( 9 - *high ) ) & ( TraceConfig::allLevels << *low );
}

// A file that cannot be opened is told, and the lines go to standard error.
int openTraceFile( char const* name ) {
   if( !name || !*name ) {
      return STDERR_FILENO;
   }
   int const file = open( name, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666 );
   if( file >= 0 ) {
      return file;
   }
   int const error = errno;
   SafeText text;
   text << "cannot open the trace file " << name << ": " << strerrordesc_np( error );
   text.endLine();
   writeToStderr( text.data(), text.length() );
   return STDERR_FILENO;
}

} // namespace

TraceConfig::TraceConfig() : descriptor_( openTraceFile( std::getenv( "KEL_TRACE_FILE" ) ) ) {
   char const* listed = std::getenv( "KEL_TRACE" );
   std::string_view rest = listed ? listed : "";
   while( !rest.empty() ) {
      std::size_t const comma = std::min( rest.find( ',' ), rest.size() );
      entryIs( rest.substr( 0, comma ) );
      rest.remove_prefix( std::min( comma + 1, rest.size() ) );
   }
}

TraceConfig::~TraceConfig() {
   if( descriptor_ != STDERR_FILENO ) {
      close( descriptor_ );
   }
}

// Several entries of one handle add up. What is not of the form "handle/levels" is passed over.
void TraceConfig::entryIs( std::string_view entry ) {
   std::size_t const slash = entry.rfind( '/' );
   if( slash == entry.npos ) {
      return;
   }
   auto const levels = levelsOf( entry.substr( slash + 1 ) );
   if( !levels ) {
      return;
   }
   std::string_view const handle = entry.substr( 0, slash );
   auto const isHandle = [handle]( Entry const& each ) { return each.handle == handle; };
   auto const known = std::find_if( entries_.begin(), entries_.end(), isHandle );
   if( known != entries_.end() ) {
      known->levels |= *levels;
   } else {
      entries_.push_back( { std::string( handle ), *levels } );
   }
}

Levels TraceConfig::levels( std::string_view handle, Levels unlisted ) const {
   for( Entry const& entry : entries_ ) {
      if( entry.handle == handle ) {
         return entry.levels;
      }
   }
   return unlisted;
}

// Two threads may read the environment at once, one result stays. A guarded static would hang a
// child that was forked from another thread meanwhile.
TraceConfig const& TraceConfig::instance() {
   TraceConfig const* config = theConfig.load( std::memory_order_acquire );
   if( !config ) {
      auto const* made = new TraceConfig();
      if( theConfig.compare_exchange_strong( config, made, std::memory_order_acq_rel ) ) {
         return *made;
      }
      delete made;
   }
   return *config;
}

} // namespace Kel::Impl
