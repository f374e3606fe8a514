// What the agent client traces, at all levels.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

class TraceLog {
 public:
   using Lines = std::vector< std::string >;

   TraceLog();

   // The lines since this was made, each the level, a blank and the message.
   Lines lines() const;
   // Those among them of a level.
   Lines lines( int level ) const;

 private:
   std::size_t start_;
};
