// The program's own symbols stand before those of the libraries, so that these functions take the
// place of the allocators that libpython, libKelPy and the C++ library call.
#include "FailingMemory.h"

#include <kelpy/core/PyPython.h>

#include <dlfcn.h>

#include <algorithm>
#include <array>

#include <kel/Mem.h>

namespace {

constinit bool armed = false;
constinit bool hasFailed = false;
constinit unsigned left = 0;
constinit auto whichFail = FailingMemory::Of::all;

// Where malloc was asked while armed; a place is free if its block is null.
struct Block {
   void* block;
   std::size_t size;
};
constinit std::array< Block, 4096 > blocks{};

bool fails( FailingMemory::Of caller ) {
   if( !armed || hasFailed || ( whichFail != caller && whichFail != FailingMemory::Of::all ) ) {
      return false;
   }
   hasFailed = left == 0;
   --left;
   return hasFailed;
}

#ifndef KEL_SANITIZED
// How many places were ever taken, one behind the other: those that a free has to look at.
constinit std::size_t placesTaken = 0;

void note( void* block, std::size_t size ) {
   if( !armed || !block ) {
      return;
   }
   auto* const place = std::ranges::find( blocks, static_cast< void* >( nullptr ), &Block::block );
   if( place != blocks.end() ) {
      *place = { block, size };
      auto const taken = static_cast< std::size_t >( place - blocks.begin() ) + 1;
      placesTaken = std::max( placesTaken, taken );
   }
}

void forget( void* block ) {
   if( !block ) {
      return;
   }
   auto* const end = blocks.begin() + placesTaken;
   auto* const place = std::find_if(
      blocks.begin(), end, [block]( Block const& each ) { return each.block == block; } );
   if( place != end ) {
      *place = {};
   }
}
#endif

} // namespace

FailingMemory::FailingMemory( unsigned number, Of which ) {
   left = number;
   whichFail = which;
   hasFailed = false;
   armed = true;
}

FailingMemory::~FailingMemory() {
   armed = false;
}

bool FailingMemory::failed() {
   return hasFailed;
}

bool FailingMemory::reachesInterpreter() {
   PyObject* text = nullptr;
   {
      FailingMemory const memory( 0, Of::python );
      text = PyString_FromString( "a text that nobody has made before" );
   }
   Py_XDECREF( text );
   PyErr_Clear();
   return hasFailed;
}

std::size_t blocksAlive( std::size_t size ) {
   return static_cast< std::size_t >( std::ranges::count_if(
      blocks, [size]( Block const& each ) { return each.block && each.size == size; } ) );
}

#define KEL_INTERPOSED extern "C" __attribute__( ( visibility( "default" ) ) )

KEL_INTERPOSED void* PyObject_Malloc( std::size_t size ) {
   static auto* const real =
      reinterpret_cast< void* (*)( std::size_t ) >( dlsym( RTLD_NEXT, "PyObject_Malloc" ) );
   return fails( FailingMemory::Of::python ) ? nullptr : real( size );
}

#ifdef KEL_SANITIZED

KEL_INTERPOSED void* PyMem_Malloc( std::size_t size ) {
   static auto* const real =
      reinterpret_cast< void* (*)( std::size_t ) >( dlsym( RTLD_NEXT, "PyMem_Malloc" ) );
   return fails( FailingMemory::Of::python ) ? nullptr : real( size );
}

#else

extern "C" void* __libc_malloc( std::size_t size );
extern "C" void __libc_free( void* block );

KEL_INTERPOSED void* malloc( std::size_t size ) noexcept {
   void* const block = fails( FailingMemory::Of::all ) ? nullptr : __libc_malloc( size );
   note( block, size );
   return block;
}

KEL_INTERPOSED void free( void* block ) noexcept {
   forget( block );
   __libc_free( block );
}

#endif
