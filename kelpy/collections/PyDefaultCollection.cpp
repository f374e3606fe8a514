// The classes of directories act as their default collection. GIL; no collection object is made on
// the way to the workers.
#include <kelpy/collections/PyIterator.h>
#include <kelpy/collections/PyLookup.h>
#include <kelpy/collections/PyMutation.h>
#include <kelpy/core/PyGetSet.h>
#include <kelpy/objects/PyDir.h>
#include <kelpy/objects/PyStage.h>
#include <kelpy/reflection/PyKelAttr.h>

namespace {

using Mode = PyGenericIfIteratorMode;

PyGenericIf* asWrapper( PyObject* object ) {
   return reinterpret_cast< PyGenericIf* >( object );
}

// By the class, not by the object's dynamic type. Null with a TypeError for an object that has
// become a failed mount since the method was read.
Kel::KelAttr defaultCollectionOf( PyObject* self ) {
   Kel::KelType const type = kelTypeOfSelf( self );
   return type ? type.defaultCollection() : Kel::KelAttr();
}

// Calls a worker with the object as the parent, its default collection, and the arguments.
template< auto worker, class Result, class... Args >
Result forward( Result failure, PyObject* self, Args... args ) {
   Kel::KelAttr const attr = defaultCollectionOf( self );
   return attr ? worker( asWrapper( self ), attr, args... ) : failure;
}

Py_ssize_t PyGenericIf_defaultCollection_length( PyObject* self ) {
   return forward< pyGenericIfMembers >( Py_ssize_t( -1 ), self );
}

PyObject* PyGenericIf_defaultCollection_subscript( PyObject* self, PyObject* key ) {
   return forward< PyGenericIfCollection_subscript_helper >( noObject, self, key );
}

int PyGenericIf_defaultCollection_ass_subscript( PyObject* self, PyObject* key, PyObject* value ) {
   return forward< PyGenericIfCollection_ass_subscript_helper >( -1, self, key, value );
}

int PyGenericIf_defaultCollection_contains( PyObject* self, PyObject* key ) {
   return forward< pyGenericIfExist >( -1, self, key );
}

PyObject* PyGenericIf_defaultCollection_kelAttr_get( PyObject* self, void* ) {
   return PyKelAttr_FromKelAttr( defaultCollectionOf( self ) );
}

template< Mode mode >
PyObject* PyGenericIf_defaultCollection_kvi( PyObject* self, PyObject* ) {
   return forward< PyGenericIfCollection_kvi_helper< mode > >( noObject, self );
}

template< Mode mode >
PyObject* PyGenericIf_defaultCollection_iterkvi( PyObject* self, PyObject* ) {
   return forward< pyGenericIfIterator >( noObject, self, mode );
}

PyObject* PyGenericIf_defaultCollection_version( PyObject* self, PyObject* ) {
   return forward< pyGenericIfVersion >( noObject, self );
}

PyObject* PyGenericIf_defaultCollection_has_key( PyObject* self, PyObject* args ) {
   return forward< PyGenericIfCollection_has_key_helper >( noObject, self, args );
}

PyObject* PyGenericIf_defaultCollection_get( PyObject* self, PyObject* args ) {
   return forward< PyGenericIfCollection_get_helper >( noObject, self, args );
}

PyObject* rawEntry( PyGenericIf* parent, Kel::KelAttr attr, PyObject* key ) {
   return pyGenericIfGet( parent, attr, key, false );
}

PyObject* PyGenericIf_defaultCollection_getRawEntry( PyObject* self, PyObject* key ) {
   return forward< rawEntry >( noObject, self, key );
}

PyObject* PyGenericIf_defaultCollection_setdefault( PyObject* self, PyObject* args ) {
   return forward< PyGenericIfCollection_setdefault_helper >( noObject, self, args );
}

PyObject* PyGenericIf_defaultCollection_clear( PyObject* self, PyObject* ) {
   return forward< PyGenericIfCollection_clear_helper >( noObject, self );
}

PyObject* PyGenericIf_defaultCollection_newMember( PyObject* self, PyObject* args ) {
   return forward< PyGenericIfCollection_newMember_helper >( noObject, self, args );
}

PyObject* PyGenericIf_defaultCollection_addMember( PyObject* self, PyObject* args ) {
   return forward< PyGenericIfCollection_addMember_helper >( noObject, self, args );
}

// The rows that both tables share.
constexpr PyMethodDef keysRow = { "keys", PyGenericIf_defaultCollection_kvi< Mode::key >,
   METH_NOARGS, "Return a list of keys." };
constexpr PyMethodDef valuesRow = { "values", PyGenericIf_defaultCollection_kvi< Mode::value >,
   METH_NOARGS, "Return a list of values." };
constexpr PyMethodDef itemsRow = { "items", PyGenericIf_defaultCollection_kvi< Mode::item >,
   METH_NOARGS, "Return a list of items." };
constexpr PyMethodDef iterkeysRow = { "iterkeys",
   PyGenericIf_defaultCollection_iterkvi< Mode::key >, METH_NOARGS,
   "Return an iterator over keys." };
constexpr PyMethodDef itervaluesRow = { "itervalues",
   PyGenericIf_defaultCollection_iterkvi< Mode::value >, METH_NOARGS,
   "Return an iterator over values." };
constexpr PyMethodDef iteritemsRow = { "iteritems",
   PyGenericIf_defaultCollection_iterkvi< Mode::item >, METH_NOARGS,
   "Return an iterator over items." };
constexpr PyMethodDef versionRow = { "version", PyGenericIf_defaultCollection_version, METH_NOARGS,
   "Return the collection version." };
constexpr PyMethodDef membersRow = { "members", PyGenericIf_defaultCollection_kvi< Mode::key >,
   METH_NOARGS, "Return a list of members." };
constexpr PyMethodDef hasKeyRow = { "has_key", PyGenericIf_defaultCollection_has_key, METH_VARARGS,
   "Check collection membership." };
constexpr PyMethodDef getRow = { "get", PyGenericIf_defaultCollection_get, METH_VARARGS,
   "Get an element." };
constexpr PyMethodDef setdefaultRow = { "setdefault", PyGenericIf_defaultCollection_setdefault,
   METH_VARARGS, "Get an element, setting if not present." };
constexpr PyMethodDef newMemberRow = { "newMember", PyGenericIf_defaultCollection_newMember,
   METH_VARARGS, "Add a member (instantiating collections only)." };
constexpr PyMethodDef addMemberRow = { "addMember", PyGenericIf_defaultCollection_addMember,
   METH_VARARGS, "Add a member (non-instantiating collections only)." };
constexpr PyMethodDef getRawEntryRow = { "getRawEntry", PyGenericIf_defaultCollection_getRawEntry,
   METH_O, "Get an element, avoiding defaultAttribute conversion." };

} // namespace

