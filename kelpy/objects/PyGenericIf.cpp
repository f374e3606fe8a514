#include <kelpy/objects/PyGenericIf.h>

#include <new>

#include <kel/Assert.h>
#include <kel/Entity.h>
#include <kel/Exception.h>
#include <kelpy/core/PyMarshal.h>
#include <kelpy/core/PyRef.h>
#include <kelpy/objects/PyStage.h>

namespace {

PyGenericIf* asWrapper( PyObject* object ) {
   return reinterpret_cast< PyGenericIf* >( object );
}

// The address of the wrapped object or value, seen as its class's type.
void* addressOf( PyObject* wrapper ) {
   return asWrapper( wrapper )->gif->voidPtrIs( kelTypeOf( wrapper ) );
}

} // namespace

void throwNotWrapped() {
   throw Kel::TypeException( "expected a kelc-Python object" );
}

Kel::KelType kelTypeOfSelf( PyObject* self ) {
   Kel::KelType const type = kelTypeOf( self );
   if( !type ) {
      PyErr_SetString( PyExc_TypeError, "expected a kelc-Python object" );
   }
   return type;
}

PyObject* MakePyGenericIf( Kel::Ptr< Kel::GenericIf >&& gif ) noexcept {
   PyTypeObject* const cls = getOrCreatePyType( gif->type() );
   if( !cls ) {
      return nullptr;
   }
   PyObject* const self = cls->tp_alloc( cls, 0 );
   if( !self ) {
      return nullptr;
   }
   new( &asWrapper( self )->gif ) Kel::Ptr< Kel::GenericIf >( std::move( gif ) );
   return self;
}

PyObject* PyGenericIf_FromPtrInterface( Kel::Ptr< Kel::PtrInterface > ptr ) {
   KEL_ASSERT( ptr );
   return guarded( Stage( NoSubject(), "" ), noObject,
      [&] { return MakePyGenericIf( Kel::KelType::genericIf( ptr.get(), false ) ); } );
}

namespace {

// The runtime's reference goes under the activity lock and without the GIL: it may be the last one,
// and a destructor of the runtime then runs here. An exception ends the process.
void releaseGeneric( PyGenericIf* wrapper ) noexcept {
   Kel::PyLockAnchor const locks( Kel::flags0 );
   wrapper->gif.~Ptr();
}

} // namespace

void PyGenericIf_dealloc( PyObject* self ) {
   releaseGeneric( asWrapper( self ) );
   Py_TYPE( self )->tp_free( self );
}

std::uint32_t pyGenericIfHash( PyGenericIf* lhs ) {
   KEL_ASSERT( lhs );
   Stage const stage( kelTypeOf( reinterpret_cast< PyObject* >( lhs ) ), "" );
   return underLocks( Kel::flags0, stage, std::uint32_t( 0 ), [lhs]( Kel::PyLockAnchor& locks ) {
      auto const hash = static_cast< std::uint32_t >( PyGenericIfToGenericIf( lhs )->hash() );
      locks.gilHeldIs( true );
      return hash;
   } );
}

PyObject* pyGenericIfStrRep( PyGenericIf* lhs ) {
   KEL_ASSERT( lhs );
   Stage const stage( kelTypeOf( reinterpret_cast< PyObject* >( lhs ) ), "" );
   return underLocks( Kel::flags0, stage, noObject, [lhs]( Kel::PyLockAnchor& locks ) {
      auto const text = PyGenericIfToGenericIf( lhs )->strRep();
      locks.gilHeldIs( true );
      return PyStr_FromKelString( text );
   } );
}

PyObject* PyGenericIf_ptr_repr( PyObject* self ) {
   return pyGenericIfStrRep( asWrapper( self ) );
}

// Type and flag are read first: while the text is made, another thread can turn an entity's wrapper
// into a failed mount.
PyObject* PyGenericIf_ptr_str( PyObject* self ) {
   char const* const typeName = kelTypeOf( self ).fullTypeName();
   bool const isConst = asWrapper( self )->gif->isConst();
   auto const text = PyRef::steal( pyGenericIfStrRep( asWrapper( self ) ) );
   if( !text ) {
      return nullptr;
   }
   return PyString_FromFormat( "<%s of type %s (%s)>", PyString_AS_STRING( text.get() ), typeName,
      isConst ? "const" : "non-const" );
}

// A value that can still change has no hash that would stay right.
long PyGenericIf_hash( PyObject* self ) {
   Kel::KelType const type = kelTypeOf( self );
   if( type.isValue() && !asWrapper( self )->gif->isConst() ) {
      PyErr_Format( PyExc_TypeError, "non-const %s objects are unhashable", type.fullTypeName() );
      return -1;
   }
   long const hash = pyGenericIfHash( asWrapper( self ) );
   return PyErr_Occurred() ? -1 : hash;
}

