// Reactors that call Python: their unit and what makes one for Python. The runtime delivers to them
// with the activity lock held and without the GIL; while the Python function runs it is the other
// way about.
#pragma once

#include <kelpy/core/PyPython.h>

#include <kel/Clock.h>
#include <kel/Notifiee.h>

namespace Kel {

class PyClockNotifiee;
class PyGenericIfNotifieeBase;

KEL_TYPES( _PyActivity_5ba2bef8b65a744a_kelModule, PyClockNotifiee, PyGenericIfNotifieeBase );

} // namespace Kel

// Module function: a notifiee of an object, whose handler is the Python object of a handle. GIL.
PyObject* newNotifiee( PyObject* module, PyObject* args );
