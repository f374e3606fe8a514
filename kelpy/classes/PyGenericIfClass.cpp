#include <kelpy/classes/PyGenericIfClass.h>

#include <new>
#include <utility>

#include <kel/Assert.h>
#include <kel/KelAttr.h>
#include <kelpy/classes/ClassShape.h>
#include <kelpy/classes/PyGenericIfAttrDescriptor.h>
#include <kelpy/classes/SlotTables.h>
#include <kelpy/core/PyRef.h>
#include <kelpy/core/TypeCache.h>

namespace {

// Filled here only, never shrinks, and holds the one reference on each class. GIL.
TypeCache< PyTypeObject* > pyTypes;

void drop( PyObject*& field ) {
   PyRef::steal( std::exchange( field, nullptr ) );
}

// Undoes whatever a class has got so far, also from PyType_Ready. Its dictionary and its order of
// bases refer back to it, so those go first. Classes are no heap types, and Python would take a
// count of 0 for that of one, so the count never falls to it by a drop.
void giveBack( PyGenericIfClass* cls ) {
   PyTypeObject& type = cls->head.ht_type;
   if( type.tp_dict ) {
      PyDict_Clear( type.tp_dict );
   }
   drop( type.tp_dict );
   drop( type.tp_mro );
   drop( type.tp_bases );
   drop( type.tp_cache );
   drop( type.tp_subclasses );
   auto* object = reinterpret_cast< PyObject* >( cls );
   KEL_ASSERT( Py_REFCNT( object ) == 1 );
   Py_REFCNT( object ) = 0;
   // The base's list of subclasses knows the class by a weak reference.
   PyObject_ClearWeakRefs( object );
   PyRef::steal( reinterpret_cast< PyObject* >( std::exchange( type.tp_base, nullptr ) ) );
   _Py_ForgetReference( object );
   PyMem_Free( cls );
}

// A class until it stands in the cache.
class UnfinishedClass {
 public:
   // Without memory it is null, with a Python error.
   UnfinishedClass( Kel::KelType type, PyTypeObject* base ) noexcept
      : cls_( static_cast< PyGenericIfClass* >( PyMem_Malloc( sizeof( PyGenericIfClass ) ) ) ) {
      if( !cls_ ) {
         PyErr_NoMemory();
         return;
      }
      new( cls_ ) PyGenericIfClass{ {}, type };
      auto* object = reinterpret_cast< PyVarObject* >( cls_ );
      PyObject_InitVar( object, &PyGenericIfMetaclass, 0 );
      PyTypeObject& cls = this->type();
      cls.tp_name = type.fullTypeName();
      cls.tp_basicsize = PyGenericIf_basicsize;
      cls.tp_flags = Py_TPFLAGS_DEFAULT;
      Py_XINCREF( base );
      cls.tp_base = base;
   }
   UnfinishedClass( UnfinishedClass const& ) = delete;
   UnfinishedClass& operator=( UnfinishedClass const& ) = delete;
   ~UnfinishedClass() {
      if( cls_ ) {
         giveBack( cls_ );
      }
   }

   explicit operator bool() const noexcept { return cls_ != nullptr; }
   PyTypeObject& type() const noexcept { return cls_->head.ht_type; }
   void finishedIs() noexcept { cls_ = nullptr; }

 private:
   PyGenericIfClass* cls_;
};

// An enum type keeps its underlying type where others keep their base. A pointer type without a
// base descends from Kel::PtrInterface, unless it brings its own pointer interface.
Kel::KelType classBaseOf( Kel::KelType type ) {
   constexpr Kel::KelType ptrInterface( &_Kel_PtrInterface_kelModule, 0 );
   Kel::KelType const declared = type.baseType();
   if( declared || type.isEnumType() || type.isValue() || type.hasOwnPtrInterface() ||
       type == ptrInterface ) {
      return declared;
   }
   return ptrInterface;
}

void checkChain( Kel::KelType type, Kel::KelType baseType ) {
   KEL_ASSERT( type.defaultCollection() || !baseType || !baseType.defaultCollection() );
   if( baseType ) {
      KEL_ASSERT( !baseType || ( type.isValue() == baseType.isValue() ) );
   }
}

using Kind = PyGenericIfAttrDescriptor::Kind;

bool addFactory( PyObject* dict, Kel::KelAttr attr ) {
   if( !attr.isCollection() || !attr.indexAttr() ) {
      return true;
   }
   return addAttrDescriptor( dict, attr, attr.instantiating() ? Kind::NewMember : Kind::AddMember );
}

bool addAttribute( PyObject* dict, Kel::KelAttr attr ) {
   return addAttrDescriptor( dict, attr, Kind::Attribute );
}

// Adds what `add` makes of each attribute that the type itself declares.
bool addDescriptors( PyObject* dict, Kel::KelType type, bool ( *add )( PyObject*, Kel::KelAttr ) ) {
   for( Kel::KelTypeBase::AttributeQIterator attr( type ); attr; ++attr ) {
      if( ( *attr ).scope() == type && !add( dict, *attr ) ) {
         return false;
      }
   }
   return true;
}

// Without memory PyType_Ready does two things wrong. It takes for granted that it gets a weak
// reference for the base's list of subclasses, so there is one to share beforehand. And it passes
// over entries that it cannot make and leaves the error pending.
bool makeReady( PyTypeObject& cls ) {
   bool const wasPending = PyErr_Occurred();
   PyRef const weak =
      PyRef::steal( PyWeakref_NewRef( reinterpret_cast< PyObject* >( &cls ), nullptr ) );
   return weak && PyType_Ready( &cls ) == 0 && ( wasPending || !PyErr_Occurred() );
}

PyTypeObject* createPyType( Kel::KelType type ) {
   Kel::KelType const baseType = classBaseOf( type );
   PyTypeObject* const base = baseType ? getOrCreatePyType( baseType ) : nullptr;
   if( baseType && !base ) {
      return nullptr;
   }
   UnfinishedClass cls( type, base );
   if( !cls ) {
      return nullptr;
   }
   checkChain( type, baseType );
   setClassSlots( cls.type(), type, baseType );
   PyObject* const dict = cls.type().tp_dict = PyDict_New();
   // The factories come first: an attribute that really has such a name takes its place.
   if( !dict || !addDescriptors( dict, type, addFactory ) ||
       !addDescriptors( dict, type, addAttribute ) || !makeReady( cls.type() ) ) {
      return nullptr;
   }
   // Where the making runs a collection of garbage, what ends there may run Python code or let
   // other threads in, and somebody may have been faster: the first class stays.
   PyTypeObject* const first = pyTypes.add( type, &cls.type() );
   if( first == &cls.type() ) {
      cls.finishedIs();
   }
   return first;
}

} // namespace

PyTypeObject* getOrCreatePyType( Kel::KelType const& type ) {
   assertGilHeld();
   if( auto const* const found = pyTypes.find( type ) ) {
      return *found;
   }
   try {
      return createPyType( type );
   } catch( std::bad_alloc const& ) {
      PyErr_NoMemory();
      return nullptr;
   }
}
