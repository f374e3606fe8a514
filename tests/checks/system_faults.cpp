// Preloaded into an interpreter: stands before calls into the kernel and lets one of them, counted
// from the last arming, fail with an error or do less than it could.
#include <dlfcn.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <fcntl.h>

namespace {

// Not an error: the call is for one byte at most.
constexpr int oneByte = -1;

constinit std::atomic< int > left{ 0 }; // calls up to the one that fails, 0 for none
constinit std::atomic< int > wanted{ 0 };
constinit std::atomic< int > made{ 0 };
constinit std::atomic< bool > isArmed{ false };
constinit std::atomic< char const* > failed{ nullptr }; // the name of the call
constinit thread_local bool isSpared __attribute__( ( tls_model( "initial-exec" ) ) ) = false;

// What has to become of a call: 0 for the real thing.
int faultOf( char const* name ) {
   if( !isArmed || isSpared ) {
      return 0;
   }
   ++made;
   if( left.fetch_sub( 1 ) != 1 ) {
      return 0;
   }
   failed = name;
   return wanted;
}

template< auto function >
auto real( char const* name ) {
   static auto* const next = reinterpret_cast< decltype( function ) >( dlsym( RTLD_NEXT, name ) );
   return next;
}

// Fails, or makes the call.
template< class Call >
auto result( char const* name, Call call ) {
   int const fault = faultOf( name );
   if( fault > 0 ) {
      errno = fault;
      return static_cast< decltype( call() ) >( -1 );
   }
   return call();
}

// The same for calls that move bytes.
template< class Call >
ssize_t moved( char const* name, std::size_t size, Call call ) {
   int const fault = faultOf( name );
   if( fault > 0 ) {
      errno = fault;
      return -1;
   }
   return call( fault == oneByte ? std::min< std::size_t >( size, 1 ) : size );
}

} // namespace

#define KEL_STAND_IN extern "C" __attribute__( ( visibility( "default" ) ) )

// The call of that ordinal, from 1 on, made by whatever thread that is not spared, meets the fault.
// An ordinal of 0 counts only.
KEL_STAND_IN void kel_faults_arm( int ordinal, int fault ) {
   failed = nullptr;
   made = 0;
   wanted = fault;
   left = ordinal;
   isArmed = true;
}

// No more faults; how many calls there were.
KEL_STAND_IN int kel_faults_disarm() {
   isArmed = false;
   return made;
}

// The call that has failed, null if none has.
KEL_STAND_IN char const* kel_faults_failed() {
   return failed;
}

// Spares the calls of this thread.
KEL_STAND_IN void kel_faults_spare( int spared ) {
   isSpared = spared != 0;
}

KEL_STAND_IN int socket( int domain, int type, int protocol ) noexcept {
   return result( "socket", [&] { return real< &socket >( "socket" )( domain, type, protocol ); } );
}

KEL_STAND_IN int socketpair( int domain, int type, int protocol, int ends[2] ) noexcept {
   return result( "socketpair",
      [&] { return real< &socketpair >( "socketpair" )( domain, type, protocol, ends ); } );
}

KEL_STAND_IN int connect( int sock, sockaddr const* address, socklen_t length ) {
   return result(
      "connect", [&] { return real< &connect >( "connect" )( sock, address, length ); } );
}

KEL_STAND_IN int accept( int sock, sockaddr* address, socklen_t* length ) {
   return result( "accept", [&] { return real< &accept >( "accept" )( sock, address, length ); } );
}

KEL_STAND_IN int bind( int sock, sockaddr const* address, socklen_t length ) noexcept {
   return result( "bind", [&] { return real< &bind >( "bind" )( sock, address, length ); } );
}

KEL_STAND_IN int listen( int sock, int backlog ) noexcept {
   return result( "listen", [&] { return real< &listen >( "listen" )( sock, backlog ); } );
}

KEL_STAND_IN int shutdown( int sock, int how ) noexcept {
   return result( "shutdown", [&] { return real< &shutdown >( "shutdown" )( sock, how ); } );
}

KEL_STAND_IN int getsockopt(
   int sock, int level, int name, void* value, socklen_t* length ) noexcept {
   return result( "getsockopt",
      [&] { return real< &getsockopt >( "getsockopt" )( sock, level, name, value, length ); } );
}

KEL_STAND_IN int setsockopt(
   int sock, int level, int name, void const* value, socklen_t length ) noexcept {
   return result( "setsockopt",
      [&] { return real< &setsockopt >( "setsockopt" )( sock, level, name, value, length ); } );
}

KEL_STAND_IN int poll( pollfd* descriptors, nfds_t count, int milliseconds ) {
   return result(
      "poll", [&] { return real< &poll >( "poll" )( descriptors, count, milliseconds ); } );
}

KEL_STAND_IN int flock( int descriptor, int operation ) noexcept {
   return result( "flock", [&] { return real< &flock >( "flock" )( descriptor, operation ); } );
}

KEL_STAND_IN int fchmod( int descriptor, mode_t mode ) noexcept {
   return result( "fchmod", [&] { return real< &fchmod >( "fchmod" )( descriptor, mode ); } );
}

KEL_STAND_IN int mkdir( char const* path, mode_t mode ) noexcept {
   return result( "mkdir", [&] { return real< &mkdir >( "mkdir" )( path, mode ); } );
}

KEL_STAND_IN int open64( char const* path, int flags, ... ) {
   // The mode is passed where it counts, and there is some word in any case.
   using Open = int ( * )( char const*, int, mode_t );
   static auto* const next = reinterpret_cast< Open >( dlsym( RTLD_NEXT, "open64" ) );
   __builtin_va_list rest;
   __builtin_va_start( rest, flags );
   mode_t const mode = flags & O_CREAT ? __builtin_va_arg( rest, mode_t ) : 0;
   __builtin_va_end( rest );
   return result( "open", [&] { return next( path, flags, mode ); } );
}

KEL_STAND_IN int open( char const* path, int flags, ... ) {
   __builtin_va_list rest;
   __builtin_va_start( rest, flags );
   mode_t const mode = flags & O_CREAT ? __builtin_va_arg( rest, mode_t ) : 0;
   __builtin_va_end( rest );
   return open64( path, flags, mode );
}

KEL_STAND_IN ssize_t send( int sock, void const* data, std::size_t size, int flags ) {
   return moved( "send", size, [&]( std::size_t allowed ) {
      return real< &send >( "send" )( sock, data, allowed, flags );
   } );
}

KEL_STAND_IN ssize_t recv( int sock, void* data, std::size_t size, int flags ) {
   return moved( "recv", size, [&]( std::size_t allowed ) {
      return real< &recv >( "recv" )( sock, data, allowed, flags );
   } );
}

KEL_STAND_IN ssize_t read( int descriptor, void* data, std::size_t size ) {
   return moved( "read", size,
      [&]( std::size_t allowed ) { return real< &read >( "read" )( descriptor, data, allowed ); } );
}

KEL_STAND_IN ssize_t write( int descriptor, void const* data, std::size_t size ) {
   return moved( "write", size, [&]( std::size_t allowed ) {
      return real< &write >( "write" )( descriptor, data, allowed );
   } );
}
