#include "Prompt.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "Failure.h"
#include "LineEditor.h"
#include "PythonText.h"

namespace {

constexpr char firstPrompt[] = ">>> ";
constexpr char nextPrompt[] = "... ";

std::string historyFile() {
   char const* const home = std::getenv( "HOME" );
   return home && *home ? std::string( home ) + "/.kel_eval_history" : "";
}

class Prompt {
 public:
   explicit Prompt( Session& session )
      : session_( session ),
        editor_( historyFile(), [this]( std::string const& word ) { return namesFor( word ); } ) {}

   void run() {
      for( std::string line;; ) {
         switch( editor_.read( lines_.empty() ? firstPrompt : nextPrompt, line ) ) {
         case LineEditor::Outcome::end:
            return;
         case LineEditor::Outcome::interrupted:
            lines_.clear();
            break;
         case LineEditor::Outcome::line:
            take( line );
            break;
         }
      }
   }

 private:
   void take( std::string const& line ) {
      if( line.find_first_not_of( " \t" ) != line.npos ) {
         editor_.remember( line );
      } else if( lines_.empty() ) {
         return;
      }
      lines_ += lines_.empty() ? line : "\n" + line;
      try {
         std::string_view const answer = session_.run( Kind::expression, promptText( lines_ ) );
         if( answer == "?" ) {
            return;
         }
         show( answer.substr( 1 ) );
      } catch( Failure const& failure ) {
         if( failure.status != Failure::raised ) {
            throw;
         }
         std::cerr << promptFailure( failure.what() ) << std::endl;
      }
      lines_.clear();
   }

   static void show( std::string_view text ) {
      if( !text.empty() ) {
         std::cout << text << std::endl;
      }
   }

   // What cannot be completed is left as it is.
   std::vector< std::string > namesFor( std::string const& word ) {
      try {
         return namesOf( word, std::string( session_.run( Kind::expression, namesText( word ) ) ) );
      } catch( Failure const& ) {
         return {};
      }
   }

   Session& session_;
   LineEditor editor_;
   std::string lines_; // of the block that is being typed
};

} // namespace

void runPrompt( Session& session, std::string const& name ) {
   std::cout << name << ": Python of this agent. Ctrl-D ends." << std::endl;
   Prompt( session ).run();
}