namespace {

int PyGenericIf_ptr_nonzero( PyObject* ) {
   return 1;
}

Kel::String fullNameOf( PyObject* entity ) {
   auto const gif = PyGenericIfToGenericIf( asWrapper( entity ) );
   void* const address = gif->voidPtrIs( Kel::kelType< Kel::Entity >() );
   return static_cast< Kel::Entity* >( address )->fullName();
}

bool namesInOrder( Kel::String const& a, Kel::String const& b, int op ) {
   switch( op ) {
   case Py_LT:
      return a < b;
   case Py_LE:
      return !( b < a );
   case Py_GT:
      return b < a;
   default:
      return !( a < b );
   }
}

PyObject* compareEntities( PyObject* self, PyObject* other, int op ) {
   Stage const stage( kelTypeOf( self ), "" );
   return underLocks( Kel::flags0, stage, noObject, [&]( Kel::PyLockAnchor& locks ) {
      Kel::String const name = fullNameOf( self );
      Kel::String const otherName = fullNameOf( other );
      locks.gilHeldIs( true );
      return PyBool_FromLong( namesInOrder( name, otherName, op ) );
   } );
}

PyObject* compareAddresses( std::uintptr_t a, std::uintptr_t b, int op ) {
   switch( op ) {
   case Py_LT:
      return PyBool_FromLong( a < b );
   case Py_LE:
      return PyBool_FromLong( a <= b );
   case Py_EQ:
      return PyBool_FromLong( a == b );
   case Py_NE:
      return PyBool_FromLong( a != b );
   case Py_GT:
      return PyBool_FromLong( a > b );
   default:
      return PyBool_FromLong( a >= b );
   }
}

PyObject* notImplemented() {
   Py_INCREF( Py_NotImplemented );
   return Py_NotImplemented;
}

} // namespace

PyObject* PyGenericIf_ptr_richcompare( PyObject* self, PyObject* other, int op ) {
   Kel::KelType const otherType = kelTypeOf( other );
   if( !otherType || otherType.isValue() ) {
      return notImplemented();
   }
   bool const isOrder = op != Py_EQ && op != Py_NE;
   if( isOrder && kelTypeOf( self ).isEntity() && otherType.isEntity() ) {
      return compareEntities( self, other, op );
   }
   return compareAddresses( reinterpret_cast< std::uintptr_t >( addressOf( self ) ),
      reinterpret_cast< std::uintptr_t >( addressOf( other ) ), op );
}

constinit PyNumberMethods PyGenericIf_ptr_number = {
   .nb_nonzero = PyGenericIf_ptr_nonzero,
};

PyObject* PyGenericIf_references( PyObject* self, PyObject* ) {
   Kel::KelType const type = kelTypeOfSelf( self );
   if( !type ) {
      return nullptr;
   }
   Stage const stage( type, "references: " );
   return underLocks( Kel::flags0, stage, noObject, [&]( Kel::PyLockAnchor& locks ) -> PyObject* {
      if( type.isValue() || type.isBuiltinType() || type.isEnumType() ) {
         locks.gilHeldIs( true );
         PyErr_SetString( PyExc_NotImplementedError, "cannot get references for object of value, "
                                                     "built-in or enum type" );
         return nullptr;
      }
      unsigned long const count = PyGenericIfToGenericIf( asWrapper( self ) )->references();
      locks.gilHeldIs( true );
      return PyLong_FromUnsignedLong( count );
   } );
}

int Convert_To_PtrInterface_Or_Null_helper(
   PyObject* o, Kel::PtrInterface** out, Kel::KelType type ) {
   KEL_ASSERT( !type.isValue() );
   if( o == Py_None ) {
      *out = nullptr;
      return 1;
   }
   if( PyGenericIf_TypeCheck( o, type ) ) {
      *out = static_cast< Kel::PtrInterface* >( asWrapper( o )->gif->voidPtrIs( type ) );
      return 1;
   }
   PyErr_Format( PyExc_TypeError, "expected a %s or None", type.fullTypeName() );
   return 0;
}

namespace {

PyObject* copyValue( PyObject* object, bool isConst ) {
   Kel::KelType const type = kelTypeOf( object );
   if( !type || !type.isValue() ) {
      PyErr_SetString( PyExc_TypeError, "expected a kelc-Python value object" );
      return nullptr;
   }
   Stage const stage( type, "" );
   return underLocks( Kel::flags0, stage, noObject, [&]( Kel::PyLockAnchor& locks ) {
      auto const original = PyGenericIfToGenericIf( asWrapper( object ) );
      auto copy = type.genericIf( static_cast< void const* >( addressOf( object ) ), isConst );
      locks.gilHeldIs( true );
      return MakePyGenericIf( std::move( copy ) );
   } );
}

PyObject* copyPtr( PyObject* object, bool isConst ) {
   Kel::KelType const type = kelTypeOf( object );
   if( !type || type.isValue() ) {
      PyErr_SetString( PyExc_TypeError, "expected a non-value kelc-Python object" );
      return nullptr;
   }
   void* const address = addressOf( object );
   Stage const stage( type, "" );
   return underLocks( Kel::flags0, stage, noObject, [&]( Kel::PyLockAnchor& locks ) {
      // Keeps the object at the address; refused if the wrapper has become a failed mount.
      auto const original = PyGenericIfToGenericIf( asWrapper( object ) );
      auto view =
         type.hasOwnPtrInterface()
            ? type.genericIf( static_cast< void const* >( address ), isConst )
            : Kel::KelType::genericIf( static_cast< Kel::PtrInterface* >( address ), isConst );
      locks.gilHeldIs( true );
      return MakePyGenericIf( std::move( view ) );
   } );
}

} // namespace

PyObject* constValue( PyObject*, PyObject* object ) {
   return copyValue( object, true );
}

PyObject* nonConstValue( PyObject*, PyObject* object ) {
   return copyValue( object, false );
}

PyObject* constPtr( PyObject*, PyObject* object ) {
   return copyPtr( object, true );
}

PyObject* nonConstPtr( PyObject*, PyObject* object ) {
   return copyPtr( object, false );
}
