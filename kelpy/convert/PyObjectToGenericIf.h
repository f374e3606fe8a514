// Python objects on their way into the runtime: any object becomes a generic of exactly the
// wanted type or is refused with a text. Users hold the activity lock.
#pragma once

#include <kelpy/core/PyPython.h>

#include <kel/GenericIf.h>
#include <kelpy/core/KelPyExport.h>

// Needs the GIL. With `optional`, None gives a null pointer. A wrapper is shared with its const
// flag, all else becomes a new non-const generic. Throws Kel::TypeException with no Python error
// pending, PythonException, and what a constructor of the runtime throws.
KELPY_API Kel::Ptr< Kel::GenericIf > PyObjectToGenericIf_unsafe(
   PyObject* obj, Kel::KelType const& type, bool optional );
// The same for callers that may not have the GIL: takes it for the length of the conversion.
KELPY_API Kel::Ptr< Kel::GenericIf > PyObjectToGenericIf(
   PyObject* obj, Kel::KelType const& type, bool optional );
