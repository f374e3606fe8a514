#include <kelpy/objects/PyGenericIfAttr.h>

#include <kelpy/reflection/PyKelAttr.h>

namespace {

PyGenericIfAttr* asAttr( PyObject* object ) {
   return reinterpret_cast< PyGenericIfAttr* >( object );
}

PyObject* asObject( PyGenericIf* wrapper ) {
   return reinterpret_cast< PyObject* >( wrapper );
}

} // namespace

PyObject* MakePyGenericIfAttr( PyTypeObject* type, PyGenericIf* parent, Kel::KelAttr const& attr ) {
   PyObject* const self = type->tp_alloc( type, 0 );
   if( !self ) {
      return nullptr;
   }
   Py_XINCREF( asObject( parent ) );
   asAttr( self )->parent = parent;
   asAttr( self )->kelAttr = attr;
   return self;
}

void PyGenericIfAttr_dealloc( PyObject* self ) {
   Py_XDECREF( asObject( asAttr( self )->parent ) );
   Py_TYPE( self )->tp_free( self );
}

PyObject* PyGenericIfAttr_kelAttr_get( PyObject* self, void* ) {
   return PyKelAttr_FromKelAttr( asAttr( self )->kelAttr );
}

PyObject* PyGenericIfAttr_parent_get( PyObject* self, void* ) {
   PyGenericIf* const parent = asAttr( self )->parent;
   PyObject* const result = parent ? asObject( parent ) : Py_None;
   Py_INCREF( result );
   return result;
}

bool checkNoKeywords( PyObject* kwds ) {
   if( !kwds || PyObject_Size( kwds ) == 0 ) {
      return true;
   }
   if( !PyErr_Occurred() ) {
      PyErr_SetString( PyExc_TypeError, "keyword arguments are not supported" );
   }
   return false;
}
