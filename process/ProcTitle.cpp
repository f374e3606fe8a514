#include "process/ProcTitle.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <mutex>
#include <new>
#include <sstream>
#include <string>
#include <vector>

namespace {

// Guards all below.
constinit std::mutex titleMutex;
constinit std::string* title = nullptr; // immortal: procTitle may be asked at exit

// The memory that the kernel shows as the command line. It goes on behind the arguments, into the
// environment, only if the last byte of the arguments is not NUL.
struct TitleArea {
   char* begin;
   char* end; // of the environment that follows the arguments
};
constinit TitleArea area{};

// Fields of /proc/self/stat, counted from 1, that hold addresses.
constexpr int argumentsBeginField = 48;
constexpr int argumentsEndField = 49;
constexpr int environmentBeginField = 50;
constexpr int environmentEndField = 51;

// The numbers of /proc/self/stat from field 3 on, which stand behind the program's name in
// parentheses; field 3 is a letter and counts as 0. Empty if the file cannot be read.
std::vector< std::uintptr_t > processFields() {
   std::ifstream file( "/proc/self/stat" );
   std::string text( std::istreambuf_iterator< char >( file ), {} );
   std::istringstream rest( text.substr( std::min( text.rfind( ')' ) + 1, text.size() ) ) );
   std::vector< std::uintptr_t > fields;
   for( std::string word; rest >> word; ) {
      fields.push_back( std::strtoull( word.c_str(), nullptr, 10 ) );
   }
   return fields;
}

// Empty unless the process still has its arguments where `argv` says: a title must not be written
// over memory that is not known to be theirs.
TitleArea findArea( char const* firstArgument ) {
   auto const fields = processFields();
   if( fields.size() <= environmentEndField - 3 ) {
      return {};
   }
   auto const address = [&fields]( int field ) {
      return reinterpret_cast< char* >( fields[static_cast< std::size_t >( field - 3 )] );
   };
   char* const begin = address( argumentsBeginField );
   char* const end = address( argumentsEndField );
   if( !begin || begin != firstArgument || end <= begin ) {
      return {};
   }
   return { begin, address( environmentBeginField ) == end ? address( environmentEndField ) : end };
}

char* copyOf( char const* text ) {
   char* copy = strdup( text );
   if( !copy ) {
      throw std::bad_alloc();
   }
   return copy;
}

bool inArea( TitleArea const& found, char const* text ) {
   std::less<> const before;
   return !before( text, found.begin ) && before( text, found.end );
}

// Others still point at the texts that the title will cover: the C library at the program's name,
// everybody at the environment.
void moveTexts( TitleArea const& found ) {
   for( char** variable = environ; variable && *variable; ++variable ) {
      if( inArea( found, *variable ) ) {
         *variable = copyOf( *variable );
      }
   }
   for( char** name : { &program_invocation_name, &program_invocation_short_name } ) {
      if( inArea( found, *name ) ) {
         *name = copyOf( *name );
      }
   }
}

// Behind a title that ends inside of the arguments these are all NUL. A longer one reaches over
// their last byte, as the kernel wants it.
void writeTitle( std::string const& text ) {
   auto const room = static_cast< std::size_t >( area.end - area.begin );
   std::size_t const length = std::min( text.size(), room - 1 );
   std::memcpy( area.begin, text.data(), length );
   std::fill( area.begin + length, area.end, '\0' );
}

std::string joined( char const* a, char const* b ) {
   std::string text = a ? a : "";
   if( b && *b ) {
      text += text.empty() ? "" : " ";
      text += b;
   }
   return text;
}

} // namespace

void procTitleIs( int argc, char** argv, char const* a, char const* b ) {
   std::string text = joined( a, b );
   std::lock_guard const guard( titleMutex );
   if( !area.begin && argc > 0 && argv && argv[0] ) {
      TitleArea const found = findArea( argv[0] );
      moveTexts( found );
      area = found;
   }
   if( !title ) {
      title = new std::string;
   }
   *title = std::move( text );
   if( area.begin ) {
      writeTitle( *title );
   }
}

char const* procTitle() {
   std::lock_guard const guard( titleMutex );
   return title ? title->c_str() : nullptr;
}
