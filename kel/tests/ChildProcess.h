// Runs a piece of a test in a forked child: for what ends a process or needs one of its own.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace Kel::Testing {

struct Outcome {
   int status;
   std::string errors; // what the child wrote to standard error

   bool killedBy( int number ) const {
      return WIFSIGNALED( status ) && WTERMSIG( status ) == number;
   }
   // -1 if it did not exit by itself.
   int exitCode() const { return WIFEXITED( status ) ? WEXITSTATUS( status ) : -1; }
};

// Whether a child may start threads. The thread sanitizer holds the parent's activity lock, which
// is a new one in the child, against them, and ends a child whose parent has several.
#ifdef __SANITIZE_THREAD__
constexpr bool childrenHaveThreads = false;
#else
constexpr bool childrenHaveThreads = true;
#endif

// `body` returns the exit code. The child is ended by SIGALRM if it takes too long.
template< class Body >
Outcome inChild( Body body ) {
   constexpr unsigned deadlineSeconds = 20;
   int ends[2];
   if( pipe( ends ) != 0 ) {
      std::abort();
   }
   pid_t const child = fork();
   if( child == 0 ) {
      alarm( deadlineSeconds );
      dup2( ends[1], STDERR_FILENO );
      close( ends[0] );
      close( ends[1] );
      _exit( body() );
   }
   close( ends[1] );
   Outcome outcome{};
   char buffer[4096];
   for( ssize_t got; ( got = read( ends[0], buffer, sizeof buffer ) ) > 0; ) {
      outcome.errors.append( buffer, static_cast< std::size_t >( got ) );
   }
   close( ends[0] );
   waitpid( child, &outcome.status, 0 );
   return outcome;
}

} // namespace Kel::Testing
