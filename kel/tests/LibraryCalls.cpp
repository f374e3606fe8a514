// The program's own symbols stand before those of the libraries.
#include "LibraryCalls.h"

#include <cerrno>
#include <cstddef>
#include <utility>

#ifndef KEL_SANITIZED

#include <dlfcn.h>
#include <execinfo.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

namespace Kel::Testing {

namespace {

constinit thread_local OnCall* arranged[static_cast< int >( Call::calls )] = {};

OnCall*& place( Call call ) {
   return arranged[static_cast< int >( call )];
}

// True if the call has to fail, with errno set.
bool fails( Call call ) {
   OnCall* const met = std::exchange( place( call ), nullptr );
   if( !met ) {
      return false;
   }
   int const kept = errno;
   int const error = met->meets();
   place( call ) = met;
   errno = error ? error : kept;
   return error != 0;
}

// The function that would be called without this file.
template< class Function >
Function* real( Function*, char const* name ) {
   return reinterpret_cast< Function* >( dlsym( RTLD_NEXT, name ) );
}

} // namespace

OnCall::OnCall( Call call, std::function< int() > meet )
   : call_( call ), meet_( std::move( meet ) ) {
   place( call_ ) = this;
}

OnCall::~OnCall() {
   place( call_ ) = nullptr;
}

int OnCall::meets() {
   ++met_;
   return meet_();
}

} // namespace Kel::Testing

using Kel::Testing::Call;
using Kel::Testing::fails;
using Kel::Testing::real;

#define KEL_INTERPOSED extern "C" __attribute__( ( visibility( "default" ) ) )

extern "C" void* __libc_malloc( std::size_t size );
extern "C" void* __libc_calloc( std::size_t count, std::size_t size );

KEL_INTERPOSED void* malloc( std::size_t size ) noexcept {
   return fails( Call::malloc ) ? nullptr : __libc_malloc( size );
}

KEL_INTERPOSED void* calloc( std::size_t count, std::size_t size ) noexcept {
   return fails( Call::calloc ) ? nullptr : __libc_calloc( count, size );
}

KEL_INTERPOSED int backtrace( void** frames, int size ) {
   static auto* const next = real( &backtrace, "backtrace" );
   return fails( Call::backtrace ) ? 0 : next( frames, size );
}

KEL_INTERPOSED int eventfd( unsigned count, int flags ) noexcept {
   static auto* const next = real( &eventfd, "eventfd" );
   return fails( Call::eventfd ) ? -1 : next( count, flags );
}

KEL_INTERPOSED void* mmap(
   void* address, std::size_t size, int protection, int flags, int file, off_t at ) noexcept {
   static auto* const next = real( &mmap, "mmap" );
   return fails( Call::mmap ) ? MAP_FAILED : next( address, size, protection, flags, file, at );
}

KEL_INTERPOSED int nanosleep( timespec const* time, timespec* left ) {
   static auto* const next = real( &nanosleep, "nanosleep" );
   return fails( Call::nanosleep ) ? -1 : next( time, left );
}

KEL_INTERPOSED ssize_t read( int file, void* bytes, std::size_t size ) {
   static auto* const next = real( &read, "read" );
   return fails( Call::read ) ? -1 : next( file, bytes, size );
}

KEL_INTERPOSED int sigaltstack( stack_t const* stack, stack_t* before ) noexcept {
   static auto* const next = real( &sigaltstack, "sigaltstack" );
   return fails( Call::sigaltstack ) ? -1 : next( stack, before );
}

KEL_INTERPOSED int timer_create( clockid_t clock, sigevent* event, timer_t* timer ) noexcept {
   static auto* const next = real( &timer_create, "timer_create" );
   return fails( Call::timerCreate ) ? -1 : next( clock, event, timer );
}

KEL_INTERPOSED ssize_t write( int file, void const* bytes, std::size_t size ) {
   static auto* const next = real( &write, "write" );
   return fails( Call::write ) ? -1 : next( file, bytes, size );
}

#endif
