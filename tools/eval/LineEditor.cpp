#include "LineEditor.h"

#include <csignal>
#include <fcntl.h>
#include <langinfo.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <cwchar>

namespace {

constexpr int historyLines = 1000;
constexpr char indent[] = "    ";

constinit volatile std::sig_atomic_t interrupted = 0;

// For its lifetime Ctrl-C ends the wait for a key, and not the program. Outside of that wait the
// signal is blocked, so that none is lost.
class Interruptible {
 public:
   Interruptible() {
      interrupted = 0;
      sigset_t set;
      sigemptyset( &set );
      sigaddset( &set, SIGINT );
      sigprocmask( SIG_BLOCK, &set, &keptMask_ );
      struct sigaction action = {};
      action.sa_handler = []( int ) { interrupted = 1; };
      sigaction( SIGINT, &action, &kept_ );
   }
   Interruptible( Interruptible const& ) = delete;
   Interruptible& operator=( Interruptible const& ) = delete;
   ~Interruptible() {
      sigaction( SIGINT, &kept_, nullptr );
      sigprocmask( SIG_SETMASK, &keptMask_, nullptr );
   }

 private:
   struct sigaction kept_ = {};
   sigset_t keptMask_ = {};
};

// Waits for a byte of the terminal, or for Ctrl-C; as read(2) returns.
ssize_t readByte( char& byte ) {
   sigset_t open;
   sigprocmask( SIG_BLOCK, nullptr, &open );
   sigdelset( &open, SIGINT );
   pollfd input{ STDIN_FILENO, POLLIN, 0 };
   while( ppoll( &input, 1, nullptr, &open ) < 0 ) {
      if( interrupted || errno != EINTR ) {
         return -1;
      }
   }
   return ::read( STDIN_FILENO, &byte, 1 );
}

// One character for the library: 1, or what readByte gives instead. Bytes that are none are passed
// over.
int readCharacter( EditLine*, wchar_t* character ) {
   std::mbstate_t state = {};
   for( ;; ) {
      char byte = 0;
      if( ssize_t const length = readByte( byte ); length != 1 ) {
         return static_cast< int >( length );
      }
      std::size_t const result = std::mbrtowc( character, &byte, 1, &state );
      if( result <= 1 ) {
         return 1;
      }
      if( result == static_cast< std::size_t >( -1 ) ) {
         state = {};
      }
   }
}

// The file exists then, readable for the user alone. The library would make it so only behind its
// first write.
bool prepareFile( std::string const& path ) {
   int const file = open( path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600 );
   if( file < 0 ) {
      return false;
   }
   bool const isOwn = fchmod( file, 0600 ) == 0;
   close( file );
   return isOwn;
}

bool isOfWord( char c ) {
   return std::isalnum( static_cast< unsigned char >( c ) ) || c == '_' || c == '.';
}

std::string commonStart( std::vector< std::string > const& names ) {
   std::string start = names.front();
   for( std::string const& name : names ) {
      auto const end = std::mismatch( start.begin(), start.end(), name.begin(), name.end() ).first;
      start.erase( end, start.end() );
   }
   return start;
}

// The locale of the environment, for the editor, which drops what the locale has no character for.
// One that knows ASCII alone, as where none is set, makes way for UTF-8.
void setCharacters() {
   std::setlocale( LC_CTYPE, "" );
   if( std::strcmp( nl_langinfo( CODESET ), "ANSI_X3.4-1968" ) == 0 ) {
      std::setlocale( LC_CTYPE, "C.UTF-8" );
   }
}

} // namespace

LineEditor::LineEditor( std::string historyFile, Complete complete )
   : historyFile_( std::move( historyFile ) ),
     complete_( std::move( complete ) ),
     editor_( nullptr, el_end ),
     history_( history_init(), history_end ) {
   setCharacters();
   editor_.reset( el_init( "kel-eval", stdin, stdout, stderr ) );
   HistEvent event;
   history( history_.get(), &event, H_SETSIZE, historyLines );
   history( history_.get(), &event, H_SETUNIQUE, 1 );
   if( !historyFile_.empty() && prepareFile( historyFile_ ) ) {
      history( history_.get(), &event, H_LOAD, historyFile_.c_str() );
   } else {
      historyFile_.clear();
   }
   EditLine* const editor = editor_.get();
   el_set( editor, EL_CLIENTDATA, this );
   el_set( editor, EL_PROMPT, &LineEditor::prompt );
   el_set( editor, EL_GETCFN, readCharacter );
   el_set( editor, EL_EDITOR, "emacs" );
   el_set( editor, EL_HIST, history, history_.get() );
   el_set( editor, EL_ADDFN, "kel-complete", "Completes a name", &LineEditor::complete );
   el_set( editor, EL_BIND, "^I", "kel-complete", nullptr );
   el_set( editor, EL_BIND, "^R", "em-inc-search-prev", nullptr );
   el_source( editor, nullptr ); // the user's .editrc
}

LineEditor::Outcome LineEditor::read( std::string const& prompt, std::string& line ) {
   Interruptible const interruptible;
   prompt_ = prompt;
   int length = 0;
   char const* const text = el_gets( editor_.get(), &length );
   if( !text ) {
      el_reset( editor_.get() );
      std::fputs( "\n", stdout );
      std::fflush( stdout );
      return interrupted ? Outcome::interrupted : Outcome::end;
   }
   line.assign( text, length );
   while( !line.empty() && ( line.back() == '\n' || line.back() == '\r' ) ) {
      line.pop_back();
   }
   return Outcome::line;
}

void LineEditor::remember( std::string const& line ) {
   HistEvent event;
   history( history_.get(), &event, H_ENTER, line.c_str() );
   if( !historyFile_.empty() ) {
      history( history_.get(), &event, H_SAVE, historyFile_.c_str() );
   }
}

char* LineEditor::prompt( EditLine* editor ) {
   LineEditor* self = nullptr;
   el_get( editor, EL_CLIENTDATA, &self );
   return self->prompt_.data();
}

unsigned char LineEditor::complete( EditLine* editor, int ) {
   LineEditor* self = nullptr;
   el_get( editor, EL_CLIENTDATA, &self );
   return self->completeWord();
}

// At the start of a line the key indents.
unsigned char LineEditor::completeWord() {
   LineInfo const* const line = el_line( editor_.get() );
   std::string const before( line->buffer, line->cursor );
   if( before.find_first_not_of( " \t" ) == before.npos ) {
      el_insertstr( editor_.get(), indent );
      return CC_REFRESH;
   }
   auto const start = std::find_if_not( before.rbegin(), before.rend(), isOfWord ).base();
   std::string const word( start, before.end() );
   auto const names = word.empty() ? std::vector< std::string >() : complete_( word );
   if( names.empty() ) {
      return CC_REFRESH_BEEP;
   }
   std::string const common = commonStart( names );
   if( common.size() > word.size() ) {
      el_insertstr( editor_.get(), common.c_str() + word.size() );
      return CC_REFRESH;
   }
   return names.size() == 1 ? CC_REFRESH : offer( names );
}

// Below the line, which is then shown anew.
unsigned char LineEditor::offer( std::vector< std::string > const& names ) {
   std::fputs( "\n", stdout );
   for( std::string const& name : names ) {
      std::printf( "%s  ", name.c_str() );
   }
   std::fputs( "\n", stdout );
   std::fflush( stdout );
   return CC_REDISPLAY;
}
