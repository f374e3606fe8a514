// The methods of every wrapper.
#include <kelpy/objects/PyAttribute.h>
#include <kelpy/objects/PyGenericIf.h>
#include <kelpy/objects/PyValue.h>

constinit PyMethodDef PyGenericIf_methods[] = {
   { "__copy__", PyGenericIf_copy, METH_NOARGS, "x.__copy__() <==> copy.copy(x)" },
   { "__deepcopy__", PyGenericIf_deepcopy, METH_O,
      "x.__deepcopy__([memo]) <==> copy.deepcopy(x[, memo])" },
   { "getRawAttribute", PyGenericIf_getRawAttribute, METH_VARARGS,
      "Return the attribute of the given name, avoiding defaultAttribute conversion." },
   { "attrProperty", PyGenericIf_attrProperty, METH_VARARGS,
      "Return the value of the named property of the attribute of the given name." },
   { "_getmethod", PyGenericIf_getmethod, METH_VARARGS, "Return a method with the given name." },
   { "valueToGnmiBytes", PyGenericIf_valueToGnmiBytes, METH_NOARGS,
      "Return valueToGnmiBytes representation" },
   { "valueToGnmiString", PyGenericIf_valueToGnmiString, METH_NOARGS,
      "Return valueToGnmiString representation" },
   { "kelSmartPointerReferences", PyGenericIf_references, METH_NOARGS,
      "Return the number of smart pointer references to the object." },
   {},
};
