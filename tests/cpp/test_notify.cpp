// Reactors that call Python, as the runtime and C++ code see them.
#include "RuntimeCaller.h"

#include <csignal>
#include <thread>

#include <kel/Activity.h>
#include <kel/Exception.h>
#include <kelpy/notify/PyClockNotifiee.h>
#include <kelpy/notify/PyGenericIfNotifiee.h>
#include <odd/Notes.h>

using Kel::PyClockNotifiee;
using Kel::PyGenericIfNotifiee;
using Kel::PyGenericIfNotifieeBase;
using Kel::PyObjHandle;
using Op = Kel::GenericIf::AttributeOp;

namespace {

// A Python list whose method `append` is a handler of one argument, and more.
class Calls {
 public:
   // For notifiees: notes the pair of its arguments. For timers: notes None.
   Kel::Ptr< PyObjHandle > handler( char const* function ) const {
      return withGil( [&] {
         PyRef const globals = PyRef::steal( PyDict_New() );
         PyDict_SetItemString( globals.get(), "__builtins__", PyEval_GetBuiltins() );
         PyDict_SetItemString( globals.get(), "calls", list_.get() );
         PyRef const made =
            PyRef::steal( PyRun_String( function, Py_eval_input, globals.get(), globals.get() ) );
         return PyObjHandle::PyObjHandleIs( made.get(), false );
      } );
   }
   Kel::Ptr< PyObjHandle > pairs() const {
      return handler( "lambda attr, key: calls.append( (attr.name, key) )" );
   }
   Kel::Ptr< PyObjHandle > ticks() const { return handler( "lambda: calls.append( None )" ); }

   Py_ssize_t count() const {
      return withGil( [&] { return PyList_GET_SIZE( list_.get() ); } );
   }
   std::string text() const {
      return withGil( [&] {
         return std::string(
            PyString_AS_STRING( PyRef::steal( PyObject_Repr( list_.get() ) ).get() ) );
      } );
   }

 private:
   HeldObject const list_{ "[]" };
};

class Notifiee : public RuntimeCaller {
 protected:
   Kel::Ptr< Odd::Notes > const notes_ = Kel::newObject< Odd::Notes >();
   Kel::Ptr< Kel::GenericIf const > const view_ = Kel::KelType::genericIf( notes_.get(), false );
   Calls const calls_{};