constinit PySequenceMethods PyGenericIf_defaultCollection_sequence = {
   .sq_contains = PyGenericIf_defaultCollection_contains,
};

constinit PyMappingMethods PyGenericIf_defaultCollection_mapping = {
   .mp_length = PyGenericIf_defaultCollection_length,
   .mp_subscript = PyGenericIf_defaultCollection_subscript,
   .mp_ass_subscript = PyGenericIf_defaultCollection_ass_subscript,
};

PyObject* PyGenericIf_defaultCollection_iter( PyObject* self ) {
   return PyGenericIf_defaultCollection_iterkvi< Mode::key >( self, nullptr );
}

constinit PyMethodDef PyGenericIf_defaultCollection_methods[] = {
   keysRow,
   valuesRow,
   itemsRow,
   iterkeysRow,
   itervaluesRow,
   iteritemsRow,
   versionRow,
   membersRow,
   hasKeyRow,
   getRow,
   setdefaultRow,
   { "clear", PyGenericIf_defaultCollection_clear, METH_NOARGS,
      "Remove all elements from the collection." },
   newMemberRow,
   addMemberRow,
   getRawEntryRow,
   {},
};

constinit PyMethodDef PyGenericIf_Dir_methods[] = {
   { "newEntity", PyGenericIf_Dir_newEntity, METH_VARARGS,
      "Instantiate a new entity in this Kel::Dir." },
   { "mkdir", PyGenericIf_Dir_mkdir, METH_VARARGS, "Create a new subdirectory of this Kel::Dir." },
   keysRow,
   valuesRow,
   itemsRow,
   iterkeysRow,
   itervaluesRow,
   iteritemsRow,
   versionRow,
   membersRow,
   hasKeyRow,
   getRow,
   setdefaultRow,
   { "clear", PyGenericIf_Dir_clear, METH_NOARGS, "Delete all entities in this Kel::Dir." },
   newMemberRow,
   addMemberRow,
   getRawEntryRow,
   {},
};

constinit PyGetSetDef PyGenericIf_defaultCollection_getset[] = {
   readOnly( "kelAttr", PyGenericIf_defaultCollection_kelAttr_get, "Kel::KelAttr object." ),
   {},
};
