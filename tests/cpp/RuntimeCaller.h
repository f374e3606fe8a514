// Tests that call the module as the runtime does: with the activity lock and without the GIL.
#pragma once

#include <kelpy/core/PyPython.h>

#include <gtest/gtest.h>

#include <functional>

#include <kel/TypeImpl.h>
#include <kel/schema/Convert.h>
#include <kelpy/core/PyLock.h>
#include <kelpy/core/PyRef.h>

class RuntimeCaller : public testing::Test {
 protected:
   Kel::PyLockAnchor const locks_{ Kel::flags0 };
};

// What the interpreter does meanwhile.
template< class Body >
auto withGil( Body body ) {
   Kel::GilAnchor const gil;
   return body();
}

inline Py_ssize_t referencesOf( PyObject* object ) {
   return withGil( [object] { return Py_REFCNT( object ); } );
}

// A new Python object that only this holds; it goes with the GIL held, which it takes.
class HeldObject {
 public:
   explicit HeldObject( char const* expression = "object()" ) {
      Kel::GilAnchor const gil;
      PyRef const globals = PyRef::steal( PyDict_New() );
      PyDict_SetItemString( globals.get(), "__builtins__", PyEval_GetBuiltins() );
      object_ = PyRun_String( expression, Py_eval_input, globals.get(), globals.get() );
      if( !object_ ) {
         PyErr_Print();
      }
   }
   HeldObject( HeldObject const& ) = delete;
   HeldObject& operator=( HeldObject const& ) = delete;
   ~HeldObject() {
      Kel::GilAnchor const gil;
      PyRef::steal( object_ );
   }

   PyObject* get() const { return object_; }
   Py_ssize_t references() const { return referencesOf( object_ ); }

 private:
   PyObject* object_;
};

// What the generated operation of a type says to an attribute's number.
inline int attributeResult( Kel::KelType type, Kel::AttributeId id, Kel::GenericIf::AttributeOp op,
   void* object, std::function< void( Kel::AttrCall& ) > const& prepare = {} ) {
   Kel::AttrCall call;
   call.op = op;
   call.object = object;
   call.attr = type.attr( id );
   if( prepare ) {
      prepare( call );
   }
   return Kel::attributeOp( type, id, call );
}

template< class T >
Kel::Ptr< Kel::GenericIf > generic( T value ) {
   return Kel::Schema::toGeneric< T >( value, false );
}
template< class T >
T as( Kel::Ptr< Kel::GenericIf > const& value ) {
   return Kel::Schema::fromGeneric< T >( value.get() );
}