   Kel::KelAttr attr( char const* name ) const { return notes_->fwkType().attr( name ); }
};

TEST_F( Notifiee, callsTheHandlerWithAttributeAndKey ) {
   auto const notifiee = Kel::newObject< PyGenericIfNotifiee >( view_, calls_.pairs() );
   notifiee->onAttribute( attr( "a" ), nullptr );
   notifiee->onAttribute( attr( "map" ), generic( Kel::String( "x" ) ) );
   EXPECT_EQ( calls_.text(), "[('a', None), ('map', 'x')]" );
}

TEST_F( Notifiee, isCalledOnAThreadThatPythonNeverSaw ) {
   auto const notifiee = Kel::newObject< PyGenericIfNotifiee >( view_, calls_.pairs() );
   Kel::UnlockAnchor const unlocked( Kel::activityLock() );
   std::thread( [&] {
      Kel::LockAnchor const lock( Kel::activityLock() );
      notifiee->onAttribute( attr( "a" ), nullptr );
      EXPECT_EQ( Kel::activityLock()->ownerThread(), Kel::Impl::gettid() );
      EXPECT_NE( _PyThreadState_Current, PyGILState_GetThisThreadState() );
   } ).join();
   EXPECT_EQ( calls_.text(), "[('a', None)]" );
}

PyThreadState* threadStatesOfPython() {
   return PyInterpreterState_ThreadHead( PyInterpreterState_Head() );
}

TEST_F( Notifiee, letsItsThreadKeepOneStateOfPythonUntilItEnds ) {
   auto const notifiee = Kel::newObject< PyGenericIfNotifiee >( view_, calls_.pairs() );
   auto* const before = threadStatesOfPython();
   Kel::UnlockAnchor const unlocked( Kel::activityLock() );
   std::thread( [&] {
      Kel::LockAnchor const lock( Kel::activityLock() );
      notifiee->onAttribute( attr( "a" ), nullptr );
      auto* const kept = PyGILState_GetThisThreadState();
      EXPECT_NE( kept, nullptr );
      notifiee->onAttribute( attr( "a" ), nullptr );
      EXPECT_EQ( PyGILState_GetThisThreadState(), kept );
      EXPECT_EQ( threadStatesOfPython(), kept );
   } ).join();
   EXPECT_EQ( threadStatesOfPython(), before );
   EXPECT_EQ( calls_.count(), 2 );
}

TEST_F( Notifiee, freesTheActivityLockForTheHandlerAndTakesItBackWithoutTheGIL ) {
   auto const handler = calls_.handler(
      "lambda attr, key: calls.append( __import__( '_Kel' ).activityLockOwner() )" );
   auto const notifiee = Kel::newObject< PyGenericIfNotifiee >( view_, handler );
   notifiee->onAttribute( attr( "a" ), nullptr );
   EXPECT_EQ( calls_.text(), "[0L]" );
   EXPECT_EQ( Kel::activityLock()->ownerThread(), Kel::Impl::gettid() );
   EXPECT_NE( _PyThreadState_Current, PyGILState_GetThisThreadState() );
}

TEST_F( Notifiee, ofAHandleOfNothingDoesNothing ) {
   auto const notifiee =
      Kel::newObject< PyGenericIfNotifiee >( view_, PyObjHandle::PyObjHandleIs( nullptr, false ) );
   notifiee->onAttribute( attr( "a" ), nullptr );
   // Nor does it build a key, which would end the process.
   notifiee->onAttribute( attr( "byText" ), generic( Odd::PyText{ "1 +" } ) );
}

TEST_F( Notifiee, endsTheProcessOnAnExceptionThatIsNotPythons ) {
   auto const notifiee = Kel::newObject< PyGenericIfNotifiee >( view_, calls_.pairs() );
   auto const withoutTheLock = [&] {
      pthread_mutex_unlock( Kel::activityLock()->mutex() );
      try {
         notifiee->onAttribute( attr( "a" ), nullptr );
      } catch( ... ) {
      }
   };
   EXPECT_EXIT( withoutTheLock(), testing::KilledBySignal( SIGABRT ), "Kel::ErrnoException" );
}

TEST_F( Notifiee, leavesNoReferenceOnItsFunctionBehind ) {
   auto const handle = calls_.pairs();
   PyObject* const function = handle->pyObject();
   auto const notifiee = Kel::newObject< PyGenericIfNotifiee >( view_, handle );
   auto const before = referencesOf( function );
   notifiee->onAttribute( attr( "a" ), nullptr );
   EXPECT_EQ( referencesOf( function ), before );
}

TEST_F( Notifiee, hasTheTypeOfItsBase ) {
   auto const base = PyGenericIfNotifieeBase::PyGenericIfNotifieeBaseIs( view_, nullptr );
   auto const notifiee = Kel::newObject< PyGenericIfNotifiee >( view_, nullptr );
   auto const type = Kel::kelType< PyGenericIfNotifieeBase >();
   EXPECT_EQ( base->fwkType(), type );
   EXPECT_EQ( notifiee->fwkType(), type );
   EXPECT_EQ( type.module(), &Kel::_PyActivity_5ba2bef8b65a744a_kelModule );
   EXPECT_EQ( type.typeIndex(), 1 );
   EXPECT_EQ( type.row().typeRef, ~1 );
   EXPECT_EQ( Kel::kelType< PyClockNotifiee >().typeIndex(), 0 );
   EXPECT_GE( Kel::kelType< PyClockNotifiee >().row().typeRef, 0 );
   EXPECT_TRUE( base->hasNotificationActive() );
   EXPECT_EQ( sizeof( PyGenericIfNotifiee ), sizeof( PyGenericIfNotifieeBase ) );
}

TEST_F( Notifiee, ofTheBaseClassHasNoReaction ) {
   auto const base = Kel::pyGenericIfNotifieeBaseFactory( view_, calls_.pairs() );
   notes_->aIs( 1 );
   static_cast< Kel::GenericIf::NotifieeConst& >( *base ).onAttribute( attr( "a" ), nullptr );
   EXPECT_EQ( calls_.count(), 0 );
   EXPECT_EQ( base->notifier(), notes_.get() );
}

TEST_F( Notifiee, isMadeFromArgumentsAsTheBaseClass ) {
   auto const type = Kel::kelType< PyGenericIfNotifieeBase >();
   auto const handle = calls_.pairs();
   auto const handleView = Kel::KelType::genericIf( handle.get(), false );
   auto const view = type.genericIf( Kel::ArgVector{ view_, handleView }, false );
   ASSERT_EQ( view->type(), type );
   auto* const notifiee = static_cast< PyGenericIfNotifieeBase* >( view->voidPtrIs( type ) );
   EXPECT_EQ( notifiee->handler(), handle );
   EXPECT_EQ( notifiee->genericNotifier(), view_ );
   EXPECT_FALSE( notifiee->filtered_ );
   EXPECT_THROW(
      type.genericIf( Kel::ArgVector{ generic( true ), handleView }, false ), Kel::TypeException );
   EXPECT_THROW(
      type.genericIf( Kel::ArgVector{ nullptr, handleView }, false ), Kel::TypeException );
   EXPECT_THROW( type.genericIf( Kel::ArgVector{ view_, view_ }, false ), Kel::TypeException );
}

TEST_F( Notifiee, holdsHandlerAndNotifierUntilItsEnd ) {
   HeldObject const held;
   auto notifiee = Kel::newObject< PyGenericIfNotifiee >(
      view_, PyObjHandle::PyObjHandleIs( held.get(), false ) );
   EXPECT_EQ( held.references(), 2 );
   EXPECT_EQ( notes_->references(), 3u );
   notifiee->filterAttrIs( "a", true );
   notifiee = nullptr;
   EXPECT_EQ( held.references(), 1 );
   EXPECT_EQ( notes_->references(), 2u );
}

class Filter : public Notifiee {
 protected:
   Kel::Ptr< PyGenericIfNotifiee > const notifiee_ =
      Kel::newObject< PyGenericIfNotifiee >( view_, calls_.pairs() );
   Kel::Ptr< Kel::GenericIf > const self_ = Kel::KelType::genericIf( notifiee_.get(), false );
   Kel::KelAttr const filterAttr_ = notifiee_->fwkType().attr( "filterAttr" );

