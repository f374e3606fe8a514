// What the Python layer above this module plugs in, and the count of attribute reads. The GIL
// guards all of it.
#pragma once

#include <kelpy/core/PyPython.h>

#include <cstdint>

#include <kelpy/core/KelPyExport.h>

// Owned references, null where no hook is set.
extern KELPY_API PyObject* newEntityHook_;   // called before a directory creates an entity
extern KELPY_API PyObject* newInstanceHook_; // called before an instance is made
extern KELPY_API PyObject* getitemHook_;     // called from the __getitem__ of collections

// Raised by one at each read of an attribute through its descriptor.
extern KELPY_API std::uint64_t attributeAccessorCount_;
