// What values do beyond other wrappers: arithmetic, comparison, truth, copies, gNMI forms. Entered
// with the GIL held; each call into the runtime takes the activity lock for itself.
#pragma once

#include <kelpy/core/PyPython.h>

#include <kel/GenericIf.h>
#include <kelpy/core/KelPyExport.h>
#include <kelpy/objects/PyGenericIf.h>

// A new reference, NotImplemented where the type lacks the operation, or null with a Python error.
// A null `rhs` means a unary operation, whose lack is a TypeError.
KELPY_API PyObject* pyGenericIfArithmeticOp(
   PyGenericIf* lhs, Kel::GenericIf::AttributeOp opId, PyObject* rhs );
// 1, 0, or -1 with a Python error, NotImplementedError where the type lacks the operation. A null
// `rhs` means a unary test.
KELPY_API int pyGenericIfBooleanOp(
   PyGenericIf* lhs, Kel::GenericIf::AttributeOp opId, PyObject* rhs );

// The methods __copy__ and __deepcopy__.
PyObject* PyGenericIf_copy( PyObject* self, PyObject* noArgs );
PyObject* PyGenericIf_deepcopy( PyObject* self, PyObject* memo );

// The methods valueToGnmiString and valueToGnmiBytes.
PyObject* PyGenericIf_valueToGnmiString( PyObject* self, PyObject* noArgs );
PyObject* PyGenericIf_valueToGnmiBytes( PyObject* self, PyObject* noArgs );
// The module function gnmiJsonString.
PyObject* PyGenericIf_gnmiJsonString( PyObject* module, PyObject* args );
