// What the peers share beside the model: the locks as plain functions, for tools that make the code
// around a call themselves, and what is counted of memory.
#pragma once

#include "../Model.h"
#include "../Turn.h"

#include <memory>
#include <vector>

namespace Bench {

// Between the two the caller holds the mutex. Without the GIL.
inline void lockTurn() {
   pthread_mutex_lock( &turnMutex );
}

inline void unlockTurn() {
   pthread_mutex_unlock( &turnMutex );
}

// A class of 20 attributes.
template< int >
struct Made {
   unsigned a0, a1, a2, a3, a4, a5, a6, a7, a8, a9;
   unsigned b0, b1, b2, b3, b4, b5, b6, b7, b8, b9;
};

// Inherits all of Thing, so deep.
template< int depth >
struct Deep : Deep< depth - 1 > {};

template<>
struct Deep< 1 > : Model {};

using Deep4 = Deep< 4 >;

} // namespace Bench
