// The registered types, as a runtime object that programs in any language can read.
#pragma once

#include <kel/Entity.h>

namespace Kel {

class TypeRegistry;

KEL_TYPES( _TypeRegistry_c2be9417_kelModule, TypeRegistry );

class KEL_API TypeRegistry : public Entity {
 public:
   KEL_OBJECT( TypeRegistry )

   TypeRegistry();
   // The full names of all types, sorted, each on a line of its own. Takes no lock.
   String typeNames() const;
};

} // namespace Kel
