// _Kel.Iterator, a Python loop over a collection: each step takes the locks anew. Entered with the
// GIL held.
#pragma once

#include <kelpy/core/PyPython.h>

#include <cstdint>

#include <kel/KelAttr.h>
#include <kelpy/core/KelPyExport.h>
#include <kelpy/objects/PyGenericIf.h>

// What a step yields.
enum class PyGenericIfIteratorMode : std::uint32_t {
   key = 0,
   value = 1,
   item = 2, // a tuple of key and member
};

// A new iterator, or null with a Python error. It stays valid when the parent's wrapper is gone.
// `parent` is null for a static attribute.
KELPY_API PyObject* pyGenericIfIterator(
   PyGenericIf* parent, Kel::KelAttr const& attr, PyGenericIfIteratorMode mode );

// A new list of what an iterator of that mode yields, or null with a Python error. Other threads
// may change the collection between the elements.
template< PyGenericIfIteratorMode mode >
PyObject* PyGenericIfCollection_kvi_helper( PyGenericIf* parent, Kel::KelAttr attr );
extern template PyObject* PyGenericIfCollection_kvi_helper< PyGenericIfIteratorMode::key >(
   PyGenericIf*, Kel::KelAttr );
extern template PyObject* PyGenericIfCollection_kvi_helper< PyGenericIfIteratorMode::value >(
   PyGenericIf*, Kel::KelAttr );
extern template PyObject* PyGenericIfCollection_kvi_helper< PyGenericIfIteratorMode::item >(
   PyGenericIf*, Kel::KelAttr );
