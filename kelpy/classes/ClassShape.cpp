#include <kelpy/classes/ClassShape.h>

#include <kel/Assert.h>
#include <kel/KelAttr.h>
#include <kelpy/classes/PyGenericIfClass.h>
#include <kelpy/classes/SlotTables.h>
#include <kelpy/core/PyGetSet.h>
#include <kelpy/reflection/PyKelType.h>

namespace {

PyObject* PyGenericIf_attributes_get( PyObject* self, void* ) {
   return attributeTuple( kelTypeOf( self ) );
}

PyObject* PyGenericIf_kelType_get( PyObject* self, void* ) {
   return PyKelType_FromKelType( kelTypeOf( self ) );
}

constinit PyGetSetDef PyGenericIf_getset[] = {
   readOnly( "attributes", PyGenericIf_attributes_get, "Tuple of attribute names." ),
   readOnly( "kelType", PyGenericIf_kelType_get, "Kel::KelType object." ),
   {},
};

// Such classes exist for their descriptors only: their values are native objects in Python.
PyObject* PyGenericIf_builtin_new( PyTypeObject* cls, PyObject*, PyObject* ) {
   Kel::KelType const type = kelTypeOfClass( cls );
   KEL_ASSERT( type.isBuiltinType() || type.isEnumType() );
   PyErr_SetString( PyExc_NotImplementedError, "cannot construct object of built-in or enum type" );
   return nullptr;
}

void setValueSlots( PyTypeObject& cls ) {
   cls.tp_repr = PyGenericIf_value_repr;
   cls.tp_str = PyGenericIf_value_str;
   cls.tp_richcompare = PyGenericIf_value_richcompare;
   cls.tp_as_number = &PyGenericIf_value_number;
}

void setPtrSlots( PyTypeObject& cls ) {
   cls.tp_repr = PyGenericIf_ptr_repr;
   cls.tp_str = PyGenericIf_ptr_str;
   cls.tp_richcompare = PyGenericIf_ptr_richcompare;
   cls.tp_as_number = &PyGenericIf_ptr_number;
}

void setRootSlots( PyTypeObject& cls, Kel::KelType type ) {
   KEL_ASSERT( !type.defaultCollection() );
   cls.tp_new = PyGenericIf_new;
   cls.tp_dealloc = PyGenericIf_dealloc;
   cls.tp_hash = PyGenericIf_hash;
   cls.tp_methods = PyGenericIf_methods;
   cls.tp_getset = PyGenericIf_getset;
   if( type.isValue() ) {
      setValueSlots( cls );
   } else {
      setPtrSlots( cls );
   }
}

// On the first class of a chain that has a default collection.
void setDefaultCollectionSlots( PyTypeObject& cls, Kel::KelType type ) {
   bool const isDirItself = type == Kel::KelType( &_Kel_Dir_kelModule, 0 );
   cls.tp_as_sequence = &PyGenericIf_defaultCollection_sequence;
   cls.tp_as_mapping = &PyGenericIf_defaultCollection_mapping;
   cls.tp_iter = PyGenericIf_defaultCollection_iter;
   cls.tp_methods = isDirItself ? PyGenericIf_Dir_methods : PyGenericIf_defaultCollection_methods;
   cls.tp_getset = PyGenericIf_defaultCollection_getset;
}

} // namespace

void setClassSlots( PyTypeObject& cls, Kel::KelType type, Kel::KelType baseType ) {
   if( type.isBuiltinType() || type.isEnumType() ) {
      cls.tp_new = PyGenericIf_builtin_new;
   } else if( !baseType || baseType.isBuiltinType() ) {
      setRootSlots( cls, type );
   } else if( type.defaultCollection() && !baseType.defaultCollection() ) {
      setDefaultCollectionSlots( cls, type );
   }
}
