// _Kel.KelAttr, the Python view of an attribute of a runtime type: one object an attribute row,
// for the life of the process. GIL; schema rows are read without the activity lock.
#pragma once

#include <kelpy/core/PyPython.h>

#include <kel/KelAttr.h>
#include <kelpy/core/KelPyExport.h>

struct PyKelAttr {
   PyObject_HEAD
   Kel::KelAttr kelAttr; // never null; its scope is that of the handle that reached the row first
};

extern KELPY_API PyTypeObject PyKelAttrType;

// The wrapper, None for a null handle; a new reference, or null with a Python error.
KELPY_API PyObject* PyKelAttr_FromKelAttr( Kel::KelAttr attr );

// Converter for "O&": 1, or 0 with a TypeError.
KELPY_API int Convert_To_KelAttr( PyObject* object, Kel::KelAttr* attr );
