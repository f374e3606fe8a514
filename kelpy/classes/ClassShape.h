// The slots of a class by its shape: built-in or enum, derived, or root of a hierarchy. GIL.
#pragma once

#include <kelpy/core/PyPython.h>

#include <kel/KelType.h>

// Fills the slots of a class that is not ready yet. `baseType` is null for a class without a
// base. What a slot does not name here, a derived class inherits from its base's class.
void setClassSlots( PyTypeObject& cls, Kel::KelType type, Kel::KelType baseType );
