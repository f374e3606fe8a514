// The small functions of the Python module that belong to no other unit. GIL.
#pragma once

#include <kelpy/core/PyPython.h>

PyObject* enableThreadSafePointers( PyObject*, PyObject* ) noexcept;
PyObject* typeNode( PyObject*, PyObject* args );
PyObject* pyType( PyObject*, PyObject* args );
PyObject* demangle( PyObject*, PyObject* args );

// What sort of object it is. All but isConst take any object and never raise.
PyObject* isConst( PyObject*, PyObject* object );
PyObject* isValue( PyObject*, PyObject* object );
PyObject* isCollection( PyObject*, PyObject* object );
PyObject* isFunction( PyObject*, PyObject* object );
PyObject* isEntityFuture( PyObject*, PyObject* object );
PyObject* isFailedMount( PyObject*, PyObject* object );

PyObject* addressOf( PyObject*, PyObject* object );
PyObject* hashOf( PyObject*, PyObject* object );
PyObject* attributeAccessorCount( PyObject*, PyObject* );

// None takes the hook away.
PyObject* newEntityHookIs( PyObject*, PyObject* hook );
PyObject* newInstanceHookIs( PyObject*, PyObject* hook );
PyObject* getitemHookIs( PyObject*, PyObject* hook );
