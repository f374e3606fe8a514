// What a server leaves in the file system if its process ends without it.
#pragma once

#include <string>

struct Leavings {
   std::string agentFile;
   std::string socket;

   // Removes both, under the lock of the agents' folder, unless they are gone or the agent file is
   // another process's by now. Needs no GIL and waits for nothing but, shortly, that lock.
   void remove() const;
};
