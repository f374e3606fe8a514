// What the module's views and conversions do where memory runs out.
#include <kelpy/core/PyPython.h>

#include <gtest/gtest.h>

#include <kel/Exception.h>
#include <kel/KelType.h>
#include <kel/Mem.h>
#include <kelpy/classes/PyGenericIfClass.h>
#include <kelpy/core/PyFailure.h>
#include <kelpy/core/PyMarshal.h>
#include <kelpy/core/PyRef.h>
#include <kelpy/diagnostics/PyBacktrace.h>
#include <kelpy/reflection/PyKelAttr.h>
#include <kelpy/reflection/PyKelType.h>

#include "FailingMemory.h"

// For tests in which a request of the interpreter itself has to fail.
#define KEL_SKIP_UNLESS_INTERPRETER_FAILS()                                                        \
   if( !FailingMemory::reachesInterpreter() ) {                                                    \
      GTEST_SKIP() << "this interpreter's own allocations cannot be made to fail";                 \
   }

// Outside of sanitizers malloc fails, too, which the cache of wrappers asks.
#ifdef KEL_SANITIZED
#define KEL_SKIP_UNLESS_WRAPPERS_FAIL() KEL_SKIP_UNLESS_INTERPRETER_FAILS()
#else
#define KEL_SKIP_UNLESS_WRAPPERS_FAIL()
#endif

