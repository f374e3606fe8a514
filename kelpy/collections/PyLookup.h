// Looking into a collection: the workers that the collection object and the classes with a default
// collection share. Entered with the GIL held; each takes the activity lock for itself.
#pragma once

#include <kelpy/core/PyPython.h>

#include <kel/KelAttr.h>
#include <kelpy/core/KelPyExport.h>
#include <kelpy/objects/PyGenericIf.h>

// In all of these `parent` is null for a static attribute.

// The member under a key: a new reference, or null with a Python error, KeyError for a missing key.
// Without `useDefaultAttr` a value shows as its wrapper.
KELPY_API PyObject* pyGenericIfGet(
   PyGenericIf* parent, Kel::KelAttr const& attr, PyObject* key, bool useDefaultAttr );
// 1, 0, or -1 with a Python error. A collection without such a test holds every key.
KELPY_API int pyGenericIfExist( PyGenericIf* parent, Kel::KelAttr const& attr, PyObject* key );
// The number of members, or -1 with a Python error.
KELPY_API Py_ssize_t pyGenericIfMembers( PyGenericIf* parent, Kel::KelAttr const& attr );
// A `long`, or null with a Python error.
KELPY_API PyObject* pyGenericIfVersion( PyGenericIf* parent, Kel::KelAttr const& attr );

// c[ key ]: shows the collection and the key to the getitem hook first.
PyObject* PyGenericIfCollection_subscript_helper(
   PyGenericIf* parent, Kel::KelAttr const& attr, PyObject* key );
// The method `get`, of the arguments key and default.
PyObject* PyGenericIfCollection_get_helper(
   PyGenericIf* parent, Kel::KelAttr const& attr, PyObject* args );
// The method `has_key`.
PyObject* PyGenericIfCollection_has_key_helper(
   PyGenericIf* parent, Kel::KelAttr const& attr, PyObject* args );
