// The PyServer of the agent. GIL.
#pragma once

#include <kelpy/core/PyRef.h>

#include "AgentOptions.h"

class Server {
 public:
   Server() = default;
   Server( Server const& ) = delete;
   Server& operator=( Server const& ) = delete;

   // Listens and announces the agent; false with a Python error.
   bool start( AgentOptions const& options );
   // Takes back what start() did. What goes wrong is told on standard error.
   void stop();

 private:
   PyRef object_;
};
