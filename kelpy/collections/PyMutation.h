// Changing a collection: the workers that the collection object and the classes with a default
// collection share. A collection's kind decides which spelling is allowed; each wrong one is
// refused with a TypeError that names the right one. Entered with the GIL held; each takes the
// activity lock for itself.
#pragma once

#include <kelpy/core/PyPython.h>

#include <kel/KelAttr.h>
#include <kelpy/core/KelPyExport.h>
#include <kelpy/objects/PyGenericIf.h>

// In all of these `parent` is null for a static attribute.

// Adds at the end that the collection's kind says: None, or null with a Python error. The
// collection must not make its own members.
KELPY_API PyObject* pyGenericIfAdd( PyGenericIf* parent, Kel::KelAttr attr, PyObject* value );
// Takes from the end that the kind says: the element, or null with a Python error.
KELPY_API PyObject* pyGenericIfRemove( PyGenericIf* parent, Kel::KelAttr attr );
// The element at either end: a new reference, or null with a Python error.
KELPY_API PyObject* pyGenericIfFront( PyGenericIf* parent, Kel::KelAttr attr );
KELPY_API PyObject* pyGenericIfBack( PyGenericIf* parent, Kel::KelAttr attr );
// Empties the collection under one hold of the activity lock: 0, or -1 with a Python error. What
// went before a failure stays away.
KELPY_API int pyGenericIfClear( PyGenericIf* parent, Kel::KelAttr attr );

// c[ key ] = value, or `del c[ key ]` for a null value: 0, or -1 with a Python error.
int PyGenericIfCollection_ass_subscript_helper(
   PyGenericIf* parent, Kel::KelAttr attr, PyObject* key, PyObject* value );
// The methods of these names.
PyObject* PyGenericIfCollection_setdefault_helper(
   PyGenericIf* parent, Kel::KelAttr attr, PyObject* args );
PyObject* PyGenericIfCollection_newMember_helper(
   PyGenericIf* parent, Kel::KelAttr attr, PyObject* args );
PyObject* PyGenericIfCollection_addMember_helper(
   PyGenericIf* parent, Kel::KelAttr attr, PyObject* args );
PyObject* PyGenericIfCollection_clear_helper( PyGenericIf* parent, Kel::KelAttr attr );
