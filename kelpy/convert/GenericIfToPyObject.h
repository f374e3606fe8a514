// Values of the runtime on their way out: native objects, names of enum constants, None, default
// attributes, or wrappers. Users hold the GIL and the activity lock.
#pragma once

#include <kelpy/core/PyPython.h>

#include <kel/GenericIf.h>
#include <kelpy/core/KelPyExport.h>

// A new reference, or null with a Python error. Without `useDefaultAttr` a value shows as its
// wrapper.
KELPY_API PyObject* GenericIfToPyObject(
   Kel::Ptr< Kel::GenericIf > gif, bool useDefaultAttr ) noexcept;

// The name of the first constant of that value, interned, else type name and number. T is the C++
// type behind the enum's underlying type. A new reference, or null with a Python error.
template< class T >
KELPY_API PyObject* GenericIfEnumToPyObject( Kel::KelType const& type, T value );
