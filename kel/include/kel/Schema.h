// The declaration language: include this where a unit declares its types (KEL_UNIT). A header that
// only defines the classes needs kel/schema/Types.h and kel/Collections.h.
#pragma once

#include <kel/schema/Tables.h>
