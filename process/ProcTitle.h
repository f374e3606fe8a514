// The title of the process, as `ps` shows it. A lock of its own inside; the first change must not
// meet another thread that changes the environment.
#pragma once

// Makes the title "a b", or the one of the two that is neither null nor empty. It is written over
// the memory of the arguments that the process started with, and of its environment, whose texts
// move elsewhere on the first call. `argv` is the vector that the process got, with `argc` texts;
// if it is null, or none of its memory is known, the title is only kept. A title longer than that
// memory is cut for `ps`. Throws std::bad_alloc.
__attribute__( ( visibility( "default" ) ) ) void procTitleIs(
   int argc, char** argv, char const* a, char const* b );

// The whole title last set, or null if none was. Valid until the next procTitleIs.
__attribute__( ( visibility( "default" ) ) ) char const* procTitle();
