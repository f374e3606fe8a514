// kel_checked: watches every function that the module gives to the interpreter. Imported ahead of
// _Kel, it puts a piece of code in front of each slot, getter, setter and method, which compares
// what comes back with whether an error is set. What is wrong, and how much was watched, goes to
// the file that KEL_CHECKED_LOG names. GIL.
#include <kelpy/core/PyPython.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <unordered_map>

#include "GotPatch.h"

namespace {

enum class Result { object, status, number, iteration };

// One watched function.
struct Watched {
   std::string name;
   Result result;
};

LoadedLibrary* library_ = nullptr;
unsigned long calls_ = 0;

void log( std::string const& line ) {
   char const* const path = std::getenv( "KEL_CHECKED_LOG" );
   int const file = path ? open( path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600 ) : -1;
   if( file >= 0 ) {
      [[maybe_unused]] auto const written = write( file, line.data(), line.size() );
      close( file );
   }
}

// A status is an int: its upper half is anything.
bool hasFailed( Result result, long value ) {
   switch( result ) {
   case Result::status:
      return static_cast< int >( value ) == -1;
   case Result::number:
      return value == -1;
   default:
      return value == 0;
   }
}

// The watched call gave the value; the caller gets it, too.
long checked( long value, Watched const* watched ) {
   ++calls_;
   bool const isPending = PyErr_Occurred() != nullptr;
   bool const failed = hasFailed( watched->result, value );
   bool const isWrong = failed ? !isPending && watched->result != Result::iteration : isPending;
   if( isWrong ) {
      log( "VIOLATION " + watched->name +
           ( failed ? ": fails without an error\n" : ": succeeds with an error\n" ) );
   }
   return value;
}

// Code that calls the function with the arguments as they are and then `checked`.
class Thunks {
 public:
   void* make( void* function, Watched const* watched ) {
      unsigned char code[64];
      std::size_t size = 0;
      auto const bytes = [&]( std::initializer_list< int > list ) {
         for( int const byte : list ) {
            code[size++] = static_cast< unsigned char >( byte );
         }
      };
      auto const address = [&]( void const* value ) {
         std::memcpy( code + size, &value, sizeof value );
         size += sizeof value;
      };
      bytes( { 0x48, 0x83, 0xec, 0x08 } ); // sub rsp, 8
      bytes( { 0x48, 0xb8 } );             // mov rax, function
      address( function );
      bytes( { 0xff, 0xd0 } );       // call rax
      bytes( { 0x48, 0x89, 0xc7 } ); // mov rdi, rax
      bytes( { 0x48, 0xbe } );       // mov rsi, watched
      address( watched );
      bytes( { 0x48, 0xb8 } ); // mov rax, checked
      address( reinterpret_cast< void* >( checked ) );
      bytes( { 0xff, 0xd0 } );             // call rax
      bytes( { 0x48, 0x83, 0xc4, 0x08 } ); // add rsp, 8
      bytes( { 0xc3 } );                   // ret
      if( next_ + size > end_ ) {
         next_ = static_cast< unsigned char* >( mmap( nullptr, blockSize,
            PROT_READ | PROT_WRITE | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0 ) );
         end_ = next_ + blockSize;
      }
      auto* const made = static_cast< unsigned char* >( std::memcpy( next_, code, size ) );
      next_ += ( size + 15 ) / 16 * 16;
      return made;
   }

