// The owner of a result list of getaddrinfo. No lock.
#pragma once

#include <netdb.h>

#include <kelpy/core/KelPyExport.h>

namespace Kel {

class KELPY_API AddrInfo {
 public:
   // Takes over the list; null for none.
   explicit AddrInfo( addrinfo* list ) noexcept : list_( list ) {}
   AddrInfo( AddrInfo const& ) = delete;
   AddrInfo& operator=( AddrInfo const& ) = delete;
   virtual ~AddrInfo() {
      if( list_ ) {
         freeaddrinfo( list_ );
      }
   }

   addrinfo const* get() const noexcept { return list_; }

 private:
   addrinfo* const list_;
};

} // namespace Kel
