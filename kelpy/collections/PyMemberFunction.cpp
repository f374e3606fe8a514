// _Kel.NewMemberFunction and _Kel.AddMemberFunction, what `newFoo` and `addFoo` of a collection
// `foo` read as. GIL.
#include <kelpy/objects/PyGenericIfAttr.h>

#include <cctype>

#include <kel/String.h>
#include <kelpy/core/PyRef.h>
#include <kelpy/objects/PyAttribute.h>
#include <kelpy/objects/PyStage.h>

namespace {

PyGenericIfAttr* asFunction( PyObject* object ) {
   return reinterpret_cast< PyGenericIfAttr* >( object );
}

int upperFirst( Kel::KelAttr attr ) {
   return std::toupper( static_cast< unsigned char >( attr.name()[0] ) );
}

char const* nameRest( Kel::KelAttr attr ) {
   return attr.name() + 1;
}

char const* verb( PyObject* self ) {
   return Py_TYPE( self ) == &PyGenericIfNewMemberFuncType ? "new" : "add";
}

PyObject* PyGenericIfNewOrAddMemberFunc_repr( PyObject* self ) {
   Kel::KelAttr const attr = asFunction( self )->kelAttr;
   auto const parent = PyRef::steal( PyGenericIfAttr_parent_get( self, nullptr ) );
   auto const text = PyRef::steal( PyObject_Repr( parent.get() ) );
   if( !text ) {
      return nullptr;
   }
   return PyString_FromFormat( "method(%s,'%s%c%s')", PyString_AS_STRING( text.get() ),
      verb( self ), upperFirst( attr ), nameRest( attr ) );
}

PyObject* PyGenericIfNewOrAddMemberFunc_str( PyObject* self ) {
   Kel::KelAttr const attr = asFunction( self )->kelAttr;
   char const* const cls = Py_TYPE( self )->tp_name;
   char const* const scope = attr.scope().fullTypeName();
   PyGenericIf const* const parent = asFunction( self )->parent;
   if( !parent ) {
      return PyString_FromFormat( "<%s '%s%c%s' of type '%s'>", cls, verb( self ),
         upperFirst( attr ), nameRest( attr ), scope );
   }
   return PyString_FromFormat( "<%s '%s%c%s' of type '%s' at %p>", cls, verb( self ),
      upperFirst( attr ), nameRest( attr ), scope, static_cast< void* >( parent->gif.get() ) );
}

PyObject* PyGenericIfNewMemberFunc_call( PyObject* self, PyObject* args, PyObject* kwds ) {
   if( !checkNoKeywords( kwds ) ) {
      return nullptr;
   }
   return pyGenericIfSet( asFunction( self )->parent, asFunction( self )->kelAttr, nullptr, args );
}

PyObject* PyGenericIfAddMemberFunc_call( PyObject* self, PyObject* args, PyObject* kwds ) {
   if( !checkNoKeywords( kwds ) ) {
      return nullptr;
   }
   Kel::KelAttr const attr = asFunction( self )->kelAttr;
   return guarded( Stage( attr, "" ), noObject, [&]() -> PyObject* {
      auto const format = Kel::_fmt( "O:add%c%s", upperFirst( attr ), nameRest( attr ) );
      PyObject* value = nullptr;
      if( !PyArg_ParseTuple( args, format.charPtr(), &value ) ) {
         return nullptr;
      }
      return pyGenericIfSet( asFunction( self )->parent, attr, nullptr, value );
   } );
}

} // namespace

constinit PyTypeObject PyGenericIfNewMemberFuncType = {
   .ob_refcnt = 1,
   .tp_name = "_Kel.NewMemberFunction",
   .tp_basicsize = sizeof( PyGenericIfAttr ),
   .tp_dealloc = PyGenericIfAttr_dealloc,
   .tp_repr = PyGenericIfNewOrAddMemberFunc_repr,
   .tp_call = PyGenericIfNewMemberFunc_call,
   .tp_str = PyGenericIfNewOrAddMemberFunc_str,
   .tp_flags = Py_TPFLAGS_DEFAULT,
   .tp_doc = "Wrapper around the 'newMember' function of a kelc-Python collection attribute.",
};

constinit PyTypeObject PyGenericIfAddMemberFuncType = {
   .ob_refcnt = 1,
   .tp_name = "_Kel.AddMemberFunction",
   .tp_basicsize = sizeof( PyGenericIfAttr ),
   .tp_dealloc = PyGenericIfAttr_dealloc,
   .tp_repr = PyGenericIfNewOrAddMemberFunc_repr,
   .tp_call = PyGenericIfAddMemberFunc_call,
   .tp_str = PyGenericIfNewOrAddMemberFunc_str,
   .tp_flags = Py_TPFLAGS_DEFAULT,
   .tp_doc = "Wrapper around the 'addMember' function of a kelc-Python collection attribute.",
};
