#include <kelpy/notify/PyGenericIfNotifiee.h>

#include <kel/Lock.h>
#include <kelpy/convert/GenericIfToPyObject.h>
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
      insert( std::make_unique< KelFilterAttr >( name, value ) );
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

// What one call of a handler owns. Made and used up with the GIL held.
struct HandlerCall {
   PyRef function;
   PyRef key;
};

// Without a function if the handler is not to be called.
HandlerCall prepareCall( PyObject* function, Ptr< GenericIf const > const& key ) {
   CallbackGil const gil;
   if( !gil ) {
      return HandlerCall();
   }
   keepThreadState();
   PyRef held = PyRef::borrow( function );
   Ptr< GenericIf > copy( const_cast< GenericIf* >( key.get() ) );
   PyRef pyKey = PyRef::steal( GenericIfToPyObject( std::move( copy ), true ) );
   if( !pyKey ) {
      endWithPythonError( "Exception occurred building 'key' argument to "
                          "Python notifiee handler function" );
      return HandlerCall();
   }
   return { std::move( held ), std::move( pyKey ) };
}

void runHandler( HandlerCall call, KelAttr attr ) {
   PyRef const result = PyRef::steal( PyObject_CallFunction( call.function.get(),
      const_cast< char* >( "(N,N)" ), PyKelAttr_FromKelAttr( attr ), call.key.release() ) );
   if( !result ) {
      endWithPythonError( "Python notifiee handler function raised an exception" );
   }
}

// What belongs to an interpreter that is gone stays as it is.
void abandon( HandlerCall& call ) {
   static_cast< void >( call.function.release() );
   static_cast< void >( call.key.release() );
}

} // namespace

// The reference on the function outlives the notifiee, which the handler may end.
void PyGenericIfNotifiee::onAttribute( KelAttr attr, Ptr< GenericIf const > const& key ) noexcept {
   if( !passes( attr ) ) {
      return;
   }
   PyObject* const function = handler()->pyObject();
   if( !function ) {
      return;
   }
   HandlerCall call = prepareCall( function, key );
   if( !call.function ) {
      return;
   }
   UnlockAnchor const unlocked( activityLock() );
   if( CallbackGil const gil; gil ) {
      runHandler( std::move( call ), attr );
   } else {
      abandon( call );
   }
}

} // namespace Kel
