// Threads that Python never saw, which work on the objects that the threads of Python work on.
#pragma once

#include <string>
#include <vector>

#include <acme/Item.h>
#include <acme/Store.h>
#include <odd/Calls.h>
#include <odd/Notes.h>

namespace Stress {

// What all threads share. Every change of `strict` and `store` is noted, none of `loose` is: there
// the keys "writer:number" tell the order of each writer's changes. `quiet` is the same in these
// two whenever the lock is free.
struct SharedObjects {
   Kel::Ptr< Odd::Notes > strict;
   Kel::Ptr< Odd::Notes > loose;
   Kel::Ptr< Acme::Store > store;
   Kel::Ptr< Acme::Item > item;
   Kel::Ptr< Odd::Args > args;
};

// Starts the threads "n0", "n1" and so on, participants of the watchdog, which make so many steps
// and so many forks. They own the objects from now on. Activity lock.
void startNativeThreads( SharedObjects objects, int threads, int steps, int forks );
// Waits for their end; what went wrong in words. Neither lock.
std::vector< std::string > joinNativeThreads();

// How often they have forked.
int nativeForks();

// Sleeps for a moment, now and then. Not in a forked child, which is alone.
void dawdle();

// Leaves a reference to the native threads, which drop it. Activity lock.
void give( Kel::Ptr< Kel::PtrInterface > object );

} // namespace Stress
