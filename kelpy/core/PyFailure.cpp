#include <kelpy/core/PyFailure.h>

#include <cxxabi.h>

#include <exception>
#include <new>
#include <typeinfo>

#include <kel/Assert.h>
#include <kel/String.h>
#include <kelpy/core/PyLock.h>
#include <kelpy/core/PyMarshal.h>
#include <kelpy/core/PyRef.h>
#include <kelpy/diagnostics/PyBacktrace.h>

namespace {

// A part of the text of a failure. Memory may be what has failed: then it says something else.
class Part {
 public:
   template< class Make >
   Part( Make make, char const* otherwise ) noexcept : otherwise_( otherwise ) {
      try {
         text_ = make();
         otherwise_ = nullptr;
      } catch( Kel::MemoryException const& ) {
      } catch( std::bad_alloc const& ) {
      }
   }

   char const* charPtr() const noexcept { return otherwise_ ? otherwise_ : text_.charPtr(); }

 private:
   Kel::String text_;
   char const* otherwise_;
};

PyRef messageText( Kel::Exception const& exc, char const* prefix ) {
   Part const name( [&] { return Kel::demangle( typeid( exc ) ); }, typeid( exc ).name() );
   return PyRef::steal(
      PyString_FromFormat( "%s%s(\"%s\")", prefix, name.charPtr(), exc.message().charPtr() ) );
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

void raiseErrno( Kel::ErrnoException const& exc, char const* prefix ) {
   KEL_ASSERT( !PyErr_Occurred() );
   Part const text( [&] { return Kel::String( errorString( exc.errnoValue() ).c_str() ); }, "" );
   PyRef const args = PyRef::steal(
      Py_BuildValue( "(iss)", exc.errnoValue(), text.charPtr(), exc.text().charPtr() ) );
   if( args ) {
      PyErr_SetBacktrace( PyExc_OSError, exc, prefix, args.get() );
   } else {
      PyErr_SetObject( PyExc_OSError, nullptr );
   }
}

// What a runtime exception becomes in Python.
struct Translation {
   bool ( *matches )( Kel::Exception const* exc );
   PyObject** cls;
};

template< class E >
constexpr Translation to( PyObject*& cls ) {
   return { []( Kel::Exception const* exc ) { return dynamic_cast< E const* >( exc ) != nullptr; },
      &cls };
}

// The first match counts: a derived class stands before its base.
Translation const translations[] = {
   to< Kel::NoTypeNodeException >( PyExc_TypeError ),
   to< Kel::TypeException >( PyExc_TypeError ),
   to< Kel::IllegalNameException >( PyExc_NameError ),
   to< Kel::NameInUseException >( PyExc_NameError ),
   to< Kel::ConstException >( PyExc_AttributeError ),
   to< Kel::NondeletableAttrException >( PyExc_AttributeError ),
   to< Kel::NoImplementationException >( PyExc_NotImplementedError ),
   to< Kel::RpcException >( PyExc_RuntimeError ),
   to< Kel::RangeException >( PyExc_IndexError ),
   to< Kel::ErrnoException >( PyExc_OSError ),
   to< Kel::MemoryException >( PyExc_MemoryError ),
   to< Kel::InternalException >( PyExc_SystemError ),
   to< Kel::OpNotSupportedException >( PyExc_NotImplementedError ),
   to< Kel::Exception >( PyExc_Exception ),
};

void raiseKelException( Kel::Exception const& exc, char const* prefix ) {
   auto const* row = translations;
   while( !row->matches( &exc ) ) {
      ++row;
   }
   if( *row->cls == PyExc_OSError ) {
      raiseErrno( static_cast< Kel::ErrnoException const& >( exc ), prefix );
   } else {
      KEL_ASSERT( !PyErr_Occurred() );
      PyErr_SetBacktrace( *row->cls, exc, prefix, nullptr );
   }
}

// A thrown value of a type that nobody declared. One thrown by another language has no C++ type.
void raiseUnknown( char const* prefix ) {
   // The C++ library reads the type in front of the exception, where that of another language has
   // something else; it tells the two apart only when it is asked for a pointer.
   std::type_info const* const ti =
      std::current_exception() ? abi::__cxa_current_exception_type() : nullptr;
   KEL_ASSERT( ti );
   KEL_ASSERT( !PyErr_Occurred() );
   Part const name( [&] { return Kel::demangle( ti->name() ); }, ti->name() );
   PyErr_Format( PyExc_Exception, "%sunknown C++ exception of type '%s'", prefix, name.charPtr() );
}

Part subjectAndPrefix( Kel::KelType type, char const* prefix ) {
   return Part( [&] { return Kel::_fmt( "%s: %s", type.fullTypeName(), prefix ); }, prefix );
}

Part subjectAndPrefix( Kel::KelAttr attr, char const* prefix ) {
   return Part(
      [&] { return Kel::_fmt( "%s.%s: %s", attr.scope().fullTypeName(), attr.name(), prefix ); },
      prefix );
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
   } catch( Kel::Exception const& exc ) {
      raiseKelException( exc, prefix );
   } catch( PythonException const& ) {
      KEL_ASSERT( PyErr_Occurred() );
   } catch( std::exception const& exc ) {
      KEL_ASSERT( !PyErr_Occurred() );
      PyErr_Format( PyExc_SystemError, "%s%s", prefix, exc.what() );
   } catch( ... ) {
      raiseUnknown( prefix );
   }
}

void Kel::translateCppExceptionToPython( Exception const& exc, char const* prefix ) noexcept {
   GilAnchor const gil;
   raiseKelException( exc, prefix );
}

void Kel::translateCppExceptionToPython( KelType type, char const* prefix ) noexcept {
   translateCppExceptionToPython( subjectAndPrefix( type, prefix ).charPtr() );
}

void Kel::translateCppExceptionToPython(
   Exception const& exc, KelType type, char const* prefix ) noexcept {
   translateCppExceptionToPython( exc, subjectAndPrefix( type, prefix ).charPtr() );
}

void Kel::translateCppExceptionToPython( KelAttr attr, char const* prefix ) noexcept {
   translateCppExceptionToPython( subjectAndPrefix( attr, prefix ).charPtr() );
}

void Kel::translateCppExceptionToPython(
   Exception const& exc, KelAttr attr, char const* prefix ) noexcept {
   translateCppExceptionToPython( exc, subjectAndPrefix( attr, prefix ).charPtr() );
}
