#include <kelpy/classes/PyGenericIfAttrDescriptor.h>

#include <cctype>

#include <kel/Assert.h>
#include <kelpy/classes/PyDoc.h>
#include <kelpy/classes/SlotTables.h>
#include <kelpy/core/PyGetSet.h>
#include <kelpy/core/PyRef.h>

namespace {

using Kind = PyGenericIfAttrDescriptor::Kind;
using Read = PyGenericIfAttrDescriptor::Read;

PyObject* PyGenericIfAttrDescriptor_repr( PyObject* object ) {
   auto* self = reinterpret_cast< PyGenericIfAttrDescriptor* >( object );
   return PyString_FromFormat( "<attribute '%s' of '%s' objects>", PyString_AS_STRING( self->name ),
      self->attr.scope().fullTypeName() );
}

// The key in the class's dictionary: a new interned `str`.
PyObject* descriptorKey( Kel::KelAttr attr, Kind kind ) {
   char const* const name = attr.name();
   PyObject* key = nullptr;
   if( kind == Kind::Attribute ) {
      key = PyString_FromString( name );
   } else {
      int const first = std::toupper( static_cast< unsigned char >( name[0] ) );
      char const* const format = kind == Kind::NewMember ? "new%c%s" : "add%c%s";
      key = PyString_FromFormat( format, first, name + 1 );
   }
   if( key ) {
      PyString_InternInPlace( &key );
   }
   return key;
}

Read readOf( Kel::KelAttr attr ) {
   if( attr.isEnumConst() ) {
      return Read::constant;
   }
   if( attr.isCollection() ) {
      return Read::collection;
   }
   return attr.isFunction() ? Read::function : Read::value;
}

constinit PyGetSetDef PyGenericIfAttrDescriptor_getset[] = {
   readOnly( "__doc__", PyGenericIfAttrDescriptor_doc_get ),
   {},
};

} // namespace

// A descriptor lives as long as its class, for ever.
constinit PyTypeObject PyGenericIfAttrDescriptorType = {
   .ob_refcnt = 1,
   .tp_name = "_Kel.Attribute",
   .tp_basicsize = sizeof( PyGenericIfAttrDescriptor ),
   .tp_repr = PyGenericIfAttrDescriptor_repr,
   .tp_flags = Py_TPFLAGS_DEFAULT,
   .tp_doc = "Descriptor for kelc-Python attributes.",
   .tp_getset = PyGenericIfAttrDescriptor_getset,
   .tp_descr_get = PyGenericIfAttrDescriptor_descr_get,
   .tp_descr_set = PyGenericIfAttrDescriptor_descr_set,
};

bool addAttrDescriptor( PyObject* dict, Kel::KelAttr attr, Kind kind ) {
   KEL_ASSERT( attr.isCollection() || ( kind == PyGenericIfAttrDescriptor::Kind::Attribute ) );
   if( kind != Kind::NewMember && kind != Kind::AddMember ) {
      KEL_ASSERT( kind == PyGenericIfAttrDescriptor::Kind::Attribute );
   }
   PyRef key = PyRef::steal( descriptorKey( attr, kind ) );
   if( !key ) {
      return false;
   }
   PyRef const object = PyRef::steal( _PyObject_New( &PyGenericIfAttrDescriptorType ) );
   if( !object ) {
      return false;
   }
   auto* self = reinterpret_cast< PyGenericIfAttrDescriptor* >( object.get() );
   self->name = key.release();
   self->attr = attr;
   self->kind = kind;
   self->read = readOf( attr );
   self->isStatic = attr.isStatic();
   self->lastClass = nullptr;
   return PyDict_SetItem( dict, self->name, object.get() ) == 0;
}
