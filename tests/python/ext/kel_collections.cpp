// kel_collections: workers of collections that no method reaches for every kind. GIL.
#include <kelpy/core/PyPython.h>

#include <kelpy/collections/PyMutation.h>
#include <kelpy/reflection/PyKelAttr.h>

namespace {

// add( object, attr, member ), on a collection of any kind.
PyObject* add( PyObject*, PyObject* args ) {
   PyObject* object = nullptr;
   Kel::KelAttr attr;
   PyObject* member = nullptr;
   if( !PyArg_ParseTuple( args, "OO&O:add", &object, Convert_To_KelAttr, &attr, &member ) ) {
      return nullptr;
   }
   return pyGenericIfAdd( reinterpret_cast< PyGenericIf* >( object ), attr, member );
}

constinit PyMethodDef functions[] = {
   { "add", add, METH_VARARGS, "Adds a member at the end that the kind says." },
   {},
};

} // namespace

extern "C" __attribute__( ( visibility( "default" ) ) ) void initkel_collections() {
   Py_InitModule( "kel_collections", functions );
}
