// The record of what a collection or function attribute reads as: an object and one of its
// attributes. GIL; nothing of the runtime is touched.
#pragma once

#include <kelpy/core/PyPython.h>

#include <kel/KelAttr.h>
#include <kelpy/core/KelPyExport.h>
#include <kelpy/objects/PyGenericIf.h>

struct PyGenericIfAttr {
   PyObject_HEAD
   PyGenericIf* parent; // owned; null for a static attribute
   Kel::KelAttr kelAttr;
};

// A new object of one of the four types with this record, or null with a Python error. `parent` may
// be null.
KELPY_API PyObject* MakePyGenericIfAttr(
   PyTypeObject* type, PyGenericIf* parent, Kel::KelAttr const& attr );

// Slots and getters of the four types.
void PyGenericIfAttr_dealloc( PyObject* self );
PyObject* PyGenericIfAttr_kelAttr_get( PyObject* self, void* closure );
PyObject* PyGenericIfAttr_parent_get( PyObject* self, void* closure );

// For those that are called: whether no keywords were given; false with a Python error.
bool checkNoKeywords( PyObject* kwds );
