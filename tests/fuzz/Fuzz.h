// What the guided fuzzers share. An input is one call of LLVMFuzzerTestOneInput; where what is
// tested does not do as it should, the process ends. With KEL_FUZZ_PLANT in the environment each
// has a fault of its own, to see that it is caught.
#pragma once

#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerInitialize( int*, char*** );
extern "C" int LLVMFuzzerTestOneInput( std::uint8_t const* data, std::size_t size );

// The folder for the sockets and files of this process; empty while there is none.
inline std::string& folder() {
   static std::string path;
   return path;
}

inline void removeFolder() {
   if( !folder().empty() ) {
      std::filesystem::remove_all( folder() );
      folder().clear();
   }
}

[[noreturn]] inline void fault( std::string const& text ) {
   std::fprintf( stderr, "fault: %s\n", text.c_str() );
   removeFolder();
   std::abort();
}

inline void expect( bool holds, char const* text ) {
   if( !holds ) {
      fault( text );
   }
}

inline bool planted() {
   static bool const is = std::getenv( "KEL_FUZZ_PLANT" );
   return is;
}

inline std::string_view textOf( std::uint8_t const* data, std::size_t size ) {
   return { reinterpret_cast< char const* >( data ), size };
}

inline std::string makeFolder() {
   // In memory, where there is such a place: inputs are many.
   std::string const place = access( "/dev/shm", W_OK ) == 0 ? "/dev/shm" : "/tmp";
   std::string path = place + "/kel-fuzz-XXXXXX";
   expect( mkdtemp( path.data() ), "no folder can be made" );
   return folder() = path;
}

// To be called before all else. The text of each trace line is made, and nobody reads it.
inline void startFuzzer() {
   setenv( "KEL_TRACE", "PyClient/*", 1 );
   setenv( "KEL_TRACE_FILE", "/dev/null", 1 );
   // The engine wants to know of an abort, where the runtime has a handler by now.
   std::signal( SIGABRT, SIG_DFL );
}
