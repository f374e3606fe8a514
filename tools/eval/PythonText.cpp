#include "PythonText.h"

#include <sstream>

namespace {

constexpr char promptFile[] = "<prompt>";

// Lines that are no expression run as they are, so that a decorated function or an import works as
// in Python. The parser tells the two apart.
constexpr char promptFunction[] =
   "(lambda t, c, a, g: '?' if c(t, '<prompt>', 'single') is None else"
   " (lambda b: (lambda v: '=' if v is None else '=' + repr(v))("
   "eval(compile(a.Expression(b[0].value), '<prompt>', 'eval')"
   " if [type(s) for s in b] == [a.Expr] else compile(t + '\\n', '<prompt>', 'exec'), g)))"
   "(compile(t + '\\n', '<prompt>', 'exec', a.PyCF_ONLY_AST).body))";

bool isAscii( std::string const& text ) {
   for( char const c : text ) {
      if( static_cast< unsigned char >( c ) >= 0x80 ) {
         return false;
      }
   }
   return true;
}

void appendEscaped( std::string& literal, char c ) {
   constexpr char digits[] = "0123456789abcdef";
   auto const byte = static_cast< unsigned char >( c );
   if( c == '\n' ) {
      literal += "\\n";
   } else if( c == '\'' || c == '\\' ) {
      ( literal += '\\' ) += c;
   } else if( byte < ' ' || byte >= 0x7f ) {
      ( ( literal += "\\x" ) += digits[byte >> 4] ) += digits[byte & 15];
   } else {
      literal += c;
   }
}

// The mark in front that makes Python read a source as UTF-8.
std::string encodingMark( std::string const& source ) {
   return isAscii( source ) ? "" : "\xef\xbb\xbf";
}

} // namespace

std::string pythonLiteral( std::string const& bytes ) {
   std::string literal = "'";
   for( char const c : bytes ) {
      appendEscaped( literal, c );
   }
   return literal + "'";
}

std::string collectedText( std::string const& variable, bool isExpression ) {
   std::string const code = "compile(''.join(globals().pop('" + variable + "')), '<kel-eval>', '";
   return isExpression ? "eval(" + code + "eval'), globals())"
                       : "exec " + code + "exec') in globals()";
}

std::string promptText( std::string const& lines ) {
   return std::string( promptFunction ) + "(" + pythonLiteral( encodingMark( lines ) + lines ) +
          ", __import__('codeop').compile_command, __import__('ast'), globals())";
}

std::string promptFailure( std::string const& failure ) {
   constexpr char head[] = "Traceback (most recent call last):\n";
   std::size_t const frame = failure.find( std::string( "  File \"" ) + promptFile + "\"" );
   if( failure.rfind( head, 0 ) != 0 || frame == failure.npos ) {
      return failure;
   }
   std::string const own = failure.substr( frame );
   // A text that does not compile has no frame, just a place.
   bool const hasFrame = own.substr( 0, own.find( '\n' ) ).find( ", in " ) != own.npos;
   return hasFrame ? head + own : own;
}

std::string namesText( std::string const& word ) {
   std::size_t const dot = word.rfind( '.' );
   bool const dotted = dot != word.npos;
   std::string const start = dotted ? word.substr( dot + 1 ) : word;
   std::string const lists =
      dotted ? "(dir(" + word.substr( 0, dot ) + "),)"
             : "(globals(), dir(__import__('__builtin__')), __import__('keyword').kwlist)";
   std::string const hidden = start.empty() ? " and not n.startswith('_')" : "";
   return "'\\n'.join(sorted(set(n for d in " + lists + " for n in d if n.startswith('" + start +
          "')" + hidden + ")))";
}

std::vector< std::string > namesOf( std::string const& word, std::string const& lines ) {
   std::size_t const dot = word.rfind( '.' );
   std::string const before = dot == word.npos ? "" : word.substr( 0, dot + 1 );
   std::vector< std::string > names;
   std::istringstream stream( lines );
   for( std::string line; std::getline( stream, line ); ) {
      names.push_back( before + line );
   }
   return names;
}
