// Lines from a terminal, with editing, history and completion.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <histedit.h>

class LineEditor {
 public:
   // What a word, which may be empty, can become.
   using Complete = std::function< std::vector< std::string >( std::string const& word ) >;

   enum class Outcome { line, interrupted, end };

   // The history is read from the file and kept in it, for the user alone; none if it is empty.
   LineEditor( std::string historyFile, Complete complete );
   LineEditor( LineEditor const& ) = delete;
   LineEditor& operator=( LineEditor const& ) = delete;

   // Reads a line, without its end. Interrupted: Ctrl-C; end: Ctrl-D, or the terminal is gone.
   Outcome read( std::string const& prompt, std::string& line );
   // Adds a line to the history.
   void remember( std::string const& line );

 private:
   static char* prompt( EditLine* editor );
   static unsigned char complete( EditLine* editor, int );
   unsigned char completeWord();
   unsigned char offer( std::vector< std::string > const& names );

   std::string historyFile_;
   Complete complete_;
   std::string prompt_;
   std::unique_ptr< EditLine, void ( * )( EditLine* ) > editor_;
   std::unique_ptr< History, void ( * )( History* ) > history_;
};
