// A connection to the server of an agent. Each text runs once: a lost connection is not made anew.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <kelpy/PyClient.h>

#include "Target.h"

enum class Kind { expression, statements };

class Session {
 public:
   // Connects; waits for the agent as the client's retry profile says, or tries once. Results have
   // at most `limit` bytes. Throws Failure, as run() does.
   Session( Target const& target, bool waits, std::size_t limit );
   Session( Session const& ) = delete;
   Session& operator=( Session const& ) = delete;

   // The result, valid until the next call. A text that is longer than one request goes in pieces.
   std::string_view run( Kind kind, std::string const& text );

 private:
   std::string_view runPieces( Kind kind, std::string const& text );
   std::string_view send( Kind kind, std::string const& text );
   void refuseTruncated( std::string_view result ) const;
   bool isAtEnd() const; // the server has closed, and nothing is left to read

   std::string name_;
   int limit_;
   std::unique_ptr< char[] > buffer_; // of limit_ + 1 bytes, touched as far as results reach
   Kel::Ptr< Kel::PyClient > client_;
};
