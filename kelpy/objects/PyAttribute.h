// Reads, writes and deletes of attributes: the functions through which all of them reach the
// runtime, and the attribute methods of every wrapper. Entered with the GIL held and the activity
// lock not needed; each takes it for itself.
#pragma once

#include <kelpy/core/PyPython.h>

#include <kel/KelAttr.h>
#include <kelpy/core/KelPyExport.h>
#include <kelpy/objects/PyGenericIf.h>

// In all of these `self` is null for a static attribute.

// The value of a plain attribute: a new reference, or null with a Python error. Without
// `useDefaultAttr` a value shows as its wrapper.
KELPY_API PyObject* pyGenericIfGet(
   PyGenericIf* self, Kel::KelAttr const& attr, bool useDefaultAttr );
// Writes a member of a collection. `index` is null for a collection whose members carry their key.
// The member made, for an instantiating collection, else None; null with a Python error.
KELPY_API PyObject* pyGenericIfSet(
   PyGenericIf* self, Kel::KelAttr const& attr, PyObject* index, PyObject* rhs );
// Deletes a member of a collection, if it is there: 0, or -1 with a Python error.
KELPY_API int pyGenericIfDel( PyGenericIf* self, Kel::KelAttr const& attr, PyObject* index );

// The methods getRawAttribute, attrProperty and _getmethod.
PyObject* PyGenericIf_getRawAttribute( PyObject* self, PyObject* args );
PyObject* PyGenericIf_attrProperty( PyObject* self, PyObject* args );
PyObject* PyGenericIf_getmethod( PyObject* self, PyObject* args );
