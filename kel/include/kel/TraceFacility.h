// The trace facility as an entity: what Python hands to trace calls. Its name is the trace handle.
#pragma once

#include <kel/Entity.h>
#include <kel/Trace.h>

namespace Kel {

class TraceFacility;
enum class TraceDestination : U8 { standardError = 0, file = 1 };

KEL_TYPES(
   _TraceFacility_9f2b368972944a5e_kelModule, FacilityLevel, TraceDestination, TraceFacility );

class KEL_API TraceFacility : public Entity {
 public:
   KEL_OBJECT( TraceFacility )

   using FacilityLevel = ::Kel::FacilityLevel;

   using Entity::Entity;
   // Where the lines of this process go: to the file only if that could be opened.
   TraceDestination destination() const;
};

} // namespace Kel
