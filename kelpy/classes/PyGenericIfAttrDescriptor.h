// _Kel.Attribute, what stands in a class's dictionary for one attribute. GIL.
#pragma once

#include <kelpy/core/PyPython.h>

#include <cstdint>

#include <kel/KelAttr.h>
#include <kelpy/core/KelPyExport.h>

struct PyGenericIfAttrDescriptor {
   enum class Kind : std::uint32_t {
      Attribute = 0, // reads, writes and deletes the attribute
      NewMember = 1, // makes a member of an instantiating collection
      AddMember = 2, // adds a member to any other collection
   };

   // What a read does; follows from the attribute and the kind.
   enum class Read : std::uint8_t { constant, collection, function, value };

   PyObject_HEAD
   PyObject* name; // owned; the interned key in the class's dictionary
   Kel::KelAttr attr;
   Kind kind;
   Read read;
   bool isStatic;
   PyTypeObject* lastClass; // borrowed, for ever: a class whose objects have the attribute, or null
};

extern KELPY_API PyTypeObject PyGenericIfAttrDescriptorType;

// Puts a descriptor of the attribute into a class's dictionary, over what stands under its key.
// False with a Python error.
KELPY_API bool addAttrDescriptor(
   PyObject* dict, Kel::KelAttr attr, PyGenericIfAttrDescriptor::Kind kind );
