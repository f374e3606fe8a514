#include <kelpy/classes/PyGenericIfClass.h>

#include <kel/KelAttr.h>
#include <kelpy/classes/PyDoc.h>
#include <kelpy/core/PyGetSet.h>
#include <kelpy/core/PyTuple.h>
#include <kelpy/reflection/PyKelType.h>

namespace {

Kel::KelType typeOf( PyObject* cls ) {
   return kelTypeOfClass( reinterpret_cast< PyTypeObject* >( cls ) );
}

PyObject* PyGenericIfMetaclass_attributes_get( PyObject* cls, void* ) {
   return attributeTuple( typeOf( cls ) );
}

PyObject* PyGenericIfMetaclass_kelType_get( PyObject* cls, void* ) {
   return PyKelType_FromKelType( typeOf( cls ) );
}

constinit PyGetSetDef PyGenericIfMetaclass_getset[] = {
   readOnly( "__doc__", PyGenericIfMetaclass_doc_get ),
   readOnly( "attributes", PyGenericIfMetaclass_attributes_get, "Tuple of attribute names." ),
   readOnly( "kelType", PyGenericIfMetaclass_kelType_get, "Kel::KelType object." ),
   {},
};

} // namespace

constinit PyTypeObject PyGenericIfMetaclass = {
   .ob_refcnt = 1,
   .tp_name = "_Kel.Type",
   .tp_basicsize = sizeof( PyGenericIfClass ),
   .tp_flags = Py_TPFLAGS_DEFAULT,
   .tp_doc = "Metaclass for kelc-Python objects.",
   .tp_getset = PyGenericIfMetaclass_getset,
   .tp_base = &PyType_Type,
};

PyObject* attributeTuple( Kel::KelType type ) {
   if( !type ) {
      return PyTuple_New( 0 );
   }
   Kel::KelTypeBase::AttributeQIterator attr( type );
   return makeTuple( type.attributes(), [&] {
      PyObject* const name = PyString_InternFromString( ( *attr ).name() );
      ++attr;
      return name;
   } );
}
