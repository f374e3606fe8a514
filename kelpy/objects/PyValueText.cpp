// The texts of values: `repr`, `str`, and the gNMI forms that every wrapper has.
#include <kelpy/objects/PyValue.h>

#include <string>

#include <kelpy/core/PyMarshal.h>
#include <kelpy/core/PyRef.h>
#include <kelpy/objects/PyStage.h>

namespace {

PyGenericIf* asWrapper( PyObject* object ) {
   return reinterpret_cast< PyGenericIf* >( object );
}

// Of a union's attribute: 1, 0, or -1 with a Python error.
int isLiveAlternative( PyObject* self, Kel::KelAttr attr ) {
   Stage const stage( attr, "" );
   return underLocks( Kel::flags0, stage, -1, [&]( Kel::PyLockAnchor& ) -> int {
      return attr.genericIfUnionAlternative( PyGenericIfToGenericIf( asWrapper( self ) ) );
   } );
}

// Whether the attribute stands in the `repr`: 1, 0, or -1 with a Python error.
int isPrinted( PyObject* self, Kel::KelType type, Kel::KelAttr attr ) {
   if( !attr.flag( Kel::AttrFlag::isIndependentDomainAttr ) ) {
      return 0;
   }
   return type.isUnionType() ? isLiveAlternative( self, attr ) : 1;
}

// Appends "'name': text". False with a Python error.
bool appendItem( std::string& items, PyObject* self, Kel::KelAttr attr ) {
   auto value = PyRef::steal( PyObject_GetAttrString( self, attr.name() ) );
   if( !value ) {
      return false;
   }
   auto const text = PyRef::steal(
      PyLong_Check( value.get() ) ? PyObject_Str( value.get() ) : PyObject_Repr( value.get() ) );
   bool const isText = PyString_Check( value.get() );
   value = PyRef();
   char const* const chars = text ? PyString_AsString( text.get() ) : nullptr;
   if( !chars ) {
      return false;
   }
   items += items.empty() ? "'" : ", '";
   items += attr.name();
   items += "': ";
   items += isText && attr.memberType() == Kel::kelType< Kel::Bytes >() ? "b" : "";
   items += chars;
   return true;
}

} // namespace

// Each attribute is read on its own, so a concurrent writer can make the items disagree.
PyObject* PyGenericIf_value_repr( PyObject* self ) {
   Kel::KelType const type = kelTypeOf( self );
   return guarded( Stage( type, "" ), noObject, [&]() -> PyObject* {
      std::string items;
      for( Kel::KelType::AttributeQIterator i( type ); i; ++i ) {
         int const printed = isPrinted( self, type, *i );
         if( printed == -1 || ( printed && !appendItem( items, self, *i ) ) ) {
            return nullptr;
         }
      }
      return PyString_FromFormat( "Value('%s', ** {%s})", type.fullTypeName(), items.c_str() );
   } );
}

PyObject* PyGenericIf_value_str( PyObject* self ) {
   return pyGenericIfStrRep( asWrapper( self ) );
}

PyObject* PyGenericIf_valueToGnmiString( PyObject* self, PyObject* ) {
   Kel::KelType const type = kelTypeOfSelf( self );
   if( !type ) {
      return nullptr;
   }
   Stage const stage( type, "" );
   return underLocks( Kel::flags0, stage, noObject, [self]( Kel::PyLockAnchor& locks ) {
      std::string const text = PyGenericIfToGenericIf( asWrapper( self ) )->gnmiStrRep();
      locks.gilHeldIs( true );
      return PyString_FromString( text.c_str() );
   } );
}

PyObject* PyGenericIf_valueToGnmiBytes( PyObject* self, PyObject* ) {
   Kel::KelType const type = kelTypeOfSelf( self );
   if( !type ) {
      return nullptr;
   }
   Stage const stage( type, "" );
   return underLocks( Kel::flags0, stage, noObject, [self]( Kel::PyLockAnchor& locks ) {
      auto const bytes = PyGenericIfToGenericIf( asWrapper( self ) )->gnmiByterep();
      locks.gilHeldIs( true );
      return PyString_FromStringAndSize( reinterpret_cast< char const* >( bytes.data() ),
         static_cast< Py_ssize_t >( bytes.size() ) );
   } );
}

namespace {

// The attribute of that name with a JSON form; null with a Python error.
Kel::KelAttr findJsonAttr( PyObject* object, char const* name ) {
   Kel::KelType const type = kelTypeOf( object );
   if( !type ) {
      PyErr_Format( PyExc_AttributeError,
         "first argument was expected to be kelc-Python object, got '%s'",
         Py_TYPE( object )->tp_name );
      return {};
   }
   Kel::KelAttr const attr = type.attr( name );
   if( !attr ) {
      PyErr_Format(
         PyExc_AttributeError, "'%s' object has no attribute '%s'", type.fullTypeName(), name );
      return {};
   }
   if( !attr.flag( Kel::AttrFlag::toGnmiJsonString ) ) {
      PyErr_Format(
         PyExc_NotImplementedError, "'%s' attribute has no gnmiJsonString function", name );
      return {};
   }
   return attr;
}

} // namespace

PyObject* PyGenericIf_gnmiJsonString( PyObject*, PyObject* args ) {
   PyObject* object = nullptr;
   char const* attrName = nullptr;
   if( !PyArg_ParseTuple( args, "Os:gnmiJsonString", &object, &attrName ) ) {
      return nullptr;
   }
   Kel::KelAttr const attr = findJsonAttr( object, attrName );
   if( !attr ) {
      return nullptr;
   }
   Stage const stage( attr, "" );
   return underLocks( Kel::flags0, stage, noObject, [&]( Kel::PyLockAnchor& locks ) {
      Kel::String const text =
         attr.genericIfGnmiJsonString( PyGenericIfToGenericIf( asWrapper( object ) ) );
      locks.gilHeldIs( true );
      return PyString_FromStringAndSize( text.charPtr(), text.length() );
   } );
}
