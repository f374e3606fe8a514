#include <kelpy/core/PyMarshal.h>

#include <cstring>

#include <kel/Assert.h>
#include <kelpy/core/PyRef.h>

PyObject* PyStr_FromKelString( Kel::String const& text ) {
   return PyString_FromStringAndSize( text.charPtr(), text.length() );
}

PyObject* PyBytes_FromKelBytes( Kel::Bytes const& bytes ) {
   return PyString_FromStringAndSize(
      reinterpret_cast< char const* >( bytes.bytesPtr() ), bytes.length() );
}

PyObject* PyIntOrLong_FromUnsignedLongLong( unsigned long long value ) {
   auto const asLong = static_cast< long >( value );
   return asLong < 0 ? PyLong_FromUnsignedLongLong( value ) : PyInt_FromLong( asLong );
}

PyObject* PyIntOrLong_FromLongLong( long long value ) {
   return PyInt_FromLong( value );
}

Kel::String PyStr_AsKelString( PyObject* str ) {
   char const* const buf = PyString_AsString( str );
   KEL_ASSERT( buf );
   return Kel::String( buf, PyString_Size( str ) );
}

Kel::String PyUnicode_AsKelString( PyObject* unicode ) {
   PyRef const encoded = PyRef::steal( PyUnicode_AsUTF8String( unicode ) );
   KEL_ASSERT( encoded );
   return PyStr_AsKelString( encoded.get() );
}

Kel::Bytes PyBytes_AsKelBytes( PyObject* str ) {
   char* bytes = nullptr;
   Py_ssize_t length = 0;
   int const rc = PyString_AsStringAndSize( str, &bytes, &length );
   KEL_ASSERT( rc != -1 );
   return Kel::Bytes( reinterpret_cast< unsigned char const* >( bytes ), length );
}

Kel::Bytes PyByteArray_AsKelBytes( PyObject* byteArray ) {
   return Kel::Bytes( reinterpret_cast< unsigned char const* >( PyByteArray_AsString( byteArray ) ),
      PyByteArray_Size( byteArray ) );
}

std::string errorString( int errnum ) {
   char buffer[256];
   return strerror_r( errnum, buffer, sizeof buffer );
}
