// Class creation where memory runs out at every step in turn.
#include <kelpy/core/PyPython.h>

#include <gtest/gtest.h>

#include <kel/KelType.h>
#include <kelpy/classes/PyGenericIfClass.h>
#include <kelpy/core/PyRef.h>

#include "FailingMemory.h"

namespace {

// The class, or null with an error, where the allocation of that number fails.
PyTypeObject* createWithFailure( Kel::KelType type, unsigned number ) {
   FailingMemory const memory( number );
   return getOrCreatePyType( type );
}

std::string asText( PyRef const& object ) {
   PyRef const text = PyRef::steal( PyObject_Repr( object.get() ) );
   return text ? PyString_AS_STRING( text.get() ) : "no text";
}

PyRef subclassesOf( PyTypeObject* cls ) {
   char name[] = "__subclasses__";
   return PyRef::steal(
      PyObject_CallMethod( reinterpret_cast< PyObject* >( cls ), name, nullptr ) );
}

class FailingClass : public testing::TestWithParam< char const* > {};

// Fails at the first allocation, then at the second, until the class stands.
TEST_P( FailingClass, isMadeAtTheNextRequestAndLeavesNothingBehind ) {
   Kel::KelType const type = Kel::typeNode( GetParam() );
   PyTypeObject* base = type.isEnumType() ? nullptr : &PyBaseObject_Type;
   if( Kel::KelType const declared = type.baseType() ) {
      base = getOrCreatePyType( declared );
   } else if( !type.isValue() && !type.hasOwnPtrInterface() ) {
      base = getOrCreatePyType( Kel::typeNode( "Kel::PtrInterface" ) );
   }
   PyRef const object = PyRef::borrow( reinterpret_cast< PyObject* >( base ) );
   Py_ssize_t const baseReferences = base ? Py_REFCNT( object.get() ) : 0;
   std::string const subclasses = base ? asText( subclassesOf( base ) ) : "";

   std::size_t const classesAlive = blocksAlive( sizeof( PyGenericIfClass ) );

   PyTypeObject* cls = nullptr;
   unsigned failures = 0;
   for( ; failures < 2000; ++failures ) {
      cls = createWithFailure( type, failures );
      if( cls ) {
         break;
      }
      ASSERT_TRUE( FailingMemory::failed() ) << failures;
      // Python itself does not always say that it was the memory.
      ASSERT_TRUE( PyErr_ExceptionMatches( PyExc_MemoryError ) ||
                   PyErr_ExceptionMatches( PyExc_SystemError ) )
         << failures;
      PyErr_Clear();
      ASSERT_EQ( blocksAlive( sizeof( PyGenericIfClass ) ), classesAlive ) << failures;
      if( base ) {
         ASSERT_EQ( Py_REFCNT( object.get() ), baseReferences ) << failures;
         ASSERT_EQ( asText( subclassesOf( base ) ), subclasses ) << failures;
      }
   }
   ASSERT_TRUE( cls );
   EXPECT_FALSE( PyErr_Occurred() );
   // What malloc would show of the interpreter's own requests is a sanitizer's.
#ifndef KEL_SANITIZED
   EXPECT_GE( failures, 5u );
#endif
   EXPECT_GE( failures, 1u );
   EXPECT_EQ( getOrCreatePyType( type ), cls );
   EXPECT_STREQ( cls->tp_name, GetParam() );
   PyRef const names = PyRef::steal( attributeTuple( type ) );
   ASSERT_TRUE( names );
   for( Py_ssize_t i = 0; i < PyTuple_GET_SIZE( names.get() ); ++i ) {
      EXPECT_TRUE( _PyType_Lookup( cls, PyTuple_GET_ITEM( names.get(), i ) ) )
         << PyString_AS_STRING( PyTuple_GET_ITEM( names.get(), i ) );
   }
}

INSTANTIATE_TEST_SUITE_P( All, FailingClass,
   testing::Values( "Acme::StockItem", "Acme::Store", "Acme::Size", "Acme::Name", "Acme::Color",
      "Acme::Shelf", "Odd::Own", "Odd::Clash", "Odd::Coll", "Odd::Empty", "Kel::Seconds" ) );

TEST( FailingChain, keepsTheBasesThatWereMade ) {
   Kel::KelType const item = Kel::typeNode( "Acme::Item" );
   unsigned failures = 0;
   while( !createWithFailure( item, failures ) ) {
      ASSERT_TRUE( PyErr_Occurred() );
      PyErr_Clear();
      ++failures;
      ASSERT_LT( failures, 4000u );
   }
   PyTypeObject* cls = getOrCreatePyType( item );
   for( char const* name : { "Acme::Item", "Acme::Thing", "Kel::Entity", "Kel::PtrInterface" } ) {
      ASSERT_STREQ( cls->tp_name, name );
      EXPECT_EQ( getOrCreatePyType( Kel::typeNode( name ) ), cls );
      cls = cls->tp_base;
   }
   EXPECT_EQ( cls, &PyBaseObject_Type );
}

} // namespace
