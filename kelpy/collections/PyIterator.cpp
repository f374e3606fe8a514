#include <kelpy/collections/PyIterator.h>

#include <new>

#include <kel/Assert.h>
#include <kelpy/convert/GenericIfToPyObject.h>
#include <kelpy/core/PyRef.h>
#include <kelpy/objects/PyStage.h>

namespace {

using Mode = PyGenericIfIteratorMode;
using Member = Kel::Ptr< Kel::GenericIf >;

struct PyGenericIfIterator {
   PyObject_HEAD
   Kel::GenericIf::Iterator iterator; // keeps the collection's owner alive. Activity lock
   Mode mode;
};

PyGenericIfIterator* asIterator( PyObject* object ) {
   return reinterpret_cast< PyGenericIfIterator* >( object );
}

// The runtime's iterator holds its state, so it goes under the activity lock and without the GIL.
// An exception ends the process.
void releaseIterator( PyGenericIfIterator* self ) noexcept {
   Kel::PyLockAnchor const locks( Kel::flags0 );
   self->iterator.~Iterator();
}

void PyGenericIfIterator_dealloc( PyObject* self ) {
   releaseIterator( asIterator( self ) );
   Py_TYPE( self )->tp_free( self );
}

// GIL and activity lock.
PyObject* itemToPyObject( Member key, Member member ) {
   auto keyObject = PyRef::steal( GenericIfToPyObject( std::move( key ), true ) );
   if( !keyObject ) {
      return nullptr;
   }
   auto memberObject = PyRef::steal( GenericIfToPyObject( std::move( member ), true ) );
   if( !memberObject ) {
      return nullptr;
   }
   return Py_BuildValue( "(N,N)", keyObject.release(), memberObject.release() );
}

PyObject* elementToPyObject( Mode mode, Member key, Member member ) {
   switch( mode ) {
   case Mode::key:
      return GenericIfToPyObject( std::move( key ), true );
   case Mode::value:
      return GenericIfToPyObject( std::move( member ), true );
   case Mode::item:
      return itemToPyObject( std::move( key ), std::move( member ) );
   }
   KEL_ASSERT( false );
   __builtin_unreachable();
}

// The iterator moves on before the element is handed over, so that whoever deletes that element
// does not touch the place where the iterator stands.
PyObject* PyGenericIfIterator_iternext( PyObject* object ) {
   PyGenericIfIterator* const self = asIterator( object );
   Stage const stage( NoSubject(), "" );
   return underLocks(
      Kel::flags0, stage, noObject, [self]( Kel::PyLockAnchor& locks ) -> PyObject* {
         if( !self->iterator ) {
            locks.gilHeldIs( true );
            PyErr_SetNone( PyExc_StopIteration );
            return nullptr;
         }
         Member key = self->mode != Mode::value ? self->iterator.key() : nullptr;
         Member member = self->mode != Mode::key ? self->iterator.ptr() : nullptr;
         ++self->iterator;
         locks.gilHeldIs( true );
         return elementToPyObject( self->mode, std::move( key ), std::move( member ) );
      } );
}

} // namespace

constinit PyTypeObject PyGenericIfIteratorType = {
   .ob_refcnt = 1,
   .tp_name = "_Kel.Iterator",
   .tp_basicsize = sizeof( PyGenericIfIterator ),
   .tp_dealloc = PyGenericIfIterator_dealloc,
   .tp_flags = Py_TPFLAGS_DEFAULT,
   .tp_doc = "Iterator over a kelc-Python collection attribute.",
   .tp_iter = PyObject_SelfIter,
   .tp_iternext = PyGenericIfIterator_iternext,
};

PyObject* pyGenericIfIterator(
   PyGenericIf* parent, Kel::KelAttr const& attr, PyGenericIfIteratorMode mode ) {
   Stage const stage( attr, "" );
   return underLocks( Kel::flags0, stage, noObject, [&]( Kel::PyLockAnchor& locks ) -> PyObject* {
      auto iterator = attr.genericIfIterator( PyGenericIfToGenericIf( parent ) );
      locks.gilHeldIs( true );
      PyObject* const object = _PyObject_New( &PyGenericIfIteratorType );
      if( !object ) {
         return nullptr;
      }
      PyGenericIfIterator* const self = asIterator( object );
      self->mode = mode;
      new( &self->iterator ) Kel::GenericIf::Iterator( std::move( iterator ) );
      return object;
   } );
}

template< PyGenericIfIteratorMode mode >
PyObject* PyGenericIfCollection_kvi_helper( PyGenericIf* parent, Kel::KelAttr attr ) {
   auto const iterator = PyRef::steal( pyGenericIfIterator( parent, attr, mode ) );
   return iterator ? PySequence_List( iterator.get() ) : nullptr;
}

template PyObject* PyGenericIfCollection_kvi_helper< Mode::key >( PyGenericIf*, Kel::KelAttr );
template PyObject* PyGenericIfCollection_kvi_helper< Mode::value >( PyGenericIf*, Kel::KelAttr );
template PyObject* PyGenericIfCollection_kvi_helper< Mode::item >( PyGenericIf*, Kel::KelAttr );
