// _Kel.Collection, what a collection attribute reads as: a view of one attribute of one object,
// which holds no members of its own. Entered with the GIL held; what reaches the runtime takes the
// activity lock for itself.
#pragma once

#include <kelpy/core/PyPython.h>

#include <kelpy/core/KelPyExport.h>
#include <kelpy/objects/PyGenericIfAttr.h>

// A new `dict` of all items, or null with a Python error.
KELPY_API PyObject* itemDict( PyGenericIfAttr* self );
// Whether one of the members equals the value: 1, 0, or -1 with a Python error.
KELPY_API int listContains( PyGenericIfAttr* self, PyObject* value );

// Slots and the getter of `fullName`, for the tables of the type.
PyObject* PyGenericIfCollection_repr( PyObject* self );
PyObject* PyGenericIfCollection_str( PyObject* self );
PyObject* PyGenericIfCollection_richcompare( PyObject* self, PyObject* other, int op );
PyObject* PyGenericIfCollection_fullName_get( PyObject* self, void* closure );
