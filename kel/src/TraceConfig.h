// What KEL_TRACE and KEL_TRACE_FILE ask for, read once. Immutable then, so no lock.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Kel::Impl {

class TraceConfig {
 public:
   // A bit for each of the levels 0 to 9.
   using Levels = unsigned;
   static constexpr Levels allLevels = 0x3ff;

   // The configuration of the process. The first call reads the environment.
   static TraceConfig const& instance();

   TraceConfig( TraceConfig const& ) = delete;
   TraceConfig& operator=( TraceConfig const& ) = delete;

   // The levels of a handle, or `unlisted` if KEL_TRACE does not name it.
   Levels levels( std::string_view handle, Levels unlisted ) const;

   // Where lines go.
   int descriptor() const { return descriptor_; }

 private:
   struct Entry {
      std::string handle;
      Levels levels;
   };

   TraceConfig();
   ~TraceConfig();

   void entryIs( std::string_view entry );

   std::vector< Entry > entries_;
   int descriptor_;
};

} // namespace Kel::Impl
