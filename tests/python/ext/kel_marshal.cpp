// kel_marshal: the conversions of scalars and texts, one by one. GIL.
#include <kelpy/core/PyPython.h>

#include <kelpy/core/PyMarshal.h>

namespace {

// There and back.
PyObject* str( PyObject*, PyObject* object ) {
   return PyStr_FromKelString( PyStr_AsKelString( object ) );
}
PyObject* unicode( PyObject*, PyObject* object ) {
   return PyStr_FromKelString( PyUnicode_AsKelString( object ) );
}
PyObject* bytes( PyObject*, PyObject* object ) {
   return PyBytes_FromKelBytes( PyBytes_AsKelBytes( object ) );
}
PyObject* byteArray( PyObject*, PyObject* object ) {
   return PyBytes_FromKelBytes( PyByteArray_AsKelBytes( object ) );
}

// The lengths that the runtime sees.
PyObject* lengths( PyObject*, PyObject* object ) {
   return Py_BuildValue( "(II)", PyStr_AsKelString( object ).length(),
      static_cast< unsigned >( PyBytes_AsKelBytes( object ).length() ) );
}

PyObject* nullString( PyObject*, PyObject* ) {
   return PyStr_FromKelString( Kel::String() );
}
PyObject* emptyString( PyObject*, PyObject* ) {
   return PyStr_FromKelString( Kel::String( "" ) );
}
PyObject* nullBytes( PyObject*, PyObject* ) {
   return PyBytes_FromKelBytes( Kel::Bytes() );
}

PyObject* unsignedNumber( PyObject*, PyObject* number ) {
   return PyIntOrLong_FromUnsignedLongLong( PyInt_AsUnsignedLongLongMask( number ) );
}
PyObject* signedNumber( PyObject*, PyObject* number ) {
   return PyIntOrLong_FromLongLong( PyInt_AsLong( number ) );
}

PyObject* error( PyObject*, PyObject* number ) {
   return PyString_FromString(
      errorString( static_cast< int >( PyInt_AsLong( number ) ) ).c_str() );
}

constinit PyMethodDef functions[] = {
   { "str", str, METH_O, nullptr },
   { "unicode", unicode, METH_O, nullptr },
   { "bytes", bytes, METH_O, nullptr },
   { "byteArray", byteArray, METH_O, nullptr },
   { "lengths", lengths, METH_O, nullptr },
   { "nullString", nullString, METH_NOARGS, nullptr },
   { "emptyString", emptyString, METH_NOARGS, nullptr },
   { "nullBytes", nullBytes, METH_NOARGS, nullptr },
   { "unsignedNumber", unsignedNumber, METH_O, nullptr },
   { "signedNumber", signedNumber, METH_O, nullptr },
   { "error", error, METH_O, nullptr },
   {},
};

} // namespace

extern "C" __attribute__( ( visibility( "default" ) ) ) void initkel_marshal() {
   Py_InitModule( "kel_marshal", functions );
}
