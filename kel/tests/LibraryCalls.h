// What the runtime's calls into the C library meet where nothing else can bring it about: an error,
// a fault, or a change that another thread would make just then. Not under the sanitizers, which
// stand there themselves.
#pragma once

#include <functional>

#include <kel/Mem.h>

namespace Kel::Testing {

enum class Call {
   backtrace,
   calloc,
   eventfd,
   malloc, // of operator new, too
   mmap,
   nanosleep,
   read,
   sigaltstack,
   timerCreate,
   write,
   calls
};

// Within each such call of the thread that made this, and until its scope ends, `meet` is called:
// it gives the errno that the call fails with, 0 for the real call. Calls that it makes itself are
// real. One at a time for a call.
class OnCall {
 public:
   OnCall( Call call, std::function< int() > meet );
   OnCall( OnCall const& ) = delete;
   OnCall& operator=( OnCall const& ) = delete;
   ~OnCall();

   // How many calls there were.
   unsigned met() const { return met_; }
   int meets();

 private:
   Call call_;
   std::function< int() > meet_;
   unsigned met_ = 0;
};

// For `meet`: the call of that number, counted from 0, fails.
inline std::function< int() > failing( unsigned number, int error ) {
   return [number, error, at = 0u]() mutable { return at++ == number ? error : 0; };
}

inline std::function< int() > failingAlways( int error ) {
   return [error] { return error; };
}

// For `meet`: does something within the call of that number, which goes well.
inline std::function< int() > meanwhile( unsigned number, std::function< void() > act ) {
   return [number, act = std::move( act ), at = 0u]() mutable {
      if( at++ == number ) {
         act();
      }
      return 0;
   };
}

} // namespace Kel::Testing