 private:
   static constexpr std::size_t blockSize = 1 << 16;
   unsigned char* next_ = nullptr;
   unsigned char* end_ = nullptr;
};

Thunks thunks_;
std::unordered_map< void*, void* > made_; // by the watched function; immortal, like the types

// Replaces the function by one that is watched, unless it is not the module's own.
template< class Function >
void watch( Function& function, std::string const& name, Result result ) {
   auto* const address = reinterpret_cast< void* >( function );
   if( !address || !library_->contains( address ) ) {
      return;
   }
   auto& thunk = made_[address];
   if( !thunk ) {
      thunk = thunks_.make( address, new Watched{ name, result } );
   }
   function = reinterpret_cast< Function >( thunk );
}

void watchNumbers( PyNumberMethods* table, std::string const& name ) {
   if( !table ) {
      return;
   }
   for( auto* slot : { &table->nb_add, &table->nb_subtract, &table->nb_multiply, &table->nb_divide,
           &table->nb_remainder, &table->nb_and, &table->nb_xor, &table->nb_or,
           &table->nb_floor_divide, &table->nb_true_divide } ) {
      watch( *slot, name + " (a number slot)", Result::object );
   }
   watch( table->nb_invert, name + ".__invert__", Result::object );
   watch( table->nb_nonzero, name + ".__nonzero__", Result::status );
}

void watchContainers( PyTypeObject& type, std::string const& name ) {
   if( auto* const table = type.tp_as_sequence ) {
      watch( table->sq_contains, name + ".__contains__", Result::status );
      watch( table->sq_length, name + ".__len__", Result::number );
      watch( table->sq_item, name + ".__getitem__", Result::object );
   }
   if( auto* const table = type.tp_as_mapping ) {
      watch( table->mp_length, name + ".__len__", Result::number );
      watch( table->mp_subscript, name + ".__getitem__", Result::object );
      watch( table->mp_ass_subscript, name + ".__setitem__", Result::status );
   }
}

void watchMethods( PyMethodDef* methods, std::string const& name ) {
   for( ; methods && methods->ml_name; ++methods ) {
      watch( methods->ml_meth, name + "." + methods->ml_name, Result::object );
   }
}

void watchType( PyTypeObject& type ) {
   std::string const name = type.tp_name;
   watch( type.tp_repr, name + ".__repr__", Result::object );
   watch( type.tp_str, name + ".__str__", Result::object );
   watch( type.tp_hash, name + ".__hash__", Result::number );
   watch( type.tp_call, name + ".__call__", Result::object );
   watch( type.tp_getattro, name + ".__getattribute__", Result::object );
   watch( type.tp_setattro, name + ".__setattr__", Result::status );
   watch( type.tp_richcompare, name + " (comparison)", Result::object );
   watch( type.tp_iter, name + ".__iter__", Result::object );
   watch( type.tp_iternext, name + ".next", Result::iteration );
   watch( type.tp_descr_get, name + ".__get__", Result::object );
   watch( type.tp_descr_set, name + ".__set__", Result::status );
   watch( type.tp_new, name + ".__new__", Result::object );
   watch( type.tp_init, name + ".__init__", Result::status );
   watchNumbers( type.tp_as_number, name );
   watchContainers( type, name );
   watchMethods( type.tp_methods, name );
   for( auto* row = type.tp_getset; row && row->name; ++row ) {
      watch( row->get, name + "." + row->name, Result::object );
      watch( row->set, name + "." + row->name + " =", Result::status );
   }
}

// In the place of the interpreter's own, for the module.
int readyWatched( PyTypeObject* type ) {
   watchType( *type );
   return PyType_Ready( type );
}

PyObject* initWatched(
   char const* name, PyMethodDef* methods, char const* doc, PyObject* self, int version ) {
   watchMethods( methods, name );
   return Py_InitModule4( name, methods, doc, self, version );
}

void told() {
   log( "CALLS " + std::to_string( calls_ ) + " of " + std::to_string( made_.size() ) +
        " functions\n" );
}

PyObject* failsInSilence( PyObject*, PyObject* ) {
   return nullptr;
}

PyObject* succeedsInError( PyObject*, PyObject* ) {
   PyErr_SetString( PyExc_ValueError, "pending" );
   Py_RETURN_NONE;
}

constinit PyMethodDef functions[] = {
   { "failsInSilence", failsInSilence, METH_NOARGS, "A fault to find." },
   { "succeedsInError", succeedsInError, METH_NOARGS, "Another one." },
   {},
};

// The module's library, loaded but not yet initialised.
void* moduleEntry() {
   Dl_info own;
   dladdr( reinterpret_cast< void* >( failsInSilence ), &own );
   std::string const path = own.dli_fname;
   auto const library = path.substr( 0, path.rfind( '/' ) + 1 ) + "libKelPy.so";
   void* const handle = dlopen( library.c_str(), RTLD_NOW );
   return handle ? dlsym( handle, "init_Kel" ) : nullptr;
}

} // namespace

extern "C" __attribute__( ( visibility( "default" ) ) ) void initkel_checked() {
   static LoadedLibrary own( reinterpret_cast< void* >( failsInSilence ) );
   library_ = &own;
   watchMethods( functions, "kel_checked" );
   void* const entry = moduleEntry();
   static LoadedLibrary module( entry );
   library_ = &module;
   if( !entry || !module.replace( "PyType_Ready", reinterpret_cast< void* >( readyWatched ) ) ||
       !module.replace( "Py_InitModule4_64", reinterpret_cast< void* >( initWatched ) ) ) {
      PyErr_SetString( PyExc_ImportError, "libKelPy.so calls the interpreter in another way" );
      return;
   }
   std::atexit( told );
   Py_InitModule( "kel_checked", functions );
}
