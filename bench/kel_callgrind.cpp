// Tells callgrind where a count begins and where it ends. Outside of valgrind nothing happens.
#include <Python.h>

#include <valgrind/callgrind.h>

namespace {

PyObject* begin( PyObject*, PyObject* ) {
   CALLGRIND_ZERO_STATS;
   CALLGRIND_START_INSTRUMENTATION;
   Py_RETURN_NONE;
}

PyObject* end( PyObject*, PyObject* name ) {
   char const* const text = PyString_AsString( name );
   if( !text ) {
      return nullptr;
   }
   CALLGRIND_DUMP_STATS_AT( text );
   CALLGRIND_STOP_INSTRUMENTATION;
   Py_RETURN_NONE;
}

PyMethodDef functions[] = {
   { "begin", begin, METH_NOARGS, "Counts from here on." },
   { "end", end, METH_O, "Writes the counts under that name." },
   { nullptr, nullptr, 0, nullptr },
};

} // namespace

extern "C" __attribute__( ( visibility( "default" ) ) ) void initkel_callgrind() {
   Py_InitModule( "kel_callgrind", functions );
}
