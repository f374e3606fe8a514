#include "LockGraph.h"

#include <dlfcn.h>
#include <execinfo.h>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>

namespace LockGraph {

namespace {

constexpr int maxNodes = 64;
constexpr int maxHeld = 16;

struct Lock {
   std::atomic< void const* > address;
   char name[64];
};

constinit Lock locks[maxNodes] = { { {}, "GIL" }, { {}, "activity lock" }, { {}, "import lock" },
   { {}, "keys" } };
constinit std::atomic< int > count{ firstOther };
// Held, wanted; the second for a fork.
constinit std::atomic< bool > edges[2][maxNodes][maxNodes] = {};
constinit std::atomic< long > longest[maxNodes] = {};
constinit std::atomic< long > taken[maxNodes] = {};
constinit std::atomic< int > found{ 0 };
// A forked child has one thread, and locks that nobody else wants.
constinit std::atomic< bool > isChild{ false };
constinit std::atomic< int > log{ -2 };

struct Thread {
   Node held[maxHeld];
   int count;
   long since;
   bool inFork;
   bool busy; // in here already
};

constinit thread_local Thread thread __attribute__( ( tls_model( "initial-exec" ) ) ) = {};

[[gnu::constructor]] void watchForks() {
   pthread_atfork( nullptr, nullptr, [] { isChild = true; } );
}

long now() {
   timespec time = {};
   clock_gettime( CLOCK_MONOTONIC, &time );
   return time.tv_sec * 1'000'000'000 + time.tv_nsec;
}

// Where new edges go: a file of this process in the folder that the environment names, if it does.
int logDescriptor() {
   if( log == -2 ) {
      char path[512];
      char const* const folder = std::getenv( "KEL_LOCK_GRAPH" );
      int const length = folder ? std::snprintf( path, sizeof path, "%s/%d", folder, getpid() ) : 0;
      log = length > 0 ? open( path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600 ) : -1;
   }
   return log;
}

void writeStack( int descriptor ) {
   void* frames[32];
   backtrace_symbols_fd( frames, ::backtrace( frames, 32 ), descriptor );
}

void tellEdge( Node from, Node to ) {
   int const descriptor = logDescriptor();
   if( descriptor < 0 ) {
      return;
   }
   char line[256];
   int const length = std::snprintf( line, sizeof line, "edge\t%s\t%s\t%s\n", locks[from].name,
      locks[to].name, thread.inFork ? "fork" : "" );
   [[maybe_unused]] auto const written =
      write( descriptor, line, static_cast< std::size_t >( length ) );
   writeStack( descriptor );
}

void tellViolation() {
   ++found;
   constexpr char text[] = "\nthe activity lock is wanted with the GIL held, by\n";
   // A process that takes the locks wrongly on purpose names no folder for its log.
   int const descriptor = std::getenv( "KEL_LOCK_GRAPH" ) ? logDescriptor() : STDERR_FILENO;
   [[maybe_unused]] auto const written = write( descriptor, text, sizeof text - 1 );
   writeStack( descriptor );
}

Node newNode( void const* lock, Dl_info const& info ) {
   Node const node = count.fetch_add( 1 );
   if( node >= maxNodes ) {
      return none;
   }
   char const* const slash = std::strrchr( info.dli_fname, '/' );
   std::snprintf( locks[node].name, sizeof locks[node].name, "%s+%#zx",
      slash ? slash + 1 : info.dli_fname,
      static_cast< std::size_t >(
         static_cast< char const* >( lock ) - static_cast< char const* >( info.dli_fbase ) ) );
   locks[node].address = lock;
   return node;
}

bool isWatching() {
   return !isChild && !thread.busy;
}

} // namespace

Node knownNode( void const* lock ) {
   int const known = std::min< int >( count, maxNodes );
   for( Node node = 0; node < known; ++node ) {
      if( locks[node].address.load( std::memory_order_relaxed ) == lock ) {
         return node;
      }
   }
   return none;
}

Node nodeOf( void const* lock ) {
   Node const known = knownNode( lock );
   if( known != none || !isWatching() ) {
      return known;
   }
   thread.busy = true;
   Dl_info info = {};
   Node node = none;
   if( dladdr( lock, &info ) && info.dli_fname ) {
      if( info.dli_saddr == lock && info.dli_sname &&
          std::strstr( info.dli_sname, "activityLock_" ) ) {
         lockIs( activity, lock );
         node = activity;
      } else {
         node = newNode( lock, info );
      }
   }
   thread.busy = false;
   return node;
}

void lockIs( Node node, void const* lock ) {
   locks[node].address = lock;
}

bool isFound( Node node ) {
   return locks[node].address != nullptr;
}

bool holds( Node node ) {
   Thread const& self = thread;
   return std::find( self.held, self.held + self.count, node ) != self.held + self.count;
}

void wanted( Node node ) {
   if( node == none || !isWatching() ) {
      return;
   }
   Thread& self = thread;
   self.busy = true;
   bool const violates = node == activity && holds( gil );
   for( int i = 0; i < self.count; ++i ) {
      if( self.held[i] != node && !edges[self.inFork][self.held[i]][node].exchange( true ) ) {
         tellEdge( self.held[i], node );
      }
   }
   if( violates ) {
      tellViolation();
   }
   self.busy = false;
   self.since = now();
}

void gaveUp( Node node ) {
   if( node == none || !isWatching() || thread.since == 0 ) {
      return;
   }
   long const waited = now() - thread.since;
   thread.since = 0;
   long before = longest[node];
   while( before < waited && !longest[node].compare_exchange_weak( before, waited ) ) {
   }
}

void got( Node node ) {
   gaveUp( node );
   Thread& self = thread;
   if( node != none && isWatching() && self.count < maxHeld ) {
      ++taken[node];
      self.held[self.count++] = node;
   }
}

void released( Node node ) {
   if( node == none || !isWatching() ) {
      return;
   }
   Thread& self = thread;
   for( int i = self.count; i-- > 0; ) {
      if( self.held[i] == node ) {
         std::copy( self.held + i + 1, self.held + self.count, self.held + i );
         --self.count;
         return;
      }
   }
}

void forkBegins() {
   thread.inFork = true;
}

void forkEnds() {
   thread.inFork = false;
}

long longestWait( Node node ) {
   return longest[node];
}

long timesTaken( Node node ) {
   return taken[node];
}

int violations() {
   return found;
}

} // namespace LockGraph
