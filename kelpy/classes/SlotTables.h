// What the classes of runtime types take from the folders that implement their instances: slot
// functions, tables, and the static types of what attributes read as. Entered with the GIL held.
#pragma once

#include <kelpy/core/PyPython.h>

#include <kelpy/core/KelPyExport.h>

// The instance size of a wrapper, an entity future and a failed mount alike, since an object
// changes between the three in place.
// A debug interpreter that traces references keeps two links in each object.
constexpr Py_ssize_t PyGenericIf_basicsize = 24 + sizeof( PyObject );

// Root classes, of values and of pointers.
PyObject* PyGenericIf_new( PyTypeObject* cls, PyObject* args, PyObject* kwds );
void PyGenericIf_dealloc( PyObject* self );
long PyGenericIf_hash( PyObject* self );
extern PyMethodDef PyGenericIf_methods[];

PyObject* PyGenericIf_value_repr( PyObject* self );
PyObject* PyGenericIf_value_str( PyObject* self );
PyObject* PyGenericIf_value_richcompare( PyObject* self, PyObject* other, int op );
extern PyNumberMethods PyGenericIf_value_number;

PyObject* PyGenericIf_ptr_repr( PyObject* self );
PyObject* PyGenericIf_ptr_str( PyObject* self );
PyObject* PyGenericIf_ptr_richcompare( PyObject* self, PyObject* other, int op );
extern PyNumberMethods PyGenericIf_ptr_number;

// Classes with a default collection.
PyObject* PyGenericIf_defaultCollection_iter( PyObject* self );
extern PySequenceMethods PyGenericIf_defaultCollection_sequence;
extern PyMappingMethods PyGenericIf_defaultCollection_mapping;
extern PyMethodDef PyGenericIf_defaultCollection_methods[];
extern PyMethodDef PyGenericIf_Dir_methods[];
extern PyGetSetDef PyGenericIf_defaultCollection_getset[];

// Descriptors.
PyObject* PyGenericIfAttrDescriptor_descr_get( PyObject* self, PyObject* object, PyObject* cls );
int PyGenericIfAttrDescriptor_descr_set( PyObject* self, PyObject* object, PyObject* value );

// The static types of other folders.
extern KELPY_API PyTypeObject PyGenericIfCollectionType;
extern KELPY_API PyTypeObject PyGenericIfFunctionType;
extern KELPY_API PyTypeObject PyGenericIfNewMemberFuncType;
extern KELPY_API PyTypeObject PyGenericIfAddMemberFuncType;
extern KELPY_API PyTypeObject PyGenericIfIteratorType;
extern KELPY_API PyTypeObject PyGenericIfEntityFutureType;
extern KELPY_API PyTypeObject PyGenericIfFailedMountType;
