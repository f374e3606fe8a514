// The runtime reads what it has to trace, and where to, only once: all tests of this program share
// a file, named before the first line of any of them.
#include "TraceLog.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <kelpy/client/Sockets.h>

namespace {

// A file that the environment names is used and left: a death test that starts this program anew
// traces to its parent's.
class TraceFile {
 public:
   TraceFile() {
      setenv( "KEL_TRACE", "PyClient/*", 1 );
      if( char const* const given = std::getenv( "KEL_TRACE_FILE" ) ) {
         path_ = given;
         return;
      }
      close( mkstemp( path_.data() ) );
      setenv( "KEL_TRACE_FILE", path_.c_str(), 1 );
      owner_ = getpid();
   }
   TraceFile( TraceFile const& ) = delete;
   TraceFile& operator=( TraceFile const& ) = delete;
   ~TraceFile() {
      if( getpid() == owner_ ) {
         unlink( path_.c_str() );
      }
   }

   std::string const& path() const { return path_; }

 private:
   std::string path_ = "/tmp/kel-trace-XXXXXX";
   pid_t owner_ = 0;
};

TraceFile const file;

} // namespace

// The file is open from here on.
TraceLog::TraceLog() {
   static_cast< void >( _defaultTraceHandle().levelOn( Kel::trace0 ) );
   start_ = std::filesystem::file_size( file.path() );
}

TraceLog::Lines TraceLog::lines() const {
   std::ifstream in( file.path() );
   in.seekg( static_cast< std::streamoff >( start_ ) );
   Lines found;
   for( std::string line; std::getline( in, line ); ) {
      std::istringstream words( line );
      std::string time, pid, tid, handle, level, place, function, message;
      words >> time >> pid >> tid >> handle >> level >> place >> function;
      std::getline( words, message );
      if( handle == "PyClient" ) {
         found.push_back( level + message );
      }
   }
   return found;
}

TraceLog::Lines TraceLog::lines( int level ) const {
   Lines found = lines();
   std::erase_if( found, [start = std::to_string( level ) + " "](
                            std::string const& line ) { return !line.starts_with( start ); } );
   return found;
}
