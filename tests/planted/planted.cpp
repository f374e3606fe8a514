// An extension with faults on purpose: what a sanitizer must find in a module of ours that an
// uninstrumented interpreter loads.
#include <Python.h>

#include <climits>
#include <thread>

namespace {

// The optimiser must not see what it could warn of or fold.
int volatile opaque = INT_MAX;
int shared = 0;

// The byte behind a block of the heap.
PyObject* planted_overrun( PyObject*, PyObject* ) {
   char* volatile block = new char[8];
   char const read = block[opaque - ( INT_MAX - 8 )];
   delete[] block;
   return PyInt_FromLong( read );
}

PyObject* planted_overflow( PyObject*, PyObject* ) {
   int const sum = opaque + 1;
   return PyInt_FromLong( sum );
}

void raise() {
   for( int i = 0; i < 1000; ++i ) {
      shared = shared + 1;
   }
}

PyObject* planted_race( PyObject*, PyObject* ) {
   std::thread one( raise );
   std::thread other( raise );
   one.join();
   other.join();
   return PyInt_FromLong( shared );
}

constinit PyMethodDef planted_methods[] = {
   { .ml_name = "overrun", .ml_meth = planted_overrun, .ml_flags = METH_NOARGS },
   { .ml_name = "overflow", .ml_meth = planted_overflow, .ml_flags = METH_NOARGS },
   { .ml_name = "race", .ml_meth = planted_race, .ml_flags = METH_NOARGS },
   {},
};

} // namespace

extern "C" __attribute__( ( visibility( "default" ) ) ) void initplanted() {
   Py_InitModule( "planted", planted_methods );
}
