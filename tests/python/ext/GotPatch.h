// Puts other functions in the place of those that one loaded library calls, by the table through
// which it calls them. No lock; before the library has threads.
#pragma once

#include <elf.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <utility>

class LoadedLibrary {
 public:
   // The one that has that function of its own.
   explicit LoadedLibrary( void const* function ) : function_( function ) {
      dl_iterate_phdr( find, this );
   }

   bool contains( void const* address ) const {
      auto const at = reinterpret_cast< std::uintptr_t >( address );
      return at >= begin_ && at < end_;
   }

   // Whether the library calls a function of that name.
   bool replace( char const* function, void* by ) const {
      auto const* const symbols = pointer< ElfW( Sym ) >( DT_SYMTAB );
      auto const* const strings = pointer< char >( DT_STRTAB );
      bool found = false;
      for( auto const& [table, size] :
         { std::pair{ DT_RELA, DT_RELASZ }, { DT_JMPREL, DT_PLTRELSZ } } ) {
         auto const* const relocations = pointer< ElfW( Rela ) >( table );
         auto const count = relocations ? value( size ) / sizeof( ElfW( Rela ) ) : 0;
         for( std::size_t i = 0; i < count; ++i ) {
            auto const type = ELF64_R_TYPE( relocations[i].r_info );
            auto const* const name =
               strings + symbols[ELF64_R_SYM( relocations[i].r_info )].st_name;
            if( ( type == R_X86_64_GLOB_DAT || type == R_X86_64_JUMP_SLOT ) &&
                !std::strcmp( name, function ) ) {
               write( base_ + relocations[i].r_offset, by );
               found = true;
            }
         }
      }
      return found;
   }

 private:
   static int find( dl_phdr_info* info, std::size_t, void* closure ) {
      auto& self = *static_cast< LoadedLibrary* >( closure );
      self.base_ = info->dlpi_addr;
      for( int i = 0; i < info->dlpi_phnum; ++i ) {
         auto const& part = info->dlpi_phdr[i];
         if( part.p_type == PT_DYNAMIC ) {
            self.dynamic_ = reinterpret_cast< ElfW( Dyn ) const* >( self.base_ + part.p_vaddr );
         } else if( part.p_type == PT_LOAD && ( part.p_flags & PF_X ) ) {
            self.begin_ = self.base_ + part.p_vaddr;
            self.end_ = self.begin_ + part.p_memsz;
         }
      }
      return self.contains( self.function_ );
   }

   std::uintptr_t value( ElfW( Sxword ) tag ) const {
      for( auto const* entry = dynamic_; entry->d_tag != DT_NULL; ++entry ) {
         if( entry->d_tag == tag ) {
            return entry->d_un.d_ptr;
         }
      }
      return 0;
   }

   template< class T >
   T const* pointer( ElfW( Sxword ) tag ) const {
      return reinterpret_cast< T const* >( value( tag ) );
   }

   // What the loader has made read-only once all was bound is written all the same.
   static void write( std::uintptr_t where, void* what ) {
      auto const page = static_cast< std::uintptr_t >( getpagesize() );
      auto const start = where / page * page;
      mprotect( reinterpret_cast< void* >( start ), page, PROT_READ | PROT_WRITE );
      *reinterpret_cast< void** >( where ) = what;
   }

   void const* function_;
   std::uintptr_t base_ = 0;
   std::uintptr_t begin_ = 0;
   std::uintptr_t end_ = 0;
   ElfW( Dyn ) const* dynamic_ = nullptr;
};
