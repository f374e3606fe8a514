// Python argument tuples as argument vectors of the runtime. Callable without the GIL, which it
// takes for itself; users hold the activity lock.
#pragma once

#include <kelpy/core/PyPython.h>

#include <boost/container/small_vector.hpp>
#include <tuple>

#include <kel/KelAttr.h>
#include <kelpy/core/KelPyExport.h>

// Name, full type name, whether None stands for no value. The texts are the schema's.
using Parameter = std::tuple< char const*, char const*, bool >;
using ParameterList = boost::container::small_vector< Parameter, 8 >;

// All three throw Kel::TypeException, which names the parameter at fault, and what the conversion
// of an element or the look-up of its type throws.

// The arguments of a constructor of the type.
KELPY_API Kel::ArgVector PyTupleToGenericIfVector( PyObject* tuple, Kel::KelType const& type );
// The arguments of a function or an instantiating attribute.
KELPY_API Kel::ArgVector PyTupleToGenericIfVector( PyObject* tuple, Kel::KelAttr const& attr );
KELPY_API Kel::ArgVector PyTupleToGenericIfVector_helper(
   PyObject* tuple, ParameterList const& params, bool constructor );
