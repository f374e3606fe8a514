#include <kelpy/diagnostics/PyBacktrace.h>

#include <execinfo.h>

#include <cstdlib>
#include <memory>

#include <kel/Assert.h>
#include <kelpy/core/PyRef.h>

namespace {

struct Free {
   void operator()( void* memory ) const noexcept { std::free( memory ); }
};

Kel::Backtrace const& backtraceOf( PyObject* self ) {
   return *reinterpret_cast< PyBacktrace* >( self )->backtrace;
}

void PyBacktrace_dealloc( PyObject* self ) {
   std::destroy_at( &reinterpret_cast< PyBacktrace* >( self )->backtrace );
   Py_TYPE( self )->tp_free( self );
}

PyObject* PyBacktrace_repr( PyObject* self ) {
   return PyString_FromFormat(
      "<_Kel.Backtrace with %d frames>", static_cast< int >( backtraceOf( self ).frames() ) );
}

PyObject* PyBacktrace_frames( PyObject* self, PyObject* ) {
   Kel::Backtrace const& backtrace = backtraceOf( self );
   unsigned const count = backtrace.frames();
   PyRef list = PyRef::steal( PyList_New( count ) );
   if( !list || count == 0 ) {
      return list.release();
   }
   std::unique_ptr< char*[], Free > const syms(
      backtrace_symbols( backtrace.addresses(), static_cast< int >( count ) ) );
   KEL_ASSERT( syms );
   for( unsigned i = 0; i < count; ++i ) {
      PyObject* const line = PyString_FromString( syms[i] );
      if( !line ) {
         return nullptr;
      }
      PyList_SET_ITEM( list.get(), i, line );
   }
   return list.release();
}

constinit PyMethodDef PyBacktrace_methods[] = {
   { "frames", PyBacktrace_frames, METH_NOARGS, "return stack frames" },
   {},
};

} // namespace

constinit PyTypeObject PyBacktraceType = {
   .ob_refcnt = 1,
   .tp_name = "_Kel.Backtrace",
   .tp_basicsize = sizeof( PyBacktrace ),
   .tp_dealloc = PyBacktrace_dealloc,
   .tp_repr = PyBacktrace_repr,
   .tp_flags = Py_TPFLAGS_DEFAULT,
   .tp_doc = "Wraps a Kel::Backtrace",
   .tp_methods = PyBacktrace_methods,
};

PyObject* PyBacktrace_FromBacktrace( Kel::Ptr< Kel::Backtrace const > backtrace ) {
   if( !backtrace ) {
      Py_RETURN_NONE;
   }
   PyObject* const self = _PyObject_New( &PyBacktraceType );
   if( !self ) {
      return nullptr;
   }
   std::construct_at(
      &reinterpret_cast< PyBacktrace* >( self )->backtrace, std::move( backtrace ) );
   return self;
}
