// Python's C interface. Python.h sets feature macros, so this header stands before every other
// one. Nothing here is locked by itself: calls into Python need the GIL.
#pragma once

#ifndef PY_SSIZE_T_CLEAN
#error "\"s#\" takes a Py_ssize_t here: the build has to define PY_SSIZE_T_CLEAN"
#endif

#include <Python.h>

static_assert( PY_MAJOR_VERSION == 2 && PY_MINOR_VERSION == 7 );
static_assert( Py_UNICODE_SIZE == 4 );
static_assert( sizeof( long ) == 8 && sizeof( Py_ssize_t ) == 8 );
// What every type of this module says, without Py_TPFLAGS_BASETYPE.
static_assert( Py_TPFLAGS_DEFAULT == 0x201eb );
