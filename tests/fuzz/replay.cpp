// Runs a fuzzer over the files of the folders that it is given, so that its seeds stay alive in
// builds that have no engine for it. Or, as `--changes OPTIONS STEP FILE`, over the changes of one
// file behind so many bytes of options.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "Fuzz.h"

namespace {

std::vector< std::filesystem::path > filesOf( char const* folder ) {
   std::vector< std::filesystem::path > found;
   for( auto const& entry : std::filesystem::directory_iterator( folder ) ) {
      found.push_back( entry.path() );
   }
   std::sort( found.begin(), found.end() );
   return found;
}

using Bytes = std::vector< std::uint8_t >;

Bytes bytesOf( std::filesystem::path const& path ) {
   std::ifstream in( path, std::ios::binary );
   // Of exactly the size, so that the address sanitizer sees who reads behind it.
   return Bytes( std::istreambuf_iterator< char >( in ), {} );
}

void run( Bytes const& data ) {
   Bytes const exact( data );
   LLVMFuzzerTestOneInput( exact.data(), exact.size() );
}

void replay( std::filesystem::path const& path ) {
   std::fprintf( stderr, "%s\n", path.c_str() );
   run( bytesOf( path ) );
}

// Every change of two bits behind the options, or each `step`th of them.
std::size_t flipPairs( Bytes data, std::size_t options, std::size_t step ) {
   auto const flip = [&]( std::size_t bit ) {
      data[options + bit / 8] ^= static_cast< std::uint8_t >( 1 << bit % 8 );
   };
   std::size_t const bits = ( data.size() - options ) * 8;
   std::size_t seen = 0, made = 0;
   for( std::size_t one = 0; one < bits; ++one ) {
      for( std::size_t other = one + 1; other < bits; ++other ) {
         if( seen++ % step == 0 ) {
            flip( one );
            flip( other );
            run( data );
            flip( one );
            flip( other );
            ++made;
         }
      }
   }
   return made;
}

// Every truncation, each handed out in pieces of every size. The byte that tells the size is the
// last but one of the options.
std::size_t cut( Bytes const& data, std::size_t options ) {
   std::size_t made = 0;
   for( std::size_t size = options; size <= data.size(); ++size ) {
      for( std::size_t piece = 0; piece <= size - options; ++piece, ++made ) {
         Bytes part( data.begin(), data.begin() + static_cast< std::ptrdiff_t >( size ) );
         part[options - 2] = static_cast< std::uint8_t >( piece );
         run( part );
      }
   }
   return made;
}

int changes( char** arguments ) {
   auto const options = static_cast< std::size_t >( std::atoi( arguments[0] ) );
   auto const step = static_cast< std::size_t >( std::atoi( arguments[1] ) );
   Bytes const data = bytesOf( arguments[2] );
   std::size_t const flips = flipPairs( data, options, step );
   std::printf(
      "%zu changes of two bits, %zu truncations and splits\n", flips, cut( data, options ) );
   return 0;
}

} // namespace

int main( int argc, char** argv ) {
   LLVMFuzzerInitialize( &argc, &argv );
   if( argc == 5 && std::string_view( argv[1] ) == "--changes" ) {
      return changes( argv + 2 );
   }
   std::size_t count = 0;
   for( int i = 1; i < argc; ++i ) {
      for( auto const& path : filesOf( argv[i] ) ) {
         replay( path );
         ++count;
      }
   }
   std::printf( "%zu inputs\n", count );
   return count == 0;
}
