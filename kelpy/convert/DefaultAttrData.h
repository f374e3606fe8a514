// The attribute that stands for a whole value in Python, found once for each value type.
// Users hold the GIL, which guards the cache, and the activity lock.
#pragma once

#include <kel/KelAttr.h>
#include <kelpy/core/KelPyExport.h>

// All null for a type without a default attribute.
struct DefaultAttrData {
   Kel::KelAttr getAttr;
   Kel::KelAttr setAttr;
   bool isRepr = false; // the attribute holds Python source text
};

// Valid for good. Throws Kel::TypeException for a bad declaration, each time it is asked.
KELPY_API DefaultAttrData const& defaultAttrData( Kel::KelType const& type );

// The attribute that the type's static text attribute `declaration` names; null if the type
// declares none. A null `requiredType` allows any member type. Throws Kel::TypeException.
KELPY_API Kel::KelAttr findDefaultAttr(
   Kel::KelType const& type, char const* declaration, Kel::KelType requiredType );
