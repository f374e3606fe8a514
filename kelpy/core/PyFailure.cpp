#include <kelpy/core/PyFailure.h>

#include <cxxabi.h>

#include <typeinfo>

#include <kel/Assert.h>
#include <kel/String.h>
#include <kelpy/core/PyLock.h>
#include <kelpy/core/PyMarshal.h>
#include <kelpy/core/PyRef.h>
#include <kelpy/diagnostics/PyBacktrace.h>

namespace {

PyRef messageText( Kel::Exception const& exc, char const* prefix ) {
   return PyRef::steal( PyString_FromFormat(
      "%s%s(\"%s\")", prefix, Kel::demangle( typeid( exc ) ).charPtr(), exc.message().charPtr() ) );
}

// The instance to raise; null with a Python error.
PyRef makeInstance( PyObject* cls, Kel::Exception const& exc, char const* prefix, PyObject* args ) {
   if( args ) {
      return PyRef::steal( PyObject_CallObject( cls, args ) );
   }
   PyRef const text = messageText( exc, prefix );
   if( !text ) {
      return PyRef();
   }
   return PyRef::steal( PyObject_CallFunctionObjArgs( cls, text.get(), nullptr ) );
}

void attachBacktrace( PyObject* instance, Kel::Exception const& exc ) {
   Kel::Ptr< Kel::Backtrace const > backtrace = exc.backtrace();
   if( !backtrace ) {
      return;
   }
   PyRef const wrapped = PyRef::steal( PyBacktrace_FromBacktrace( std::move( backtrace ) ) );
   if( wrapped ) {
      PyObject_SetAttrString( instance, "backtrace", wrapped.get() );
   }
}

// One row of the translation: asserts that no error is pending before it sets one.
void raise(
   PyObject* cls, Kel::Exception const& exc, char const* prefix, PyObject* args = nullptr ) {
   KEL_ASSERT( !PyErr_Occurred() );
   PyErr_SetBacktrace( cls, exc, prefix, args );
}

void raiseErrno( Kel::ErrnoException const& exc, char const* prefix ) {
   KEL_ASSERT( !PyErr_Occurred() );
   PyRef const args = PyRef::steal( Py_BuildValue(
      "(iss)", exc.errnoValue(), errorString( exc.errnoValue() ).c_str(), exc.text().charPtr() ) );
   PyErr_SetBacktrace( PyExc_OSError, exc, prefix, args.get() );
}

// A derived class stands before its base.
void raiseKelException( char const* prefix ) {
   try {
      throw;
   } catch( Kel::NoTypeNodeException const& exc ) {
      raise( PyExc_TypeError, exc, prefix );
   } catch( Kel::TypeException const& exc ) {
      raise( PyExc_TypeError, exc, prefix );
   } catch( Kel::IllegalNameException const& exc ) {
      raise( PyExc_NameError, exc, prefix );
   } catch( Kel::NameInUseException const& exc ) {
      raise( PyExc_NameError, exc, prefix );
   } catch( Kel::ConstException const& exc ) {
      raise( PyExc_AttributeError, exc, prefix );
   } catch( Kel::NondeletableAttrException const& exc ) {
      raise( PyExc_AttributeError, exc, prefix );
   } catch( Kel::NoImplementationException const& exc ) {
      raise( PyExc_NotImplementedError, exc, prefix );
   } catch( Kel::RpcException const& exc ) {
      raise( PyExc_RuntimeError, exc, prefix );
   } catch( Kel::RangeException const& exc ) {
      raise( PyExc_IndexError, exc, prefix );
   } catch( Kel::ErrnoException const& exc ) {
      raiseErrno( exc, prefix );
   } catch( Kel::MemoryException const& exc ) {
      raise( PyExc_MemoryError, exc, prefix );
   } catch( Kel::InternalException const& exc ) {
      raise( PyExc_SystemError, exc, prefix );
   } catch( Kel::OpNotSupportedException const& exc ) {
      raise( PyExc_NotImplementedError, exc, prefix );
   } catch( Kel::Exception const& exc ) {
      raise( PyExc_Exception, exc, prefix );
   }
}

// A thrown value of a type that nobody declared. One thrown by another language has no C++ type.
void raiseUnknown( char const* prefix ) {
   std::type_info const* ti = abi::__cxa_current_exception_type();
   KEL_ASSERT( ti );
   KEL_ASSERT( !PyErr_Occurred() );
   char const* const mangled = ti->name();
   PyErr_Format( PyExc_Exception, "%sunknown C++ exception of type '%s'", prefix,
      Kel::demangle( *mangled == '*' ? mangled + 1 : mangled ).charPtr() );
}

} // namespace

void PyErr_SetBacktrace(
   PyObject* cls, Kel::Exception const& exc, char const* prefix, PyObject* args ) noexcept {
   PyRef const instance = makeInstance( cls, exc, prefix, args );
   if( !instance ) {
      PyErr_SetObject( cls, nullptr );
      return;
   }
   attachBacktrace( instance.get(), exc );
   PyErr_SetObject( cls, instance.get() );
}

void Kel::translateCppExceptionToPython( char const* prefix ) noexcept {
   GilAnchor const gil;
   try {
      throw;
   } catch( Kel::Exception const& ) {
      raiseKelException( prefix );
   } catch( PythonException const& ) {
      KEL_ASSERT( PyErr_Occurred() );
   } catch( std::exception const& exc ) {
      KEL_ASSERT( !PyErr_Occurred() );
      PyErr_Format( PyExc_SystemError, "%s%s", prefix, exc.what() );
   } catch( ... ) {
      raiseUnknown( prefix );
   }
}

void Kel::translateCppExceptionToPython( KelType type, char const* prefix ) noexcept {
   translateCppExceptionToPython( _fmt( "%s: %s", type.fullTypeName(), prefix ).charPtr() );
}

void Kel::translateCppExceptionToPython( KelAttr attr, char const* prefix ) noexcept {
   translateCppExceptionToPython(
      _fmt( "%s.%s: %s", attr.scope().fullTypeName(), attr.name(), prefix ).charPtr() );
}
