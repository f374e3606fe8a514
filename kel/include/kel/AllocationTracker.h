// What the allocation records tell, as a runtime object that programs in any language can read.
// Activity lock.
#pragma once

#include <kel/Collections.h>
#include <kel/Entity.h>

namespace Kel {

class AllocationTracker;
struct AllocatedType;

KEL_TYPES( _AllocationTracker_51f0c2aa_kelModule, AllocatedType, AllocationTracker );

// The objects of one C++ type that are alive, and the bytes of their own size.
struct AllocatedType {
   U64 objects = 0;
   U64 bytes = 0;
};

class KEL_API AllocationTracker : public Entity {
 public:
   KEL_OBJECT( AllocationTracker )

   AllocationTracker();
   // Counts anew.
   void update();
   // What the last update found, by the name of the C++ type. A type of which no object was ever
   // made is not there.
   Map< String, AllocatedType > const& type() const { return type_; }

 private:
   Map< String, AllocatedType > type_;
};

} // namespace Kel
