// The embedded Python of an agent. Everything here needs the GIL but for the constructor.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

// The folder of Kel.py and PyServer.py that belongs to this program: in the prefix that it is
// installed in, or in its build tree. Empty if there is none.
std::string modulesFolder();

// From its start to its end; the thread that makes it is Python's main thread and holds the GIL.
class Interpreter {
 public:
   // The modules' folder comes behind those of PYTHONPATH and before all others.
   explicit Interpreter( std::string const& modules );
   Interpreter( Interpreter const& ) = delete;
   Interpreter& operator=( Interpreter const& ) = delete;
   // Waits for the threads that are no daemons and runs the functions of atexit, as Python does.
   ~Interpreter();

   // sys.argv and the script's folder on sys.path.
   void scriptIs( std::vector< std::string > const& script );
   // Runs it in __main__ and closes it; false with a Python error.
   bool run( std::FILE* file, std::string const& path );
};
