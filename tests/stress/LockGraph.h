// Which lock was wanted while which was held, by the threads of one process. Called from the
// stand-ins of the C library's functions: takes no lock and allocates nothing.
#pragma once

#include <cstddef>

namespace LockGraph {

// A lock, or -1 for one that nobody asks about. The first four have numbers of their own.
using Node = int;

constexpr Node none = -1;
constexpr Node gil = 0;
constexpr Node activity = 1;
constexpr Node import = 2;
constexpr Node keys = 3; // of Python's thread-local storage
constexpr Node firstOther = 4;

// The node of a lock in the static memory of a library. Its name is the library's with the offset.
Node nodeOf( void const* lock );
// From now on that lock is that node.
void lockIs( Node node, void const* lock );
// `none` for a lock that was not asked about yet.
Node knownNode( void const* lock );
bool isFound( Node node );

bool holds( Node node );
// The calling thread is about to wait for the lock; got() or gaveUp() follows.
void wanted( Node node );
void gaveUp( Node node );
void got( Node node );
void released( Node node );

// What is wanted between the two is wanted for a fork.
void forkBegins();
void forkEnds();

// The longest that anybody has waited, in nanoseconds.
long longestWait( Node node );
// How often it was taken.
long timesTaken( Node node );
// How often the activity lock was wanted with the GIL held.
int violations();

} // namespace LockGraph
