// Handles as C++ code makes and uses them.
#include "RuntimeCaller.h"

#include <chrono>
#include <future>
#include <thread>

#include <kel/AllocTrack.h>
#include <kel/Exception.h>
#include <kelpy/notify/PyObjHandle.h>

using Kel::PyObjHandle;
using Op = Kel::GenericIf::AttributeOp;

namespace {

using Handle = RuntimeCaller;

std::uint64_t liveHandles() {
   auto const* const info = PyObjHandle::kelAllocTrackTypeInfo_;
   return info ? info->live() : 0;
}

Kel::Ptr< Kel::GenericIf > made( Kel::Ptr< Kel::GenericIf const > const& object,
   Kel::Ptr< Kel::GenericIf const > const& passedRef ) {
   return Kel::kelType< PyObjHandle >().genericIf( Kel::ArgVector{ object, passedRef }, false );
}

TEST_F( Handle, takesAReferenceOfItsOwnAndDropsItAtItsEnd ) {
   HeldObject const held;
   auto handle = PyObjHandle::PyObjHandleIs( held.get(), false );
   EXPECT_EQ( held.references(), 2 );
   EXPECT_EQ( handle->pyObject(), held.get() );
   EXPECT_FALSE( handle->passedRef_ );
   handle = nullptr;
   EXPECT_EQ( held.references(), 1 );
}

TEST_F( Handle, withAPassedReferenceTakesNoneAndDropsThatOne ) {
   HeldObject const held;
   withGil( [&] { return PyRef::borrow( held.get() ).release(); } );
   ASSERT_EQ( held.references(), 2 );
   auto handle = Kel::pyObjHandleFactory( held.get(), true );
   EXPECT_TRUE( handle->passedRef_ );
   EXPECT_EQ( held.references(), 2 );
   handle = nullptr;
   EXPECT_EQ( held.references(), 1 );
}

TEST_F( Handle, ofNoneHoldsAnObjectThatIsNotNull ) {
   auto const handle = PyObjHandle::PyObjHandleIs( Py_None, false );
   EXPECT_EQ( handle->pyObject(), Py_None );
}

TEST_F( Handle, ofNothingIsValid ) {
   auto const handle = PyObjHandle::PyObjHandleIs( nullptr, false );
   EXPECT_EQ( handle->pyObject(), nullptr );
   handle->handleInit();
   handle->handleDelete();
   EXPECT_EQ( handle->pyObject(), nullptr );
}

TEST_F( Handle, takesPartInNotificationAndKnowsItsType ) {
   auto const handle = PyObjHandle::PyObjHandleIs( Py_None, false );
   EXPECT_TRUE( handle->hasNotificationActive() );
   EXPECT_EQ( handle->references(), 1u );
   EXPECT_EQ( handle->fwkType(), Kel::kelType< PyObjHandle >() );
   EXPECT_EQ( handle->fwkType().module(), &Kel::_PyObjHandle_27cf1eed02acadcc_kelModule );
   EXPECT_EQ( handle->fwkType().typeIndex(), 0 );
   EXPECT_EQ( handle->fwkType().row().typeRef, ~1 );
}

TEST_F( Handle, givesItsObjectBackForAnother ) {
   HeldObject const first, second;
   auto handle = PyObjHandle::PyObjHandleIs( first.get(), false );
   handle->pyObjectIs( second.get() );
   EXPECT_EQ( first.references(), 1 );
   EXPECT_EQ( second.references(), 2 );
   handle->pyObjectIs( second.get() );
   EXPECT_EQ( second.references(), 2 );
   handle->pyObjectIs( nullptr );
   EXPECT_EQ( second.references(), 1 );
   EXPECT_EQ( handle->pyObject(), nullptr );
}

TEST_F( Handle, keepsTheOnlyReferenceOfAnObjectThatItGetsAgain ) {
   auto const handle = PyObjHandle::PyObjHandleIs( HeldObject( "[]" ).get(), false );
   ASSERT_EQ( referencesOf( handle->pyObject() ), 1 );
   handle->pyObjectIs( handle->pyObject() );
   EXPECT_EQ( referencesOf( handle->pyObject() ), 1 );
   // The memory of a list that had gone would serve again.
   HeldObject const lists( "[[] for _ in range( 100 )]" );
   for( Py_ssize_t i = 0; i < 100; ++i ) {
      EXPECT_NE( PyList_GET_ITEM( lists.get(), i ), handle->pyObject() );
   }
}

// Whether a thread that Python never saw comes through the body in time while this one has the GIL.
template< class Body >
bool needsNoGil( Body body, std::chrono::milliseconds time = std::chrono::milliseconds( 50 ) ) {
   return withGil( [&] {
      std::promise< void > done;
      auto const isDone = done.get_future();
      std::thread other( [&] {
         body();
         done.set_value();
      } );
      bool const came = isDone.wait_for( time ) == std::future_status::ready;
      Kel::GilUnlockAnchor const gil;
      other.join();
      return came;
   } );
}

TEST_F( Handle, isMadeAndChangedWithTheGilItTakesForItself ) {
   HeldObject const held;
   Kel::Ptr< PyObjHandle > handle;
   EXPECT_FALSE( needsNoGil( [&] { handle = PyObjHandle::PyObjHandleIs( held.get(), false ); } ) );
   EXPECT_FALSE( needsNoGil( [&] { handle->handleInit(); } ) );
   EXPECT_FALSE( needsNoGil( [&] { handle->pyObjectIs( Py_None ); } ) );
   EXPECT_FALSE( needsNoGil( [&] { handle = nullptr; } ) );
}

TEST_F( Handle, ofNothingEndsWithoutTheGil ) {
   auto handle = PyObjHandle::PyObjHandleIs( nullptr, false );
   auto const end = [&] {
      handle->handleDelete();
      handle = nullptr;
   };
   EXPECT_TRUE( needsNoGil( end, std::chrono::seconds( 60 ) ) );
}

TEST_F( Handle, afterHandleInitHoldsOneReferenceMore ) {
   HeldObject const held;
   auto handle = PyObjHandle::PyObjHandleIs( held.get(), false );
   handle->handleInit();
   EXPECT_EQ( held.references(), 3 );
   EXPECT_EQ( handle->pyObject(), held.get() );
   handle->handleDelete();
   EXPECT_EQ( held.references(), 2 );
   // The object is not forgotten, so that the end drops once more.
   EXPECT_EQ( handle->pyObject(), held.get() );
   handle = nullptr;
   EXPECT_EQ( held.references(), 1 );
}

TEST_F( Handle, withAPassedReferenceHasNoneToAddInHandleInit ) {
   HeldObject const held;
   withGil( [&] { return PyRef::borrow( held.get() ).release(); } );
   auto const handle = PyObjHandle::PyObjHandleIs( held.get(), true );
   handle->handleInit();
   EXPECT_EQ( held.references(), 2 );
}

TEST_F( Handle, mayBeMadeAndEndOnThreadsThatPythonNeverSaw ) {
   HeldObject const held;
   Kel::Ptr< PyObjHandle > handle;
   std::thread( [&] {
      EXPECT_EQ( PyGILState_GetThisThreadState(), nullptr );
      handle = PyObjHandle::PyObjHandleIs( held.get(), false );
      EXPECT_EQ( PyGILState_GetThisThreadState(), nullptr );
   } ).join();
   EXPECT_EQ( held.references(), 2 );
   std::thread( [&] { handle = nullptr; } ).join();
   EXPECT_EQ( held.references(), 1 );
}

TEST_F( Handle, mayEndWithTheGILHeld ) {
   HeldObject const held;
   withGil( [&] { PyObjHandle::PyObjHandleIs( held.get(), false ); } );
   EXPECT_EQ( held.references(), 1 );
}

TEST_F( Handle, isReportedAsAnAllocation ) {
   auto const before = liveHandles();
   auto handle = PyObjHandle::PyObjHandleIs( Py_None, false );
   EXPECT_EQ( liveHandles(), before + 1 );
   EXPECT_EQ( PyObjHandle::kelAllocTrackTypeInfo_->name(), "Kel::PyObjHandle" );
   EXPECT_EQ( PyObjHandle::kelAllocTrackTypeInfo_->size(), sizeof( PyObjHandle ) );
   EXPECT_EQ( PyObjHandle::kelAllocTrackTypeInfo_->alignment(), alignof( PyObjHandle ) );
   handle = nullptr;
   EXPECT_EQ( liveHandles(), before );
}

TEST_F( Handle, answersTheOperationsOfItsAttributes ) {
   HeldObject const held;
   auto const handle = PyObjHandle::PyObjHandleIs( held.get(), false );
   auto const type = Kel::kelType< PyObjHandle >();
   auto const result = [&]( Kel::AttributeId id, Op op ) {
      return attributeResult( type, id, op, handle.get(), []( Kel::AttrCall& call ) {
         static Kel::ArgVector const none;
         call.args = &none;
      } );
   };
   EXPECT_EQ( result( 131, Op::get ), 0 );
   EXPECT_EQ( result( 131, Op::set ), 1 );
   EXPECT_EQ( result( 131, Op::call ), 1 );
   EXPECT_EQ( result( 133, Op::call ), 0 );
   EXPECT_EQ( held.references(), 3 );
   EXPECT_EQ( result( 132, Op::call ), 0 );
   EXPECT_EQ( held.references(), 2 );
   EXPECT_EQ( result( 132, Op::get ), 1 );
   EXPECT_EQ( result( 133, Op::set ), 1 );
   EXPECT_EQ( result( 130, Op::get ), 2 );
   EXPECT_EQ( result( 134, Op::call ), 2 );
}

TEST_F( Handle, isMadeFromArgumentsWhoseObjectCanOnlyBeNull ) {
   auto const view = made( nullptr, generic( true ) );
   ASSERT_EQ( view->type(), Kel::kelType< PyObjHandle >() );
   auto const* const handle = static_cast< PyObjHandle* >( view->voidPtrIs( view->type() ) );
   EXPECT_EQ( handle->pyObject(), nullptr );
   EXPECT_TRUE( handle->passedRef_ );
   EXPECT_TRUE( handle->hasNotificationActive() );
   EXPECT_TRUE( as< bool >( view->type().attr( "passedRef" ).genericIfGet( view, nullptr ) ) );
   EXPECT_THROW( made( generic( true ), generic( true ) ), Kel::TypeException );
   EXPECT_THROW( made( nullptr, nullptr ), Kel::TypeException );
}

// The end of the interpreter, in a process of its own.
int dropAfterTheEnd( bool onOtherThread ) {
   auto handle = PyObjHandle::PyObjHandleIs( Py_None, false );
   PyGILState_Ensure();
   Py_Finalize();
   if( onOtherThread ) {
      std::thread( [&] { handle = nullptr; } ).join();
   }
   handle = nullptr;
   return 0;
}

TEST_F( Handle, mayOutliveTheInterpreter ) {
   EXPECT_EXIT( _exit( dropAfterTheEnd( false ) ), testing::ExitedWithCode( 0 ), "" );
   EXPECT_EXIT( _exit( dropAfterTheEnd( true ) ), testing::ExitedWithCode( 0 ), "" );
}

} // namespace
