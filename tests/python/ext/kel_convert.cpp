// kel_convert: the conversions of the module and its guard of mount proxies, called directly.
// Entered with the GIL held; what needs the activity lock takes it.
#include <kelpy/core/PyPython.h>

#include <kelpy/convert/DefaultAttrData.h>
#include <kelpy/convert/GenericIfToPyObject.h>
#include <kelpy/convert/PyIntegral.h>
#include <kelpy/convert/PyObjectToGenericIf.h>
#include <kelpy/convert/PyTupleToGenericIfVector.h>
#include <kelpy/core/PyFailure.h>
#include <kelpy/core/PyLock.h>
#include <kelpy/objects/MountProxyAnchor.h>
#include <kelpy/reflection/PyKelAttr.h>
#include <kelpy/reflection/PyKelType.h>

namespace {

// Runs `body` under the locks; what it throws is raised in Python without a prefix.
template< class Body >
PyObject* underLocks( Kel::PyLockAnchor::Flags flags, Body body ) noexcept {
   try {
      Kel::PyLockAnchor locks( flags );
      try {
         return body( locks );
      } catch( ... ) {
         Kel::translateCppExceptionToPython( "" );
      }
   } catch( ... ) {
      Kel::translateCppExceptionToPython( "" );
   }
   return nullptr;
}

// (full type name, const flag, address of the generic, value without its default attribute), or
// None for a null pointer.
PyObject* describe( Kel::Ptr< Kel::GenericIf const > const& gif ) {
   if( !gif ) {
      Py_RETURN_NONE;
   }
   auto const shared = Kel::Ptr< Kel::GenericIf >( const_cast< Kel::GenericIf* >( gif.get() ) );
   return Py_BuildValue( "(sNkN)", gif->type().fullTypeName(), PyBool_FromLong( gif->isConst() ),
      reinterpret_cast< unsigned long >( gif.get() ), GenericIfToPyObject( shared, false ) );
}

struct ToGenericArgs {
   PyObject* object = nullptr;
   Kel::KelType type;
   int optional = 0;

