#include <kel/Assert.h>

#include <cstdlib>
#include <cstring>

#include <kel/CrashReport.h>

#include "SafeText.h"

namespace Kel {

void assertionFailed(
   char const* text, char const* file, int line, char const* function ) noexcept {
   char const* slash = std::strrchr( file, '/' );
   Impl::SafeText message;
   message << "assertion failed: " << text << " (" << ( slash ? slash + 1 : file ) << ":"
           << static_cast< long >( line ) << ", " << function << ")";
   message.endLine();
   Impl::reportAssertion( message.data(), message.length() );
   std::abort();
}

} // namespace Kel
