// Memory that runs out on demand: Python's allocator and, outside of sanitizers, malloc. One
// thread.
#pragma once

#include <cstddef>

// The allocation with the given number fails, counted from 0 at the construction, and those behind
// it go well. Ends with its scope.
class FailingMemory {
 public:
   enum class Of { all, python };

   explicit FailingMemory( unsigned number, Of which = Of::all );
   FailingMemory( FailingMemory const& ) = delete;
   FailingMemory& operator=( FailingMemory const& ) = delete;
   ~FailingMemory();

   // Whether that many allocations were asked for.
   static bool failed();
   // Whether the interpreter's own requests can be made to fail. One that was linked so that its
   // library calls itself directly asks its own allocator.
   static bool reachesInterpreter();
};

// The number of blocks of that size that malloc gave in the scope of a FailingMemory and that are
// not free yet. Always 0 where malloc is a sanitizer's.
std::size_t blocksAlive( std::size_t size );