   bool parse( PyObject* args ) {
      return PyArg_ParseTuple( args, "OO&i", &object, Convert_To_KelType, &type, &optional );
   }
};

// toGeneric(object, type, optional): the conversion with the GIL held.
PyObject* toGeneric( PyObject*, PyObject* args ) {
   ToGenericArgs given;
   if( !given.parse( args ) ) {
      return nullptr;
   }
   return underLocks( Kel::flags4, [&]( Kel::PyLockAnchor& ) {
      return describe( PyObjectToGenericIf_unsafe( given.object, given.type, given.optional ) );
   } );
}

// The same for a caller that has given up the GIL.
PyObject* toGenericWithoutGil( PyObject*, PyObject* args ) {
   ToGenericArgs given;
   if( !given.parse( args ) ) {
      return nullptr;
   }
   return underLocks( Kel::flags0, [&]( Kel::PyLockAnchor& locks ) {
      auto const gif = PyObjectToGenericIf( given.object, given.type, given.optional );
      locks.gilHeldIs( true );
      return describe( gif );
   } );
}

// throughGeneric(object, type, useDefaultAttr): into the runtime and out again.
PyObject* throughGeneric( PyObject*, PyObject* args ) {
   PyObject* object = nullptr;
   Kel::KelType type;
   int useDefaultAttr = 0;
   if( !PyArg_ParseTuple( args, "OO&i", &object, Convert_To_KelType, &type, &useDefaultAttr ) ) {
      return nullptr;
   }
   return underLocks( Kel::flags4, [&]( Kel::PyLockAnchor& ) {
      return GenericIfToPyObject(
         PyObjectToGenericIf_unsafe( object, type, false ), useDefaultAttr != 0 );
   } );
}

PyObject* nullToPython( PyObject*, PyObject* useDefaultAttr ) {
   return GenericIfToPyObject( nullptr, PyObject_IsTrue( useDefaultAttr ) != 0 );
}

// enumText(type, number): how a value of that number reads, constant or not.
PyObject* enumText( PyObject*, PyObject* args ) {
   Kel::KelType type;
   PyObject* number = nullptr;
   if( !PyArg_ParseTuple( args, "O&O", Convert_To_KelType, &type, &number ) ) {
      return nullptr;
   }
   return underLocks( Kel::flags4, [&]( Kel::PyLockAnchor& ) {
      return visitIntegral( type.underlyingType(), [&]< class T >( IntegralTag< T > ) {
         return GenericIfEnumToPyObject< T >(
            type, static_cast< T >( PyInt_AsUnsignedLongLongMask( number ) ) );
      } );
   } );
}

PyObject* describeAll( Kel::ArgVector const& arguments ) {
   PyRef list = PyRef::steal( PyList_New( 0 ) );
   for( auto const& argument : arguments ) {
      PyRef const item = PyRef::steal( describe( argument ) );
      if( !list || !item || PyList_Append( list.get(), item.get() ) < 0 ) {
         return nullptr;
      }
   }
   return list.release();
}

// constructorArgs(object, type): a list of what toGeneric gives.
PyObject* constructorArgs( PyObject*, PyObject* args ) {
   PyObject* object = nullptr;
   Kel::KelType type;
   if( !PyArg_ParseTuple( args, "OO&", &object, Convert_To_KelType, &type ) ) {
      return nullptr;
   }
   return underLocks( Kel::flags0, [&]( Kel::PyLockAnchor& locks ) {
      auto const arguments = PyTupleToGenericIfVector( object, type );
      locks.gilHeldIs( true );
      return describeAll( arguments );
   } );
}

// attributeArgs(object, attr): the same for a function or an instantiating attribute.
PyObject* attributeArgs( PyObject*, PyObject* args ) {
   PyObject* object = nullptr;
   Kel::KelAttr attr;
   if( !PyArg_ParseTuple( args, "OO&", &object, Convert_To_KelAttr, &attr ) ) {
      return nullptr;
   }
   return underLocks( Kel::flags0, [&]( Kel::PyLockAnchor& locks ) {
      auto const arguments = PyTupleToGenericIfVector( object, attr );
      locks.gilHeldIs( true );
      return describeAll( arguments );
   } );
}

// defaultAttr(type): (attribute read, attribute written, whether it holds source text).
PyObject* defaultAttr( PyObject*, PyObject* args ) {
   Kel::KelType type;
   if( !PyArg_ParseTuple( args, "O&", Convert_To_KelType, &type ) ) {
      return nullptr;
   }
   return underLocks( Kel::flags4, [&]( Kel::PyLockAnchor& ) {
      DefaultAttrData const data = defaultAttrData( type );
      return Py_BuildValue( "(NNN)", PyKelAttr_FromKelAttr( data.getAttr ),
         PyKelAttr_FromKelAttr( data.setAttr ), PyBool_FromLong( data.isRepr ) );
   } );
}

// resolved(object): what the guard of mount proxies puts in its place. Takes no lock.
PyObject* resolved( PyObject*, PyObject* object ) {
   try {
      MountProxyAnchor const proxy( object );
      return PyRef::borrow( proxy.resolved() ).release();
   } catch( ... ) {
      Kel::translateCppExceptionToPython( "resolution: " );
      return nullptr;
   }
}

// resolvedWithPendingError(object): the same while a KeyError is pending, as (object, whether that
// error is pending still).
PyObject* resolvedWithPendingError( PyObject*, PyObject* object ) {
   PyErr_SetString( PyExc_KeyError, "pending" );
   try {
      MountProxyAnchor const proxy( object );
      bool const isPending = PyErr_ExceptionMatches( PyExc_KeyError );
      PyErr_Clear();
      return Py_BuildValue( "(ON)", proxy.resolved(), PyBool_FromLong( isPending ) );
   } catch( ... ) {
      Kel::translateCppExceptionToPython( "resolution: " );
      return nullptr;
   }
}

bool resolvesNull() {
   return !MountProxyAnchor( nullptr ).resolved();
}

PyObject* nullStaysNull( PyObject*, PyObject* ) {
   return PyBool_FromLong( resolvesNull() );
}

constinit PyMethodDef functions[] = {
   { "toGeneric", toGeneric, METH_VARARGS, nullptr },
   { "toGenericWithoutGil", toGenericWithoutGil, METH_VARARGS, nullptr },
   { "throughGeneric", throughGeneric, METH_VARARGS, nullptr },
   { "nullToPython", nullToPython, METH_O, nullptr },
   { "enumText", enumText, METH_VARARGS, nullptr },
   { "constructorArgs", constructorArgs, METH_VARARGS, nullptr },
   { "attributeArgs", attributeArgs, METH_VARARGS, nullptr },
   { "defaultAttr", defaultAttr, METH_VARARGS, nullptr },
   { "resolved", resolved, METH_O, nullptr },
   { "resolvedWithPendingError", resolvedWithPendingError, METH_O, nullptr },
   { "nullStaysNull", nullStaysNull, METH_NOARGS, nullptr },
   {},
};

} // namespace

extern "C" __attribute__( ( visibility( "default" ) ) ) void initkel_convert() {
   Py_InitModule( "kel_convert", functions );
}
