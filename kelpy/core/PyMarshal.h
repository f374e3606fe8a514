// Texts, byte strings and integers between Python and the runtime. GIL; no runtime lock.
#pragma once

#include <kelpy/core/PyPython.h>

#include <string>

#include <kel/String.h>
#include <kelpy/core/KelPyExport.h>

// New references; null with Python's MemoryError. NUL bytes inside stay.
KELPY_API PyObject* PyStr_FromKelString( Kel::String const& text );
KELPY_API PyObject* PyBytes_FromKelBytes( Kel::Bytes const& bytes );
// An `int`, or a `long` from 2**63 on.
KELPY_API PyObject* PyIntOrLong_FromUnsignedLongLong( unsigned long long value );
// An `int` always.
KELPY_API PyObject* PyIntOrLong_FromLongLong( long long value );

// The caller has checked the object's type: another one is a fault of the program. They throw
// Kel::MemoryException, and Kel::RangeException for a text beyond 32 bits of length.
KELPY_API Kel::String PyStr_AsKelString( PyObject* str );
KELPY_API Kel::String PyUnicode_AsKelString( PyObject* unicode ); // as UTF-8
KELPY_API Kel::Bytes PyBytes_AsKelBytes( PyObject* str );
KELPY_API Kel::Bytes PyByteArray_AsKelBytes( PyObject* byteArray );

// The system's text of an error number.
KELPY_API std::string errorString( int errnum );
