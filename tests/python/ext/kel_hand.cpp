// kel_hand: what a test sees of the runtime past the Python module. GIL.
#include <kelpy/core/PyPython.h>

#include <kel/AllocTrack.h>
#include <kelpy/core/PyRef.h>

namespace {

// The number of live objects by C++ class, as a new dict.
PyObject* live( PyObject*, PyObject* ) {
   PyRef counts = PyRef::steal( PyDict_New() );
   if( !counts ) {
      return nullptr;
   }
   for( Kel::AllocTrackTypeInfo const* info : Kel::AllocTrackTypeInfo::all() ) {
      PyRef const count = PyRef::steal( PyLong_FromUnsignedLongLong( info->live() ) );
      if( !count || PyDict_SetItemString( counts.get(), info->name().charPtr(), count.get() ) < 0 ) {
         return nullptr;
      }
   }
   return counts.release();
}

constinit PyMethodDef functions[] = {
   { "live", live, METH_NOARGS, "Live runtime objects by C++ class." },
   {},
};

} // namespace

extern "C" __attribute__( ( visibility( "default" ) ) ) void initkel_hand() {
   Py_InitModule( "kel_hand", functions );
}
