#include <kelpy/objects/PyDir.h>

#include <kel/Assert.h>
#include <kel/Dir.h>
#include <kel/Exception.h>
#include <kelpy/core/PyFailure.h>
#include <kelpy/core/PyHooks.h>
#include <kelpy/core/PyMarshal.h>
#include <kelpy/core/PyRef.h>
#include <kelpy/objects/PyStage.h>

namespace {

// Activity lock.
Kel::Dir* dirOf( PyObject* self ) {
   auto const gif = PyGenericIfToGenericIf( reinterpret_cast< PyGenericIf* >( self ) );
   return static_cast< Kel::Dir* >( gif->voidPtrIs( Kel::kelType< Kel::Dir >() ) );
}

// Whether what is created in the directory lives in another agent. Activity lock.
bool writeMounted( Kel::Dir const& dir ) {
   return !dir.mountExempt() && dir.isMounted() && dir.mountMode() == Kel::MountMode::write;
}

// False with a Python error, where the hook forbids the new entity.
bool callNewEntityHook( PyObject* self, char const* typeName, char const* name ) {
   if( !newEntityHook_ ) {
      return true;
   }
   auto const hook = PyRef::borrow( newEntityHook_ ); // which may replace itself
   char format[] = "Oss";
   return static_cast< bool >(
      PyRef::steal( PyObject_CallFunction( hook.get(), format, self, typeName, name ) ) );
}

} // namespace

PyObject* PyGenericIf_Dir_newEntity( PyObject* self, PyObject* args ) {
   char const* typeName = nullptr;
   char const* name = nullptr;
   if( !PyArg_ParseTuple( args, "ss:newEntity", &typeName, &name ) ||
       !callNewEntityHook( self, typeName, name ) ) {
      return nullptr;
   }
   Stage const stage( NoSubject(), "" );
   return underLocks( Kel::flags0, stage, noObject, [&]( Kel::PyLockAnchor& locks ) {
      Kel::Ptr< Kel::Dir > const dir( dirOf( self ) );
      auto entity = dir->createEntity( Kel::String( typeName ), Kel::String( name ) );
      if( writeMounted( *dir ) ) {
         entity = nullptr;
         locks.gilHeldIs( true );
         Py_RETURN_NONE;
      }
      locks.gilHeldIs( true );
      return PyGenericIf_FromPtrInterface( std::move( entity ) );
   } );
}

namespace {

// One walk of `mkdir`. GIL and activity lock; failures throw PythonException with a Python error,
// or what the runtime throws.
class PathWalk {
 public:
   PathWalk( Kel::Dir* start, char const* path ) : dir_( start ), path_( path ) {}

   Kel::Ptr< Kel::Dir > const& dir() const noexcept { return dir_; }

   void step( PyObject* component ) {
      Kel::String const name = nameOf( component );
      if( name.length() == 0 ) {
         PyErr_Format(
            PyExc_ValueError, "mkdir: bad name: '%s' is empty or has superfluous '/'", path_ );
         throw PythonException();
      }
      if( inWriteMounted_ ) {
         PyErr_Format( PyExc_ValueError, "mkdir: cannot create '%s' in w mounted dir '%s'",
            name.charPtr(), path_ );
         throw PythonException();
      }
      if( auto const entity = dir_->entityPtr( name ) ) {
         enter( entity );
      } else {
         create( name );
      }
   }

 private:
   // A subclass of `str` may split itself into anything.
   static Kel::String nameOf( PyObject* component ) {
      if( !PyString_Check( component ) ) {
         PyErr_Format( PyExc_TypeError, "mkdir: expected a str as part of the path, got %s",
            Py_TYPE( component )->tp_name );
         throw PythonException();
      }
      return PyStr_AsKelString( component );
   }

   void enter( Kel::Ptr< Kel::Entity > const& entity ) {
      auto* const dir = dynamic_cast< Kel::Dir* >( entity.get() );
      if( !dir ) {
         PyErr_Format( PyExc_Exception,
            "mkdir: cannot create '%s', because ancestor %s is not a Kel::Dir", path_,
            entity->fullName().charPtr() );
         throw PythonException();
      }
      dir_ = dir;
   }

   // In a write-mounted directory the walk stays where it is.
   void create( Kel::String const& name ) {
      Kel::KelType const type( &_Kel_Dir_kelModule, 0 );
      auto const entity = dir_->createEntity( Kel::String( type.fullTypeName() ), name );
      if( writeMounted( *dir_ ) ) {
         inWriteMounted_ = true;
         return;
      }
      auto* const dir = dynamic_cast< Kel::Dir* >( entity.get() );
      KEL_ASSERT( dir );
      dir_ = dir;
   }

   Kel::Ptr< Kel::Dir > dir_;
   char const* path_; // the whole of it, for texts
   bool inWriteMounted_ = false;
};

// GIL and activity lock.
PyObject* makeDirs( PyObject* self, PyObject* path ) {
   PathWalk walk( dirOf( self ), PyString_AS_STRING( path ) );
   char method[] = "split";
   char format[] = "s";
   auto const components = PyRef::steal( PyObject_CallMethod( path, method, format, "/" ) );
   auto const iterator =
      components ? PyRef::steal( PyObject_GetIter( components.get() ) ) : PyRef();
   if( !iterator ) {
      return nullptr;
   }
   while( auto const component = PyRef::steal( PyIter_Next( iterator.get() ) ) ) {
      walk.step( component.get() );
   }
   if( PyErr_Occurred() ) {
      return nullptr;
   }
   if( !walk.dir() ) {
      Py_RETURN_NONE;
   }
   return PyGenericIf_FromPtrInterface( walk.dir() );
}

} // namespace

PyObject* PyGenericIf_Dir_mkdir( PyObject* self, PyObject* args ) {
   PyObject* path = nullptr;
   if( !PyArg_ParseTuple( args, "O!:mkdir", &PyString_Type, &path ) ) {
      return nullptr;
   }
   Stage const stage( NoSubject(), "" );
   return underLocks(
      Kel::flags4, stage, noObject, [&]( Kel::PyLockAnchor& ) { return makeDirs( self, path ); } );
}

PyObject* PyGenericIf_Dir_clear( PyObject* self, PyObject* ) {
   Stage const stage( NoSubject(), "" );
   return underLocks( Kel::flags0, stage, noObject, [&]( Kel::PyLockAnchor& locks ) {
      Kel::Ptr< Kel::Dir > const dir( dirOf( self ) ); // kept, whatever is deleted
      dir->deleteAllEntities();
      locks.gilHeldIs( true );
      Py_RETURN_NONE;
   } );
}

PyObject* singleton( PyObject*, PyObject* args ) {
   char const* typeName = nullptr;
   if( !PyArg_ParseTuple( args, "s:singleton", &typeName ) ) {
      return nullptr;
   }
   Stage const stage( NoSubject(), "" );
   return underLocks( Kel::flags0, stage, noObject, [&]( Kel::PyLockAnchor& locks ) {
      auto entity = Kel::Entity::singleton( Kel::String( typeName ) );
      if( !entity ) {
         throw Kel::TypeException( Kel::_fmt( "type %s not found", typeName ) );
      }
      locks.gilHeldIs( true );
      return PyGenericIf_FromPtrInterface( std::move( entity ) );
   } );
}
