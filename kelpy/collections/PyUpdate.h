// The method `update` of collections. GIL; each pair takes and drops the activity lock.
#pragma once

#include <kelpy/core/PyPython.h>

#include <kelpy/objects/PyGenericIfAttr.h>

// Sets every pair of the argument, a mapping or an iterable of pairs, and then of the keywords. A
// pair that fails stops nothing: None comes back with its Python error pending. Null with a Python
// error for an argument that does not give pairs.
PyObject* PyGenericIfCollection_update( PyObject* self, PyObject* args, PyObject* kwds );
