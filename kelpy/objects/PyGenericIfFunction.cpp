// _Kel.Function, what a function attribute reads as. Entered with the GIL held; the runtime's
// function runs under the activity lock without it.
#include <kelpy/objects/PyGenericIfAttr.h>

#include <kelpy/convert/GenericIfToPyObject.h>
#include <kelpy/convert/PyTupleToGenericIfVector.h>
#include <kelpy/core/PyGetSet.h>
#include <kelpy/core/PyRef.h>
#include <kelpy/objects/MountProxyAnchor.h>
#include <kelpy/objects/PyStage.h>

namespace {

PyGenericIfAttr* asFunction( PyObject* object ) {
   return reinterpret_cast< PyGenericIfAttr* >( object );
}

PyObject* PyGenericIfFunction_repr( PyObject* self ) {
   auto const parent = PyRef::steal( PyGenericIfAttr_parent_get( self, nullptr ) );
   auto const text = PyRef::steal( PyObject_Repr( parent.get() ) );
   if( !text ) {
      return nullptr;
   }
   return PyString_FromFormat(
      "method(%s,'%s')", PyString_AS_STRING( text.get() ), asFunction( self )->kelAttr.name() );
}

PyObject* PyGenericIfFunction_str( PyObject* self ) {
   char const* const cls = Py_TYPE( self )->tp_name;
   Kel::KelAttr const& attr = asFunction( self )->kelAttr;
   char const* const scope = attr.scope().fullTypeName();
   PyGenericIf const* const parent = asFunction( self )->parent;
   if( !parent ) {
      return PyString_FromFormat( "<%s '%s' of type '%s'>", cls, attr.name(), scope );
   }
   return PyString_FromFormat( "<%s '%s' of type '%s' at %p>", cls, attr.name(), scope,
      static_cast< void* >( parent->gif.get() ) );
}

PyObject* PyGenericIfFunction_call( PyObject* self, PyObject* args, PyObject* kwds ) {
   if( !checkNoKeywords( kwds ) ) {
      return nullptr;
   }
   Kel::KelAttr const& attr = asFunction( self )->kelAttr;
   PyGenericIf const* const parent = asFunction( self )->parent;
   Stage stage( attr, "resolution: " );
   return guarded( stage, noObject, [&] {
      MountProxyAnchor const proxies( args );
      return underLocks( Kel::flags0, stage, noObject, [&]( Kel::PyLockAnchor& locks ) {
         stage.is( "function args: " );
         auto const arguments = PyTupleToGenericIfVector( proxies.resolved(), attr );
         stage.is( "" );
         auto result = attr.genericIfCall( PyGenericIfToGenericIf( parent ), arguments );
         locks.gilHeldIs( true );
         return GenericIfToPyObject( std::move( result ), true );
      } );
   } );
}

constinit PyGetSetDef PyGenericIfFunction_getset[] = {
   readOnly( "kelAttr", PyGenericIfAttr_kelAttr_get, "Kel::KelAttr object." ),
   readOnly( "parent", PyGenericIfAttr_parent_get ),
   {},
};

} // namespace

constinit PyTypeObject PyGenericIfFunctionType = {
   .ob_refcnt = 1,
   .tp_name = "_Kel.Function",
   .tp_basicsize = sizeof( PyGenericIfAttr ),
   .tp_dealloc = PyGenericIfAttr_dealloc,
   .tp_repr = PyGenericIfFunction_repr,
   .tp_call = PyGenericIfFunction_call,
   .tp_str = PyGenericIfFunction_str,
   .tp_flags = Py_TPFLAGS_DEFAULT,
   .tp_doc = "kelc-Python function attribute.",
   .tp_getset = PyGenericIfFunction_getset,
};
