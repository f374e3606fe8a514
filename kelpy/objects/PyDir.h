// What directories of entities do beyond their collection, and the singletons of the process.
// Entered with the GIL held; each takes the activity lock for itself.
#pragma once

#include <kelpy/core/PyPython.h>

#include <kelpy/objects/PyGenericIf.h>

// The methods newEntity, mkdir and clear of Kel::Dir.
PyObject* PyGenericIf_Dir_newEntity( PyObject* self, PyObject* args );
PyObject* PyGenericIf_Dir_mkdir( PyObject* self, PyObject* args );
PyObject* PyGenericIf_Dir_clear( PyObject* self, PyObject* noArgs );

// The module function singleton.
PyObject* singleton( PyObject* module, PyObject* args );
