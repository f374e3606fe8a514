// _Kel.KelType, the Python view of a runtime type: one object a type, for the life of the
// process, so that identity is equality. GIL; schema rows are read without the activity lock.
#pragma once

#include <kelpy/core/PyPython.h>

#include <kel/KelType.h>
#include <kelpy/core/KelPyExport.h>

struct PyKelType {
   PyObject_HEAD
   Kel::KelType kelType; // never null
};

extern KELPY_API PyTypeObject PyKelTypeType;

// The wrapper, None for a null handle; a new reference, or null with a Python error.
KELPY_API PyObject* PyKelType_FromKelType( Kel::KelType type );

// Converters for "O&": 1, or 0 with a TypeError. The second one takes None for a null handle.
KELPY_API int Convert_To_KelType( PyObject* object, Kel::KelType* type );
KELPY_API int Convert_To_KelType_Or_Null( PyObject* object, Kel::KelType* type );
