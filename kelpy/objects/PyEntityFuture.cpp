#include <kelpy/objects/PyEntityFuture.h>

#include <new>

#include <kel/Assert.h>
#include <kel/Entity.h>
#include <kelpy/core/PyGetSet.h>
#include <kelpy/core/PyMarshal.h>
#include <kelpy/core/PyRef.h>
#include <kelpy/objects/PyStage.h>
#include <kelpy/reflection/PyKelType.h>

namespace {

PyGenericIfEntityFuture* asFuture( PyObject* object ) {
   return reinterpret_cast< PyGenericIfEntityFuture* >( object );
}

PyGenericIf* asWrapper( PyObject* object ) {
   return reinterpret_cast< PyGenericIf* >( object );
}

char const* nameText( PyObject* future ) {
   return PyString_AS_STRING( asFuture( future )->fullName );
}

void PyGenericIfEntityFuture_dealloc( PyObject* self ) {
   Py_DECREF( asFuture( self )->fullName );
   Py_TYPE( self )->tp_free( self );
}

PyObject* PyGenericIfEntityFuture_repr( PyObject* self ) {
   char const* const cls = Py_TYPE( self )->tp_name;
   Kel::KelType const type = asFuture( self )->kelType;
   if( !type ) {
      return PyString_FromFormat( "<%s '%s' of unknown type>", cls, nameText( self ) );
   }
   return PyString_FromFormat(
      "<%s '%s' of type '%s'>", cls, nameText( self ), type.fullTypeName() );
}

PyObject* PyGenericIfEntityFuture_kelType_get( PyObject* self, void* ) {
   return PyKelType_FromKelType( asFuture( self )->kelType );
}

PyObject* PyGenericIfEntityFuture_fullName_get( PyObject* self, void* ) {
   Py_INCREF( asFuture( self )->fullName );
   return asFuture( self )->fullName;
}

// False with a TypeError for a method that was read before its object became a wrapper.
bool isFuture( PyObject* self ) {
   if( Py_TYPE( self ) == &PyGenericIfEntityFutureType ||
       Py_TYPE( self ) == &PyGenericIfFailedMountType ) {
      return true;
   }
   PyErr_SetString( PyExc_TypeError, "expected a _Kel.EntityFuture or a _Kel.FailedMount" );
   return false;
}

// From here on everybody who holds the object sees a wrapper. The name goes last: its end may run
// nothing, but the object must be whole before anything else does.
void becomeWrapper( PyObject* self, PyTypeObject* cls, Kel::Ptr< Kel::GenericIf > gif ) {
   auto const fullName = PyRef::steal( asFuture( self )->fullName );
   Py_TYPE( self ) = cls;
   new( &asWrapper( self )->gif ) Kel::Ptr< Kel::GenericIf >( std::move( gif ) );
}

// The entity of the future's name, seen as its dynamic type; null with a Python error.
Kel::Ptr< Kel::GenericIf > findEntity( PyObject* self ) {
   auto const entity = Kel::entity( PyStr_AsKelString( asFuture( self )->fullName ) );
   if( !entity ) {
      PyErr_Format( PyExc_Exception, "entity '%s' not found", nameText( self ) );
      return nullptr;
   }
   auto gif = Kel::KelType::genericIf( entity.get(), false );
   KEL_ASSERT( gif );
   Kel::KelType const expected = asFuture( self )->kelType;
   if( expected && expected != gif->type() ) {
      PyErr_Format( PyExc_Exception, "entity '%s' is not of expected type", nameText( self ) );
      return nullptr;
   }
   return gif;
}

PyObject* PyGenericIfEntityFuture_convertToEntity( PyObject* self, PyObject* ) {
   Stage const stage( NoSubject(), "" );
   return underLocks( Kel::flags4, stage, noObject, [self]( Kel::PyLockAnchor& ) -> PyObject* {
      auto gif = isFuture( self ) ? findEntity( self ) : nullptr;
      if( !gif ) {
         return nullptr;
      }
      PyTypeObject* const cls = getOrCreatePyType( gif->type() );
      if( !cls ) {
         return nullptr;
      }
      becomeWrapper( self, cls, std::move( gif ) );
      Py_RETURN_NONE;
   } );
}

PyObject* PyGenericIfEntityFuture_convertToFailedMount( PyObject* self, PyObject* ) {
   if( !isFuture( self ) ) {
      return nullptr;
   }
   Py_TYPE( self ) = &PyGenericIfFailedMountType;
   Py_RETURN_NONE;
}

constexpr PyGetSetDef kelTypeRow =
   readOnly( "kelType", PyGenericIfEntityFuture_kelType_get, "Kel::KelType object." );

constexpr PyGetSetDef fullNameRow( char const* doc ) {
   return readOnly( "fullName", PyGenericIfEntityFuture_fullName_get, doc );
}

constexpr PyMethodDef convertToEntityRow( char const* doc ) {
   return {
      .ml_name = "convertToEntity",
      .ml_meth = PyGenericIfEntityFuture_convertToEntity,
      .ml_flags = METH_NOARGS,
      .ml_doc = doc,
   };
}

constinit PyGetSetDef PyGenericIfEntityFuture_getset[] = {
   kelTypeRow,
   fullNameRow( "fullName of this EntityFuture instance." ),
   {},
};

constinit PyGetSetDef PyGenericIfFailedMount_getset[] = {
   kelTypeRow,
   fullNameRow( "fullName of this FailedMount instance." ),
   {},
};

constinit PyMethodDef PyGenericIfEntityFuture_methods[] = {
   convertToEntityRow( "Convert this EntityFuture to an Entity." ),
   { "convertToFailedMount", PyGenericIfEntityFuture_convertToFailedMount, METH_NOARGS,
      "Convert this EntityFuture to a FailedMount." },
   {},
};

constinit PyMethodDef PyGenericIfFailedMount_methods[] = {
   convertToEntityRow( "Convert this FailedMount to an Entity." ),
   {},
};

} // namespace

