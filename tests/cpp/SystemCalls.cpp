// The program's own symbols stand before those of the libraries.
#include "SystemCalls.h"

#include <dlfcn.h>
#include <netdb.h>
#include <sys/socket.h>
#include <time.h>

#include <cerrno>
#include <utility>

#include <kel/System.h>

namespace {

constinit thread_local SystemCalls* calls = nullptr;

// The function that would be called without this file.
template< class Function >
Function* real( Function*, char const* name ) {
   return reinterpret_cast< Function* >( dlsym( RTLD_NEXT, name ) );
}

// Takes the next error of a list that this thread has; true if the call has to fail with it.
bool fails( std::deque< int > SystemCalls::*errors ) {
   if( !calls || ( calls->*errors ).empty() ) {
      return false;
   }
   int const error = ( calls->*errors ).front();
   ( calls->*errors ).pop_front();
   errno = error;
   return error != 0;
}

// A nanosleep as the test wants it.
int noteSleep( timespec const* time, timespec* left ) {
   double const milliseconds = double( time->tv_sec ) * 1e3 + double( time->tv_nsec ) / 1e6;
   calls->sleeps.push_back( milliseconds );
   if( calls->onSleep ) {
      calls->onSleep();
   }
   if( calls->interruptedSleeps > 0 ) {
      --calls->interruptedSleeps;
      calls->now += milliseconds / 2e3;
      long const half = static_cast< long >( milliseconds * 5e5 );
      *left = { half / 1000000000, half % 1000000000 };
      errno = EINTR;
      return -1;
   }
   calls->now += milliseconds / 1e3;
   return 0;
}

} // namespace

SystemCalls::SystemCalls() {
   calls = this;
}

SystemCalls::~SystemCalls() {
   calls = nullptr;
}

#define KEL_INTERPOSED extern "C" __attribute__( ( visibility( "default" ) ) )

KEL_INTERPOSED int connect( int sock, sockaddr const* address, socklen_t length ) {
   static auto* const next = real( &connect, "connect" );
   if( calls ) {
      calls->addressLengths.push_back( length );
   }
   if( fails( &SystemCalls::connect ) ) {
      return -1;
   }
   int const result = next( sock, address, length );
   if( calls && std::exchange( calls->connectIsInterruptedLate, false ) ) {
      errno = EINTR;
      return -1;
   }
   return result;
}

KEL_INTERPOSED ssize_t send( int sock, void const* data, size_t length, int flags ) {
   static auto* const next = real( &send, "send" );
   return fails( &SystemCalls::send ) ? -1 : next( sock, data, length, flags );
}

KEL_INTERPOSED ssize_t recv( int sock, void* data, size_t length, int flags ) {
   static auto* const next = real( &recv, "recv" );
   return fails( &SystemCalls::recv ) ? -1 : next( sock, data, length, flags );
}

KEL_INTERPOSED int socket( int domain, int type, int protocol ) noexcept {
   static auto* const next = real( &socket, "socket" );
   return fails( &SystemCalls::socket ) ? -1 : next( domain, type, protocol );
}

KEL_INTERPOSED int getaddrinfo(
   char const* node, char const* service, addrinfo const* hints, addrinfo** found ) {
   static auto* const next = real( &getaddrinfo, "getaddrinfo" );
   return calls && calls->getaddrinfo ? calls->getaddrinfo : next( node, service, hints, found );
}

KEL_INTERPOSED int nanosleep( timespec const* time, timespec* left ) {
   static auto* const next = real( &nanosleep, "nanosleep" );
   return calls && calls->notesSleeps() ? noteSleep( time, left ) : next( time, left );
}

__attribute__( ( visibility( "default" ) ) ) Kel::Seconds Kel::System::currentTime() noexcept {
   static auto* const next = real( &currentTime, "_ZN3Kel6System11currentTimeEv" );
   return calls && calls->notesSleeps() ? Seconds( calls->now ) : next();
}
