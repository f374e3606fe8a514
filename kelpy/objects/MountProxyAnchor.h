// Replaces mount proxies, Python objects that stand for a runtime object, in an argument or in a
// tuple of arguments. Made and ended with the GIL held; made before the activity lock is taken,
// since the proxies' Python code runs here.
#pragma once

#include <kelpy/core/PyPython.h>

#include <kelpy/core/KelPyExport.h>
#include <kelpy/core/PyRef.h>

class KELPY_API MountProxyAnchor {
 public:
   // `object` may be null. Throws PythonException if a proxy raises, and Kel::Exception for a proxy
   // met while this thread holds the activity lock.
   explicit MountProxyAnchor( PyObject* object );
   MountProxyAnchor( MountProxyAnchor const& ) = delete;
   MountProxyAnchor& operator=( MountProxyAnchor const& ) = delete;

   // What to use in place of the argument, borrowed; null for null.
   PyObject* resolved() const noexcept { return resolved_.get(); }

   // The same for one object, tuples not looked into.
   PyRef _maybeResolveMountProxy( PyObject* object ) const;

 private:
   PyRef _resolveTuple( PyObject* tuple ) const;

   PyRef resolved_;
};