constinit PyTypeObject PyGenericIfEntityFutureType = {
   .ob_refcnt = 1,
   .tp_name = "_Kel.EntityFuture",
   .tp_basicsize = sizeof( PyGenericIfEntityFuture ),
   .tp_dealloc = PyGenericIfEntityFuture_dealloc,
   .tp_repr = PyGenericIfEntityFuture_repr,
   .tp_flags = Py_TPFLAGS_DEFAULT,
   .tp_doc = "Object that may be converted to an entity at a future time.",
   .tp_methods = PyGenericIfEntityFuture_methods,
   .tp_getset = PyGenericIfEntityFuture_getset,
};

constinit PyTypeObject PyGenericIfFailedMountType = {
   .ob_refcnt = 1,
   .tp_name = "_Kel.FailedMount",
   .tp_basicsize = sizeof( PyGenericIfEntityFuture ),
   .tp_dealloc = PyGenericIfEntityFuture_dealloc,
   .tp_repr = PyGenericIfEntityFuture_repr,
   .tp_flags = Py_TPFLAGS_DEFAULT,
   .tp_doc = "Object that failed to be converted to an entity.",
   .tp_methods = PyGenericIfFailedMount_methods,
   .tp_getset = PyGenericIfFailedMount_getset,
};

PyObject* entityFuture( PyObject*, PyObject* args ) {
   PyObject* fullName = nullptr;
   Kel::KelType type;
   if( !PyArg_ParseTuple( args, "O!O&:entityFuture", &PyString_Type, &fullName,
          Convert_To_KelType_Or_Null, &type ) ) {
      return nullptr;
   }
   PyObject* const self = _PyObject_New( &PyGenericIfEntityFutureType );
   if( !self ) {
      return nullptr;
   }
   Py_INCREF( fullName );
   asFuture( self )->fullName = fullName;
   asFuture( self )->kelType = type;
   return self;
}

namespace {

// False with a TypeError.
bool checkEntity( PyObject* object ) {
   if( PyGenericIf_TypeCheck( object, Kel::kelType< Kel::Entity >() ) ) {
      return true;
   }
   PyErr_SetString( PyExc_TypeError, "expected a Kel::Entity" );
   return false;
}

} // namespace

PyObject* convertEntityToFailedMount( PyObject*, PyObject* object ) {
   if( !checkEntity( object ) ) {
      return nullptr;
   }
   Stage const stage( NoSubject(), "" );
   return underLocks( Kel::flags4, stage, noObject, [object]( Kel::PyLockAnchor& ) -> PyObject* {
      // Another thread may have been faster while this one waited for the lock.
      if( !checkEntity( object ) ) {
         return nullptr;
      }
      void* const address = asWrapper( object )->gif->voidPtrIs( Kel::kelType< Kel::Entity >() );
      auto const entity = static_cast< Kel::Entity* >( address );
      PyObject* const fullName = PyStr_FromKelString( entity->fullName() );
      if( !fullName ) {
         return nullptr;
      }
      Kel::KelType const type = entity->fwkType();
      // The last reference on the entity may go here, behind the change of the object.
      auto const gif = std::move( asWrapper( object )->gif );
      asFuture( object )->fullName = fullName;
      asFuture( object )->kelType = type;
      Py_TYPE( object ) = &PyGenericIfFailedMountType;
      Py_RETURN_NONE;
   } );
}