   static Kel::Ptr< Kel::GenericIf > key( char const* name ) {
      return generic( Kel::String( name ) );
   }
};

TEST_F( Filter, blocksFalseAndAbsentNamesAlikeOnceItIsOn ) {
   notifiee_->filterAttrIs( "a", false );
   notifiee_->onAttribute( attr( "a" ), nullptr );
   notifiee_->onAttribute( attr( "b" ), nullptr );
   EXPECT_EQ( calls_.count(), 2 );
   notifiee_->filtered_ = true;
   notifiee_->onAttribute( attr( "a" ), nullptr );
   notifiee_->onAttribute( attr( "b" ), nullptr );
   EXPECT_EQ( calls_.count(), 2 );
   notifiee_->filterAttrIs( "a", true );
   notifiee_->onAttribute( attr( "a" ), nullptr );
   notifiee_->onAttribute( attr( "b" ), nullptr );
   EXPECT_EQ( calls_.text(), "[('a', None), ('b', None), ('a', None)]" );
}

TEST_F( Filter, tellsAtADeletionWhatTheNameHeld ) {
   notifiee_->filterAttrIs( "a", true );
   notifiee_->filterAttrIs( "b", false );
   EXPECT_TRUE( notifiee_->filterAttrDel( "a" ) );
   EXPECT_FALSE( notifiee_->filterAttrDel( "a" ) );
   EXPECT_FALSE( notifiee_->filterAttrDel( "b" ) );
   EXPECT_EQ( notifiee_->filterAttr().members(), 0u );
}

TEST_F( Filter, isReadWrittenAndDeletedByGenericOperations ) {
   EXPECT_FALSE( as< bool >( filterAttr_.genericIfGet( self_, key( "a" ) ) ) );
   EXPECT_FALSE( filterAttr_.genericIfExist( self_, key( "a" ) ) );
   filterAttr_.genericIfSet( self_, key( "a" ), generic( true ) );
   filterAttr_.genericIfSet( self_, key( "b" ), generic( false ) );
   EXPECT_TRUE( as< bool >( filterAttr_.genericIfGet( self_, key( "a" ) ) ) );
   EXPECT_FALSE( as< bool >( filterAttr_.genericIfGet( self_, key( "b" ) ) ) );
   EXPECT_TRUE( filterAttr_.genericIfExist( self_, key( "b" ) ) );
   EXPECT_EQ( filterAttr_.genericIfMembers( self_ ), 2u );
   EXPECT_EQ( filterAttr_.genericIfVersion( self_ ), 2u );
   filterAttr_.genericIfSet( self_, key( "b" ), generic( true ) );
   EXPECT_EQ( filterAttr_.genericIfVersion( self_ ), 2u );
   EXPECT_TRUE( filterAttr_.genericIfDel( self_, key( "b" ) ) );
   filterAttr_.genericIfSet( self_, key( "b" ), generic( false ) );
   EXPECT_FALSE( filterAttr_.genericIfDel( self_, key( "b" ) ) );
   EXPECT_FALSE( filterAttr_.genericIfExist( self_, key( "b" ) ) );
   EXPECT_FALSE( filterAttr_.genericIfDel( self_, key( "c" ) ) );
}

TEST_F( Filter, isIteratedByName ) {
   notifiee_->filterAttrIs( "a", true );
   notifiee_->filterAttrIs( "b", false );
   std::string seen;
   for( auto it = filterAttr_.genericIfIterator( self_ ); it; ++it ) {
      seen += as< Kel::String >( it.key() ).stdString() + ( as< bool >( it.ptr() ) ? "+" : "-" );
   }
   EXPECT_EQ( seen, "a+b-" );
}

TEST_F( Filter, isEmptiedAtOnce ) {
   notifiee_->filterAttrIs( "a", true );
   notifiee_->filterAttrIs( "b", true );
   auto const iterator = filterAttr_.genericIfIterator( self_ );
   notifiee_->filterAttrDelAll();
   EXPECT_EQ( notifiee_->filterAttr().members(), 0u );
   EXPECT_FALSE( iterator );
   notifiee_->filtered_ = true;
   notifiee_->onAttribute( attr( "a" ), nullptr );
   EXPECT_EQ( calls_.count(), 0 );
}

TEST_F( Filter, answersTheOperationsOfTheTypesAttributes ) {
   auto const type = notifiee_->fwkType();
   auto const name = key( "a" );
   auto const value = generic( true );
   auto const result = [&]( Kel::AttributeId id, Op op ) {
      return attributeResult( type, id, op, notifiee_.get(), [&]( Kel::AttrCall& call ) {
         call.key = name.get();
         call.value = value.get();
      } );
   };
   EXPECT_EQ( result( 130, Op::get ), 0 );
   EXPECT_EQ( result( 130, Op::set ), 1 );
   EXPECT_EQ( result( 131, Op::set ), 0 );
   EXPECT_TRUE( notifiee_->filtered_ );
   EXPECT_EQ( result( 131, Op::get ), 0 );
   for( Op const op : { Op::set, Op::get, Op::members, Op::version, Op::exist, Op::del } ) {
      EXPECT_EQ( result( 132, op ), 0 );
   }
   for( Op const op : { Op::call, Op::add, Op::remove, Op::front, Op::back } ) {
      EXPECT_EQ( result( 132, op ), 1 );
   }
   EXPECT_EQ( result( 129, Op::get ), 2 );
   EXPECT_EQ( result( 133, Op::get ), 2 );
}

class Timer : public RuntimeCaller {
 protected:
   static constexpr Kel::AttributeId reached = 258;

