#include <kelpy/notify/PyGenericIfNotifiee.h>

#include <kel/Lock.h>
#include <kelpy/convert/GenericIfToPyObject.h>
#include <kelpy/core/PyLock.h>
#include <kelpy/core/PyRef.h>
#include <kelpy/notify/PyCallback.h>
#include <kelpy/reflection/PyKelAttr.h>

namespace Kel {

bool const* FilterAttrs::find( String const& name ) const {
   static constexpr bool absent = false;
   auto const* const node = this->node( name );
   return node ? &node->member_ : &absent;
}

void FilterAttrs::set( String const& name, bool value ) {
   if( auto* const node = this->node( name ) ) {
      node->member_ = value;
   } else {
      insert( new KelFilterAttr( name, value ) );
   }
}

bool FilterAttrs::del( String const& name ) {
   bool const value = *find( name );
   KeyedCollection::del( name );
   return value;
}

PyGenericIfNotifieeBase::PyGenericIfNotifieeBase(
   Ptr< GenericIf const > const& notifier, Ptr< PyObjHandle > const& handler )
   : NotifieeConst( notifier ), handler_( handler ) {}

Ptr< PyGenericIfNotifieeBase > PyGenericIfNotifieeBase::PyGenericIfNotifieeBaseIs(
   Ptr< GenericIf const > const& notifier, Ptr< PyObjHandle > const& handler ) {
   return newObject< PyGenericIfNotifieeBase >( notifier, handler );
}

Ptr< PyGenericIfNotifieeBase > pyGenericIfNotifieeBaseFactory(
   Ptr< GenericIf const > const& notifier, Ptr< PyObjHandle > const& handler ) {
   return PyGenericIfNotifieeBase::PyGenericIfNotifieeBaseIs( notifier, handler );
}

bool PyGenericIfNotifieeBase::passes( KelAttr attr ) const {
   return !filtered_ || *filterAttr_.find( String( attr.name() ) );
}

namespace {

// What one call of a handler owns. Filled and emptied with the GIL held.
struct HandlerCall {
   PyRef function;
   PyRef key;
};

HandlerCall prepareCall( PyObject* function, Ptr< GenericIf const > const& key ) {
   HandlerCall call{ PyRef::borrow( function ), PyRef() };
   Ptr< GenericIf > copy( const_cast< GenericIf* >( key.get() ) );
   call.key = PyRef::steal( GenericIfToPyObject( std::move( copy ), true ) );
   if( !call.key ) {
      endWithPythonError( "Exception occurred building 'key' argument to "
                          "Python notifiee handler function" );
   }
   return call;
}

void runHandler( HandlerCall call, KelAttr attr ) {
   PyRef const result = PyRef::steal( PyObject_CallFunction( call.function.get(),
      const_cast< char* >( "(N,N)" ), PyKelAttr_FromKelAttr( attr ), call.key.release() ) );
   if( !result ) {
      endWithPythonError( "Python notifiee handler function raised an exception" );
   }
}

} // namespace

// The reference on the function outlives the notifiee, which the handler may end.
void PyGenericIfNotifiee::onAttribute( KelAttr attr, Ptr< GenericIf const > const& key ) noexcept {
   if( !passes( attr ) ) {
      return;
   }
   PyObject* const function = handler()->pyObject();
   if( !function || !pythonRuns() ) {
      return;
   }
   HandlerCall call;
   {
      GilAnchor const gil;
      call = prepareCall( function, key );
   }
   UnlockAnchor const unlocked( activityLock() );
   GilAnchor const gil;
   runHandler( std::move( call ), attr );
}

} // namespace Kel
