// _Kel.EntityFuture and _Kel.FailedMount: an entity named by its path, which becomes a wrapper in
// place, seen by everybody who holds the object. GIL.
#pragma once

#include <kelpy/core/PyPython.h>

#include <kel/KelType.h>
#include <kelpy/objects/PyGenericIf.h>

struct PyGenericIfEntityFuture {
   PyObject_HEAD
   PyObject* fullName;   // owned, a `str`; never null
   Kel::KelType kelType; // the expected type, null for an unknown one
};
// The instances of the three classes change into each other in place.
static_assert( sizeof( PyGenericIfEntityFuture ) == PyGenericIf_basicsize );
static_assert( offsetof( PyGenericIfEntityFuture, fullName ) == offsetof( PyGenericIf, gif ) );
static_assert( offsetof( PyGenericIfEntityFuture, kelType ) == offsetof( PyGenericIf, reserved ) );

// Module functions.
PyObject* entityFuture( PyObject* module, PyObject* args );
PyObject* convertEntityToFailedMount( PyObject* module, PyObject* object );
