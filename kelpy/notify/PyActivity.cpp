#include <kelpy/notify/PyActivity.h>

#include <kel/Schema.h>
#include <kelpy/classes/PyGenericIfClass.h>
#include <kelpy/notify/PyClockNotifiee.h>
#include <kelpy/notify/PyGenericIfNotifiee.h>
#include <kelpy/objects/PyGenericIf.h>
#include <kelpy/objects/PyStage.h>

namespace Kel {

KEL_UNIT( _PyActivity_5ba2bef8b65a744a_kelModule,

   pointer< PyClockNotifiee, PtrInterface::NotifieeConst >(
      madeBy< &pyClockNotifieeFactory >(
         arg< Ptr< Clock const > >( "clock" ), arg< Ptr< PyObjHandle > >( "handler" ) ),
      attr< &PyClockNotifiee::clock >( "clock", immutable ).withId( 130 ),
      attr< &PyClockNotifiee::handler >( "handler", immutable ).withId( 131 ),
      function< &PyClockNotifiee::handleTime >( "handleTime" ).withId( 132 ),
      attr< &PyClockNotifiee::timeMinProxy, &PyClockNotifiee::timeMinProxyIs >( "timeMinProxy" )
         .withId( 133 ) )
      .with( isConstrainer ),

   pointer< PyGenericIfNotifieeBase, PtrInterface >(
      madeBy< &pyGenericIfNotifieeBaseFactory >(
         arg< Ptr< GenericIf const > >( "gifNotifier" ), arg< Ptr< PyObjHandle > >( "handler" ) ),
      attr< &PyGenericIfNotifieeBase::handler >( "handler", immutable ).withId( 130 ),
      attr< &PyGenericIfNotifieeBase::filtered_ >( "filtered" ).withId( 131 ),
      collection< &PyGenericIfNotifieeBase::filterAttr >( "filterAttr" ).withId( 132 ) ) )

} // namespace Kel

PyObject* newNotifiee( PyObject*, PyObject* args ) {
   PyTypeObject* const objectType = getOrCreatePyType( Kel::kelType< Kel::PtrInterface >() );
   if( !objectType ) {
      return nullptr;
   }
   PyObject* object = nullptr;
   Kel::PyObjHandle* handler = nullptr;
   if( !PyArg_ParseTuple( args, "O!O&:newNotifiee", objectType, &object,
          &Convert_To_PtrInterface_Or_Null< Kel::PyObjHandle >, &handler ) ) {
      return nullptr;
   }
   Stage const stage( kelTypeOf( object ), "" );
   return underLocks( Kel::flags0, stage, noObject, [&]( Kel::PyLockAnchor& locks ) {
      auto const notifier = PyGenericIfToGenericIf( reinterpret_cast< PyGenericIf* >( object ) );
      auto notifiee = Kel::newObject< Kel::PyGenericIfNotifiee >(
         Kel::Ptr< Kel::GenericIf const >( notifier ), Kel::Ptr< Kel::PyObjHandle >( handler ) );
      locks.gilHeldIs( true );
      return PyGenericIf_FromPtrInterface( std::move( notifiee ) );
   } );
}
