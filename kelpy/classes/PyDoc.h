// What classes and attribute descriptors say of themselves as `__doc__`, built from the schema at
// each request. GIL; no runtime lock, since only schema rows are read.
#pragma once

#include <kelpy/core/PyPython.h>

// The getters of `__doc__`: a new `str`, or null with a Python error.
PyObject* PyGenericIfMetaclass_doc_get( PyObject* cls, void* closure );
PyObject* PyGenericIfAttrDescriptor_doc_get( PyObject* descriptor, void* closure );
