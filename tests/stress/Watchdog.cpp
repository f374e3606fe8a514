#include "Watchdog.h"

#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <thread>

#include "Stacks.h"

namespace Stress {

namespace {

struct Participant {
   char name[32];
   std::atomic< std::uint64_t > steps;
   std::atomic< bool > done;
   // The watchdog's own.
   std::uint64_t seen;
   double seenAt;
};

constexpr int maxParticipants = 64;
constinit Participant participants[maxParticipants] = {};
constinit std::atomic< int > count{ 0 };
constinit std::atomic< bool > watching{ false };

constinit std::atomic< double > longest{ 0 };

double now() {
   timespec time = {};
   clock_gettime( CLOCK_MONOTONIC, &time );
   return static_cast< double >( time.tv_sec ) + static_cast< double >( time.tv_nsec ) * 1e-9;
}

// Null if all go on.
Participant const* stuckParticipant( double seconds ) {
   int const known = count;
   for( int i = 0; i < known; ++i ) {
      Participant& each = participants[i];
      std::uint64_t const steps = each.steps;
      if( each.done || steps != each.seen || each.seenAt == 0 ) {
         each.seen = steps;
         each.seenAt = now();
      } else if( now() - each.seenAt > seconds ) {
         return &each;
      }
   }
   return nullptr;
}

[[noreturn]] void report( Participant const& stuck, unsigned seconds ) {
   char line[160];
   int const length =
      std::snprintf( line, sizeof line, "\nwatchdog: %s made no step in %u seconds, after %llu\n",
         stuck.name, seconds, static_cast< unsigned long long >( stuck.seen ) );
   [[maybe_unused]] auto const written =
      write( STDERR_FILENO, line, static_cast< std::size_t >( length ) );
   writeStacks();
   _exit( watchdogStatus );
}

void watch( unsigned seconds ) {
   constexpr unsigned pauseMicroseconds = 20'000;
   threadNameIs( "watchdog" );
   while( watching ) {
      double const before = now();
      usleep( pauseMicroseconds );
      longest = std::max< double >( longest, now() - before - pauseMicroseconds * 1e-6 );
      Participant const* const stuck = stuckParticipant( seconds );
      if( stuck && watching ) {
         report( *stuck, seconds );
      }
   }
}

} // namespace

int newParticipant( char const* name ) {
   int const number = count;
   std::strncpy( participants[number].name, name, sizeof participants[number].name - 1 );
   count = number + 1;
   return number;
}

void stepMade( int participant ) {
   ++participants[participant].steps;
}

void participantDone( int participant ) {
   participants[participant].done = true;
}

void startWatchdog( unsigned seconds ) {
   prepareStacks();
   watching = true;
   // Signals of the process are for the threads of the test.
   sigset_t all, before;
   sigfillset( &all );
   pthread_sigmask( SIG_SETMASK, &all, &before );
   std::thread( watch, seconds ).detach();
   pthread_sigmask( SIG_SETMASK, &before, nullptr );
}

double longestDelay() {
   return longest;
}

void stopWatchdog() {
   watching = false;
}

} // namespace Stress
