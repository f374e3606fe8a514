// Rows of getset tables. No lock: tables are constants.
#pragma once

#include <kelpy/core/PyPython.h>

// A read-only row. Without a text it has no doc string.
constexpr PyGetSetDef readOnly( char const* name, getter get, char const* doc = nullptr ) {
   return { .name = const_cast< char* >( name ), .get = get, .doc = const_cast< char* >( doc ) };
}