namespace {

// Calls `make` with each allocation failing in turn, until it gives an object. Each failure leaves
// null and a MemoryError. Gives the number of failures.
template< class Make >
unsigned failUntilMade( Make make, PyRef& made ) {
   for( unsigned failures = 0; failures < 1000; ++failures ) {
      {
         FailingMemory const memory( failures );
         made = PyRef::steal( make() );
      }
      if( made ) {
         EXPECT_FALSE( PyErr_Occurred() );
         return failures;
      }
      EXPECT_TRUE( FailingMemory::failed() );
      EXPECT_TRUE( PyErr_ExceptionMatches( PyExc_MemoryError ) ) << failures;
      PyErr_Clear();
   }
   return 1000;
}

PyRef attribute( PyRef const& object, char const* name ) {
   return PyRef::steal( PyObject_GetAttrString( object.get(), name ) );
}

TEST( FailingMemoryTest, leavesATypeWrapperToTheNextRequest ) {
   KEL_SKIP_UNLESS_WRAPPERS_FAIL()
   Kel::KelType const type = Kel::typeNode( "Odd::Vehicle" );
   PyRef wrapper;
   EXPECT_GE( failUntilMade( [=] { return PyKelType_FromKelType( type ); }, wrapper ), 1u );
   PyRef const again = PyRef::steal( PyKelType_FromKelType( type ) );
   EXPECT_EQ( again.get(), wrapper.get() );
   // One of the cache, two here.
   EXPECT_EQ( Py_REFCNT( wrapper.get() ), 3 );
}

TEST( FailingMemoryTest, leavesAnAttributeWrapperToTheNextRequest ) {
   KEL_SKIP_UNLESS_WRAPPERS_FAIL()
   Kel::KelAttr const attr = Kel::typeNode( "Odd::Refuser" ).attr( "n" );
   PyRef wrapper;
   EXPECT_GE( failUntilMade( [=] { return PyKelAttr_FromKelAttr( attr ); }, wrapper ), 1u );
   PyRef const again = PyRef::steal( PyKelAttr_FromKelAttr( attr ) );
   EXPECT_EQ( again.get(), wrapper.get() );
   EXPECT_EQ( Py_REFCNT( wrapper.get() ), 3 );
}

TEST( FailingMemoryTest, needsNoneForAWrapperThatStands ) {
   Kel::KelType const type = Kel::typeNode( "Odd::Car" );
   PyRef const first = PyRef::steal( PyKelType_FromKelType( type ) );
   FailingMemory const memory( 0 );
   PyRef const second = PyRef::steal( PyKelType_FromKelType( type ) );
   EXPECT_EQ( second.get(), first.get() );
   EXPECT_FALSE( FailingMemory::failed() );
}

TEST( FailingMemoryTest, dropsATupleOfAttributesWhoseItemCannotBeMade ) {
   KEL_SKIP_UNLESS_INTERPRETER_FAILS()
   Kel::KelType const type = Kel::typeNode( "Odd::Scalars" );
   PyRef const wrapper = PyRef::steal( PyKelType_FromKelType( type ) );
   PyRef tuple;
   EXPECT_GE(
      failUntilMade( [&] { return PyObject_GetAttrString( wrapper.get(), "attributeQ" ); }, tuple ),
      10u );
   ASSERT_EQ( PyTuple_GET_SIZE( tuple.get() ), static_cast< Py_ssize_t >( type.attributes() ) );
   // One reference of the cache, one of the tuple: the tuples that were dropped hold none.
   for( Py_ssize_t i = 0; i < PyTuple_GET_SIZE( tuple.get() ); ++i ) {
      EXPECT_EQ( Py_REFCNT( PyTuple_GET_ITEM( tuple.get(), i ) ), 2 );
   }
}

TEST( FailingMemoryTest, dropsATupleOfNamesWhoseItemCannotBeMade ) {
   KEL_SKIP_UNLESS_INTERPRETER_FAILS()
   Kel::KelType const type = Kel::typeNode( "Odd::Coll" );
   PyRef names;
   EXPECT_GE( failUntilMade( [=] { return attributeTuple( type ); }, names ), 1u );
   EXPECT_EQ( PyTuple_GET_SIZE( names.get() ), static_cast< Py_ssize_t >( type.attributes() ) );
}

TEST( FailingMemoryTest, makesATextOfNothing ) {
   KEL_SKIP_UNLESS_INTERPRETER_FAILS()
   Kel::String const text( "a text of some length" );
   PyRef str;
   EXPECT_EQ( failUntilMade( [&] { return PyStr_FromKelString( text ); }, str ), 1u );
   EXPECT_STREQ( PyString_AS_STRING( str.get() ), text.charPtr() );
   unsigned char const raw[] = { 1, 0, 2 };
   Kel::Bytes const bytes( raw, sizeof raw );
   EXPECT_EQ( failUntilMade( [&] { return PyBytes_FromKelBytes( bytes ); }, str ), 1u );
   EXPECT_EQ( PyString_GET_SIZE( str.get() ), 3 );
}

TEST( FailingMemoryTest, makesABacktraceOfNothing ) {
   KEL_SKIP_UNLESS_INTERPRETER_FAILS()
   auto const backtrace = Kel::Backtrace::capture();
   PyRef wrapper;
   EXPECT_EQ(
      failUntilMade( [&] { return PyBacktrace_FromBacktrace( backtrace ); }, wrapper ), 1u );
}

#ifndef KEL_SANITIZED // malloc is theirs
TEST( FailingMemoryTest, endsTheProcessWhereTheLinesOfABacktraceCannotBeMade ) {
   GTEST_FLAG_SET( death_test_style, "threadsafe" );
   PyRef const wrapper = PyRef::steal( PyBacktrace_FromBacktrace( Kel::Backtrace::capture() ) );
   PyRef const method = attribute( wrapper, "frames" );
   PyRef list;
   // The list fails first, and then the C library.
   EXPECT_EXIT( failUntilMade( [&] { return PyObject_CallObject( method.get(), nullptr ); }, list ),
      testing::KilledBySignal( SIGABRT ), "assertion failed: syms \\(" );
}
#endif

TEST( FailingMemoryTest, asksForNothingButTheListOfAnEmptyBacktrace ) {
   PyRef const wrapper =
      PyRef::steal( PyBacktrace_FromBacktrace( Kel::Backtrace::fromAddresses( nullptr, 0 ) ) );
   PyRef const method = attribute( wrapper, "frames" );
   FailingMemory const memory( 1 );
   PyRef const list = PyRef::steal( PyObject_CallObject( method.get(), nullptr ) );
   ASSERT_TRUE( list );
   EXPECT_EQ( PyList_GET_SIZE( list.get() ), 0 );
   EXPECT_FALSE( FailingMemory::failed() );
}

TEST( FailingMemoryTest, dropsTheListOfABacktraceWhoseLineCannotBeMade ) {
   KEL_SKIP_UNLESS_INTERPRETER_FAILS()
   auto const backtrace = Kel::Backtrace::capture();
   PyRef const wrapper = PyRef::steal( PyBacktrace_FromBacktrace( backtrace ) );
   PyRef const method = attribute( wrapper, "frames" );
   unsigned failures = 0;
   PyRef list;
   for( ; !list && failures < 1000; ++failures ) {
      FailingMemory const memory( failures, FailingMemory::Of::python );
      list = PyRef::steal( PyObject_CallObject( method.get(), nullptr ) );
      if( !list ) {
         ASSERT_TRUE( PyErr_ExceptionMatches( PyExc_MemoryError ) );
         PyErr_Clear();
      }
   }
   ASSERT_TRUE( list );
   EXPECT_GT( failures, backtrace->frames() );
   EXPECT_EQ( PyList_GET_SIZE( list.get() ), static_cast< Py_ssize_t >( backtrace->frames() ) );
}

// The pending error is of the class, with no value of its own, where its text cannot be made.
TEST( FailingMemoryTest, raisesTheClassAloneWhereItsTextCannotBeMade ) {
   KEL_SKIP_UNLESS_INTERPRETER_FAILS()
   Kel::RangeException const exc( "message" );
   bool seenWithoutValue = false;
   bool seenWithValue = false;
   for( unsigned number = 0; number < 50 && !seenWithValue; ++number ) {
      PyObject* cls = nullptr;
      PyObject* value = nullptr;
      PyObject* traceback = nullptr;
      {
         FailingMemory const memory( number, FailingMemory::Of::python );
         PyErr_SetBacktrace( PyExc_IndexError, exc, "", nullptr );
      }
      PyErr_Fetch( &cls, &value, &traceback );
      PyRef const owners[] = { PyRef::steal( cls ), PyRef::steal( value ),
         PyRef::steal( traceback ) };
      ASSERT_EQ( cls, PyExc_IndexError );
      ( value ? seenWithValue : seenWithoutValue ) = true;
   }
   EXPECT_TRUE( seenWithoutValue );
   EXPECT_TRUE( seenWithValue );
}

// UTF-8 takes every unicode, so that only memory can fail.
TEST( FailingMemoryTest, endsTheProcessWhereANameCannotBeEncoded ) {
   KEL_SKIP_UNLESS_INTERPRETER_FAILS()
   GTEST_FLAG_SET( death_test_style, "threadsafe" );
   PyRef const wrapper = PyRef::steal( PyKelType_FromKelType( Kel::typeNode( "Odd::Node" ) ) );
   PyRef const method = attribute( wrapper, "attr" );
   PyRef const args = PyRef::steal( Py_BuildValue( "(O)", PyUnicode_DecodeASCII( "id", 2, "" ) ) );
   EXPECT_EXIT(
      {
         FailingMemory const memory( 0 );
         PyRef::steal( PyObject_CallObject( method.get(), args.get() ) );
      },
      testing::KilledBySignal( SIGABRT ), "assertion failed: encoded \\(" );
}

} // namespace
