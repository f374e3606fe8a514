// Runs a fuzzer over the files of the folders that it is given, so that its seeds stay alive in
// builds that have no engine for it.
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

void replay( std::filesystem::path const& path ) {
   std::fprintf( stderr, "%s\n", path.c_str() );
   std::ifstream in( path, std::ios::binary );
   // Of exactly the size, so that the address sanitizer sees who reads behind it.
   std::vector< std::uint8_t > const data( std::istreambuf_iterator< char >( in ), {} );
   LLVMFuzzerTestOneInput( data.data(), data.size() );
}

} // namespace

int main( int argc, char** argv ) {
   LLVMFuzzerInitialize( &argc, &argv );
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