   Kel::Ptr< Kel::Clock const > const clock_ = Kel::Clock::instance();
   Calls const calls_{};

   Kel::Ptr< PyClockNotifiee > made() const {
      return Kel::pyClockNotifieeFactory( clock_, calls_.ticks() );
   }
   static void runUntilIdle() {
      auto const manager = Kel::Entity::singleton( "Kel::ActivityManager" );
      static_cast< Kel::ActivityManager* >( manager.get() )->runUntilIdle();
   }
};

TEST_F( Timer, isRegisteredAndSilentFromItsConstruction ) {
   auto const timer = made();
   EXPECT_EQ( calls_.count(), 0 );
   EXPECT_EQ( timer->clock(), clock_ );
   EXPECT_TRUE( timer->isRegisteredNotifiee() );
   EXPECT_TRUE( timer->hasNotificationActive() );
   EXPECT_EQ( timer->timeMinProxy().value(), 0.0 );
   EXPECT_EQ( timer->references(), 1u );
}

TEST_F( Timer, runsItsHandlerOnTheClocksNumberOnly ) {
   auto const timer = made();
   for( Kel::AttributeId const id : { 0u, 1u, 130u, 257u, 259u } ) {
      timer->onAttribute( id, nullptr );
   }
   EXPECT_EQ( calls_.count(), 0 );
   timer->onAttribute( reached, nullptr );
   EXPECT_EQ( calls_.count(), 1 );
}

TEST_F( Timer, asAZombieIgnoresTheClock ) {
   auto const timer = made();
   timer->kelDoZombieReactors( true );
   EXPECT_TRUE( timer->kelMarkedForDeletion() );
   EXPECT_FALSE( timer->hasNotificationActive() );
   timer->onAttribute( reached, nullptr );
   EXPECT_EQ( calls_.count(), 0 );
   timer->kelDoZombieReactors( false );
   EXPECT_FALSE( timer->kelMarkedForDeletion() );
   EXPECT_TRUE( timer->hasNotificationActive() );
   timer->onAttribute( reached, nullptr );
   EXPECT_EQ( calls_.count(), 1 );
}

TEST_F( Timer, thatIsAZombieAlreadyStaysAsItIs ) {
   auto const timer = made();
   timer->hasNotificationActiveIs( false );
   timer->kelDoZombieReactors( false );
   EXPECT_FALSE( timer->hasNotificationActive() );
   timer->kelDoZombieReactors( true );
   timer->hasNotificationActiveIs( true );
   timer->kelDoZombieReactors( true );
   EXPECT_TRUE( timer->hasNotificationActive() );
}

TEST_F( Timer, asAZombieDoesNotFire ) {
   auto const timer = made();
   timer->timeMinProxyIs( clock_->now() );
   timer->kelDoZombieReactors( true );
   runUntilIdle();
   EXPECT_EQ( calls_.count(), 0 );
}

TEST_F( Timer, asAZombieWithoutAClockKeepsItsNotification ) {
   auto const timer = Kel::pyClockNotifieeFactory( nullptr, calls_.ticks() );
   timer->kelDoZombieReactors( true );
   EXPECT_TRUE( timer->kelMarkedForDeletion() );
   EXPECT_TRUE( timer->hasNotificationActive() );
}

TEST_F( Timer, callsItsHandlerAtOnceForANewClock ) {
   auto const timer = made();
   timer->notifierIs( clock_ );
   EXPECT_EQ( calls_.count(), 0 );
   timer->notifierIs( nullptr );
   EXPECT_EQ( calls_.count(), 0 );
   EXPECT_EQ( timer->clock(), nullptr );
   EXPECT_FALSE( timer->isRegisteredNotifiee() );
   timer->notifierIs( clock_ );
   EXPECT_EQ( calls_.count(), 1 );
   EXPECT_TRUE( timer->isRegisteredNotifiee() );
}

TEST_F( Timer, takesWhatIsNoClockForNone ) {
   auto const timer = made();
   timer->notifierIs( Kel::Ptr< Kel::PtrInterface const >( Kel::newObject< Odd::Notes >() ) );
   EXPECT_EQ( timer->clock(), nullptr );
   EXPECT_EQ( calls_.count(), 0 );
}

TEST_F( Timer, asAZombieIsNotCalledForANewClock ) {
   auto const timer = Kel::pyClockNotifieeFactory( nullptr, calls_.ticks() );
   timer->kelDoZombieReactors( true );
   timer->notifierIs( clock_ );
   EXPECT_EQ( calls_.count(), 0 );
   EXPECT_EQ( timer->clock(), clock_ );
   EXPECT_TRUE( timer->isRegisteredNotifiee() );
}

TEST_F( Timer, firesWithTheClockThatItHas ) {
   auto const timer = Kel::pyClockNotifieeFactory( nullptr, calls_.ticks() );
   timer->timeMinProxyIs( clock_->now() );
   runUntilIdle();
   EXPECT_EQ( calls_.count(), 0 );
   timer->notifierIs( clock_ ); // calls it once
   runUntilIdle();
   EXPECT_EQ( calls_.count(), 2 );
   timer->timeMinProxyIs( clock_->now() );
   timer->notifierIs( nullptr );
   runUntilIdle();
   EXPECT_EQ( calls_.count(), 2 );
}

TEST_F( Timer, ofAHandleOfNothingDoesNothing ) {
   auto const timer =
      Kel::pyClockNotifieeFactory( clock_, PyObjHandle::PyObjHandleIs( nullptr, false ) );
   timer->handleTime();
}

TEST_F( Timer, holdsItsHandlerUntilItsEnd ) {
   HeldObject const held;
   auto timer =
      Kel::pyClockNotifieeFactory( clock_, PyObjHandle::PyObjHandleIs( held.get(), false ) );
   timer->timeMinProxyIs( Kel::Seconds( clock_->now().value() + 1e6 ) );
   EXPECT_EQ( held.references(), 2 );
   timer = nullptr;
   EXPECT_EQ( held.references(), 1 );
   runUntilIdle();
}

TEST_F( Timer, answersTheOperationsOfItsAttributes ) {
   auto const timer = made();
   auto const time = generic( Kel::Seconds( 1e9 ) );
   auto const result = [&]( Kel::AttributeId id, Op op ) {
      return attributeResult( timer->fwkType(), id, op, timer.get(), [&]( Kel::AttrCall& call ) {
         static Kel::ArgVector const none;
         call.args = op == Op::call ? &none : nullptr;
         call.value = time.get();
      } );
   };
   EXPECT_EQ( result( 130, Op::get ), 0 );
   EXPECT_EQ( result( 131, Op::get ), 0 );
   EXPECT_EQ( result( 130, Op::set ), 1 );
   EXPECT_EQ( result( 131, Op::set ), 1 );
   EXPECT_EQ( result( 132, Op::call ), 0 );
   EXPECT_EQ( calls_.count(), 1 );
   EXPECT_EQ( result( 132, Op::get ), 1 );
   EXPECT_EQ( result( 133, Op::set ), 0 );
   EXPECT_EQ( timer->timeMinProxy().value(), 1e9 );
   EXPECT_EQ( result( 133, Op::get ), 0 );
   EXPECT_EQ( result( 133, Op::call ), 1 );
   EXPECT_EQ( result( 129, Op::get ), 2 );
   EXPECT_EQ( result( 258, Op::get ), 2 );
}

} // namespace
