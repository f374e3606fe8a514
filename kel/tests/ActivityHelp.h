// Short ways to the activity loop, for tests.
#pragma once

#include <kel/Activity.h>

namespace Unit {

// It lives on, and tests that wait for it without the lock must not touch its count.
inline Kel::ActivityManager& manager() {
   static auto* const it = static_cast< Kel::ActivityManager* >(
      Kel::Entity::singleton( "Kel::ActivityManager" ).get() );
   return *it;
}

} // namespace Unit
