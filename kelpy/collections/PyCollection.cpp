#include <kelpy/collections/PyCollection.h>

#include <kel/Assert.h>
#include <kelpy/collections/PyIterator.h>
#include <kelpy/collections/PyLookup.h>
#include <kelpy/collections/PyMutation.h>
#include <kelpy/collections/PyUpdate.h>
#include <kelpy/core/PyGetSet.h>
#include <kelpy/core/PyPendingError.h>
#include <kelpy/core/PyRef.h>
#include <kelpy/objects/PyAttribute.h>

namespace {

using Mode = PyGenericIfIteratorMode;

// What a slot or method works on.
struct Collection {
   explicit Collection( PyObject* object )
      : parent( reinterpret_cast< PyGenericIfAttr* >( object )->parent ),
        attr( reinterpret_cast< PyGenericIfAttr* >( object )->kelAttr ) {}

   PyGenericIf* parent; // borrowed, null for a static attribute
   Kel::KelAttr attr;
};

Py_ssize_t PyGenericIfCollection_length( PyObject* object ) {
   Collection const self( object );
   return pyGenericIfMembers( self.parent, self.attr );
}

PyObject* PyGenericIfCollection_subscript( PyObject* object, PyObject* key ) {
   Collection const self( object );
   return PyGenericIfCollection_subscript_helper( self.parent, self.attr, key );
}

int PyGenericIfCollection_ass_subscript( PyObject* object, PyObject* key, PyObject* value ) {
   Collection const self( object );
   return PyGenericIfCollection_ass_subscript_helper( self.parent, self.attr, key, value );
}

// Of a vector the values are meant, of every other kind the keys.
int PyGenericIfCollection_contains( PyObject* object, PyObject* element ) {
   Collection const self( object );
   if( self.attr.isVector() ) {
      return listContains( reinterpret_cast< PyGenericIfAttr* >( object ), element );
   }
   return pyGenericIfExist( self.parent, self.attr, element );
}

template< Mode mode >
PyObject* PyGenericIfCollection_kvi( PyObject* object, PyObject* ) {
   Collection const self( object );
   return PyGenericIfCollection_kvi_helper< mode >( self.parent, self.attr );
}

template< Mode mode >
PyObject* PyGenericIfCollection_iterkvi( PyObject* object, PyObject* ) {
   Collection const self( object );
   return pyGenericIfIterator( self.parent, self.attr, mode );
}

PyObject* PyGenericIfCollection_iter( PyObject* object ) {
   return PyGenericIfCollection_iterkvi< Mode::key >( object, nullptr );
}

PyObject* PyGenericIfCollection_version( PyObject* object, PyObject* ) {
   Collection const self( object );
   return pyGenericIfVersion( self.parent, self.attr );
}

PyObject* PyGenericIfCollection_has_key( PyObject* object, PyObject* args ) {
   Collection const self( object );
   return PyGenericIfCollection_has_key_helper( self.parent, self.attr, args );
}

PyObject* PyGenericIfCollection_get( PyObject* object, PyObject* args ) {
   Collection const self( object );
   return PyGenericIfCollection_get_helper( self.parent, self.attr, args );
}

PyObject* PyGenericIfCollection_getRawEntry( PyObject* object, PyObject* key ) {
   Collection const self( object );
   return pyGenericIfGet( self.parent, self.attr, key, false );
}

PyObject* PyGenericIfCollection_setdefault( PyObject* object, PyObject* args ) {
   Collection const self( object );
   return PyGenericIfCollection_setdefault_helper( self.parent, self.attr, args );
}

PyObject* PyGenericIfCollection_clear( PyObject* object, PyObject* ) {
   Collection const self( object );
   return PyGenericIfCollection_clear_helper( self.parent, self.attr );
}

PyObject* PyGenericIfCollection_newMember( PyObject* object, PyObject* args ) {
   Collection const self( object );
   return PyGenericIfCollection_newMember_helper( self.parent, self.attr, args );
}

PyObject* PyGenericIfCollection_addMember( PyObject* object, PyObject* args ) {
   Collection const self( object );
   return PyGenericIfCollection_addMember_helper( self.parent, self.attr, args );
}

PyObject* refuse( char const* text ) {
   PyErr_SetString( PyExc_TypeError, text );
   return nullptr;
}

PyObject* PyGenericIfCollection_add( PyObject* object, PyObject* args ) {
   Collection const self( object );
   PyObject* element = nullptr;
   if( !PyArg_ParseTuple( args, "O:add", &element ) ) {
      return nullptr;
   }
   if( !self.attr.isSet() ) {
      return refuse( "add only allowed only for set collections" );
   }
   return pyGenericIfSet( self.parent, self.attr, element, Py_True );
}

PyObject* PyGenericIfCollection_remove( PyObject* object, PyObject* args ) {
   Collection const self( object );
   PyObject* element = nullptr;
   if( !PyArg_ParseTuple( args, "O:remove", &element ) ) {
      return nullptr;
   }
   if( !self.attr.isSet() ) {
      return refuse( "remove only allowed only for set collections" );
   }
   if( pyGenericIfDel( self.parent, self.attr, element ) != 0 ) {
      return nullptr;
   }
   Py_RETURN_NONE;
}

bool isQueue( Kel::KelAttr attr ) {
   return attr.isQueueCollection();
}

bool isStack( Kel::KelAttr attr ) {
   return attr.isStackCollection();
}

bool isStackOrVector( Kel::KelAttr attr ) {
   return attr.isStackCollection() || attr.isVector();
}

bool isQueueOrVector( Kel::KelAttr attr ) {
   return attr.isQueueCollection() || attr.isVector();
}

// Adds at an end. The kind comes before the arguments.
PyObject* addAtEnd( Collection const* self, PyObject* args, char const* format ) {
   KEL_ASSERT( !self->attr.instantiating() );
   PyObject* element = nullptr;
   if( !PyArg_ParseTuple( args, format, &element ) ) {
      return nullptr;
   }
   return pyGenericIfAdd( self->parent, self->attr, element );
}

PyObject* PyGenericIfCollection_enq( PyObject* object, PyObject* args ) {
   Collection const self( object );
   if( !isQueue( self.attr ) ) {
      return refuse( "'enq' only allowed on a queue collection" );
   }
   return addAtEnd( &self, args, "O:enq" );
}

PyObject* PyGenericIfCollection_deq( PyObject* object, PyObject* ) {
   Collection const self( object );
   if( !isQueue( self.attr ) ) {
      return refuse( "'deq' only allowed on a queue collection" );
   }
   return pyGenericIfRemove( self.parent, self.attr );
}

PyObject* PyGenericIfCollection_push( PyObject* object, PyObject* args ) {
   Collection const self( object );
   if( !isStackOrVector( self.attr ) ) {
      return refuse( "'push' only allowed on a stack or a vector collection" );
   }
   return addAtEnd( &self, args, "O:push" );
}

PyObject* PyGenericIfCollection_pop( PyObject* object, PyObject* ) {
   Collection const self( object );
   if( !isStackOrVector( self.attr ) ) {
      return refuse( "'pop' only allowed on a stack or a vector collection" );
   }
   return pyGenericIfRemove( self.parent, self.attr );
}

// Reads an end, unless there is none.
PyObject* readEnd( Collection const& self, char const* emptyText,
   PyObject* ( *read )( PyGenericIf*, Kel::KelAttr ) ) {
   if( pyGenericIfMembers( self.parent, self.attr ) == 0 ) {
      PyErr_SetString( PyExc_IndexError, emptyText );
      return nullptr;
   }
   // A failed count stops nothing: the read succeeds or fails for itself.
   PendingErrorAnchor const failedCount;
   return read( self.parent, self.attr );
}

PyObject* PyGenericIfCollection_front( PyObject* object, PyObject* ) {
   Collection const self( object );
   if( !isQueueOrVector( self.attr ) ) {
      return refuse( "'front' only allowed on a queue or a vector collection" );
   }
   return readEnd(
      self, "Cannot access the front element of an empty collection", pyGenericIfFront );
}

PyObject* PyGenericIfCollection_back( PyObject* object, PyObject* ) {
   Collection const self( object );
   if( !isQueueOrVector( self.attr ) ) {
      return refuse( "'back' only allowed on a queue or a vector collection" );
   }
   return readEnd( self, "Cannot access the back element of an empty collection", pyGenericIfBack );
}

// The runtime's front of a stack is its top.
PyObject* PyGenericIfCollection_top( PyObject* object, PyObject* ) {
   Collection const self( object );
   if( !isStack( self.attr ) ) {
      return refuse( "'top' only allowed on a stack collection" );
   }
   return readEnd( self, "Cannot access the top element of an empty collection", pyGenericIfFront );
}

PyObject* PyGenericIfCollection_bottom( PyObject* object, PyObject* ) {
   Collection const self( object );
   if( !isStack( self.attr ) ) {
      return refuse( "'bottom' only allowed on a stack collection" );
   }
   return readEnd(
      self, "Cannot access the bottom element of an empty collection", pyGenericIfBack );
}

// Python's table has one type of pointer for every form; a method with keywords is the one that
// needs a cast to it.
PyCFunction withKeywords( PyCFunctionWithKeywords method ) {
   return reinterpret_cast< PyCFunction >( reinterpret_cast< void ( * )() >( method ) );
}

PyMethodDef PyGenericIfCollection_methods[] = {
   { "keys", PyGenericIfCollection_kvi< Mode::key >, METH_NOARGS, "Return a list of keys." },
   { "values", PyGenericIfCollection_kvi< Mode::value >, METH_NOARGS, "Return a list of values." },
   { "items", PyGenericIfCollection_kvi< Mode::item >, METH_NOARGS, "Return a list of items." },
   { "iterkeys", PyGenericIfCollection_iterkvi< Mode::key >, METH_NOARGS,
      "Return an iterator over keys." },
   { "itervalues", PyGenericIfCollection_iterkvi< Mode::value >, METH_NOARGS,
      "Return an iterator over values." },
   { "iteritems", PyGenericIfCollection_iterkvi< Mode::item >, METH_NOARGS,
      "Return an iterator over items." },
   { "version", PyGenericIfCollection_version, METH_NOARGS, "Return the collection version." },
   { "enq", PyGenericIfCollection_enq, METH_VARARGS, "Enqueue an item (queue collections only)." },
   { "deq", PyGenericIfCollection_deq, METH_NOARGS, "Dequeue an item (queue collections only)." },
   { "push", PyGenericIfCollection_push, METH_VARARGS,
      "Push an item (stack or vector collections only)." },
   { "pop", PyGenericIfCollection_pop, METH_NOARGS,
      "Pop an item (stack or vector collections only)." },
   { "front", PyGenericIfCollection_front, METH_NOARGS,
      "Return front element (queue or vector collections only)." },
   { "back", PyGenericIfCollection_back, METH_NOARGS,
      "Return back element (queue or vector collections only)." },
   { "top", PyGenericIfCollection_top, METH_NOARGS,
      "Return top element (stack collections only)." },
   { "bottom", PyGenericIfCollection_bottom, METH_NOARGS,
      "Return bottom element (stack collections only)." },
   { "members", PyGenericIfCollection_kvi< Mode::key >, METH_NOARGS, "Return a list of members." },
   { "has_key", PyGenericIfCollection_has_key, METH_VARARGS, "Check collection membership." },
   { "get", PyGenericIfCollection_get, METH_VARARGS, "Get an element." },
   { "setdefault", PyGenericIfCollection_setdefault, METH_VARARGS,
      "Get an element, setting if not present." },
   { "clear", PyGenericIfCollection_clear, METH_NOARGS,
      "Remove all elements from the collection." },
   { "newMember", PyGenericIfCollection_newMember, METH_VARARGS,
      "Add a member (instantiating collections only)." },
   { "addMember", PyGenericIfCollection_addMember, METH_VARARGS,
      "Add a member (non-instantiating collections only)." },
   { "add", PyGenericIfCollection_add, METH_VARARGS, "Add a member (set collections only)." },
   { "remove", PyGenericIfCollection_remove, METH_VARARGS,
      "Remove a member (set collections only)." },
   { "getRawEntry", PyGenericIfCollection_getRawEntry, METH_O,
      "Get an element, avoiding defaultAttribute conversion." },
   { "update", withKeywords( PyGenericIfCollection_update ), METH_VARARGS | METH_KEYWORDS,
      "Update a collection with another collection or kwargs." },
   {},
};

constinit PyGetSetDef PyGenericIfCollection_getset[] = {
   readOnly( "kelAttr", PyGenericIfAttr_kelAttr_get, "Kel::KelAttr object." ),
   readOnly( "parent", PyGenericIfAttr_parent_get ),
   readOnly( "fullName", PyGenericIfCollection_fullName_get ),
   {},
};

constinit PySequenceMethods PyGenericIfCollection_sequence = {
   .sq_contains = PyGenericIfCollection_contains,
};

constinit PyMappingMethods PyGenericIfCollection_mapping = {
   .mp_length = PyGenericIfCollection_length,
   .mp_subscript = PyGenericIfCollection_subscript,
   .mp_ass_subscript = PyGenericIfCollection_ass_subscript,
};

} // namespace

constinit PyTypeObject PyGenericIfCollectionType = {
   .ob_refcnt = 1,
   .tp_name = "_Kel.Collection",
   .tp_basicsize = sizeof( PyGenericIfAttr ),
   .tp_dealloc = PyGenericIfAttr_dealloc,
   .tp_repr = PyGenericIfCollection_repr,
   .tp_as_sequence = &PyGenericIfCollection_sequence,
   .tp_as_mapping = &PyGenericIfCollection_mapping,
   .tp_str = PyGenericIfCollection_str,
   .tp_flags = Py_TPFLAGS_DEFAULT,
   .tp_doc = "kelc-Python collection attribute.",
   .tp_richcompare = PyGenericIfCollection_richcompare,
   .tp_iter = PyGenericIfCollection_iter,
   .tp_methods = PyGenericIfCollection_methods,
   .tp_getset = PyGenericIfCollection_getset,
};
