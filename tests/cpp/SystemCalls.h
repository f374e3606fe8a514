// What the agent client's calls into the system meet, where no server can bring it about. For
// calls of the thread that made this, until its scope ends.
#pragma once

#include <deque>
#include <functional>
#include <vector>

class SystemCalls {
 public:
   SystemCalls();
   SystemCalls( SystemCalls const& ) = delete;
   SystemCalls& operator=( SystemCalls const& ) = delete;
   ~SystemCalls();

   // The error numbers of the next calls, each one used up: 0 stands for the real call. Without any
   // left, calls are real.
   std::deque< int > connect, send, recv, socket;
   // The lengths of the addresses that connect got.
   std::vector< unsigned int > addressLengths;
   // The next connect is made and then fails with EINTR all the same.
   bool connectIsInterruptedLate = false;
   // What getaddrinfo returns; 0 for the real call.
   int getaddrinfo = 0;

   // From now on nanosleep only notes how long it was asked for, in milliseconds, and the runtime's
   // clock goes on by as much.
   void sleepsAreNoted() { notesSleeps_ = true; }
   std::vector< double > sleeps;
   // How many of the next nanosleeps are interrupted after half of their time.
   int interruptedSleeps = 0;
   // Called at each of them, at its beginning.
   std::function< void() > onSleep;
   bool notesSleeps() const { return notesSleeps_; }
   double now = 1000;

 private:
   bool notesSleeps_ = false;
};
