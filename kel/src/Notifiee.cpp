#include <kel/Notifiee.h>

#include <memory>
#include <unordered_map>

#include <kel/ActivityLoop.h>
#include <kel/Assert.h>
#include <kel/Exception.h>

namespace Kel {

namespace {

// Objects that nobody is told of pay two flags; the lists of the others stand here. Activity lock.
// Never freed, since objects may outlive the static objects of the process.
std::unordered_map< PtrInterface const*, std::unique_ptr< NotifieeList > >& lists() {
   static auto* const lists =
      new std::unordered_map< PtrInterface const*, std::unique_ptr< NotifieeList > >();
   return *lists;
}

} // namespace

constinit NotifieeList::Cursor* NotifieeList::cursors_ = nullptr;

NotifieeList* NotifieeList::find( PtrInterface const* owner ) {
   auto at = lists().find( owner );
   return at == lists().end() ? nullptr : at->second.get();
}

NotifieeList& NotifieeList::of( PtrInterface const* owner ) {
   auto& list = lists()[owner];
   if( !list ) {
      list = std::make_unique< NotifieeList >( owner );
      owner->hasNotifieeList_ = true;
   }
   return *list;
}

void NotifieeList::drop( PtrInterface const* owner ) {
   lists().erase( owner );
}

NotifieeList::~NotifieeList() {
   while( first_ ) {
      remove( first_ );
   }
}

void NotifieeList::add( PtrInterface::NotifieeConst const* notifiee ) {
   notifiee->list_ = this;
   notifiee->prev_ = last_;
   notifiee->next_ = nullptr;
   notifiee->registeredAt_ = ActivityLoop::instance().lastChange();
   ( last_ ? last_->next_ : first_ ) = notifiee;
   last_ = notifiee;
   owner_->hasNotifiees_ = true;
}

void NotifieeList::remove( PtrInterface::NotifieeConst const* notifiee ) {
   for( auto* cursor = cursors_; cursor; cursor = cursor->outer ) {
      if( cursor->next == notifiee ) {
         cursor->next = notifiee->next_;
      }
   }
   ( notifiee->prev_ ? notifiee->prev_->next_ : first_ ) = notifiee->next_;
   ( notifiee->next_ ? notifiee->next_->prev_ : last_ ) = notifiee->prev_;
   notifiee->list_ = nullptr;
   owner_->hasNotifiees_ = first_ != nullptr;
}

// Goes along the notifiees that were registered before the change. Each is held for the length of
// its reaction, so that one whose last other reference goes there ends behind it.
template< class React >
void NotifieeList::forEach( std::uint64_t change, React react ) {
   Cursor cursor( first_ );
   while( cursor.next ) {
      Ptr< PtrInterface::NotifieeConst > notifiee(
         const_cast< PtrInterface::NotifieeConst* >( cursor.next ) );
      cursor.next = notifiee->next_;
      if( notifiee->registeredAt_ < change && notifiee->hasNotificationActive() &&
          !notifiee->kelMarkedForDeletion() ) {
         react( notifiee.get() );
      }
   }
}

void NotifieeList::deliver(
   std::uint64_t change, KelAttr attr, Ptr< GenericIf const > const& key ) {
   forEach( change, [&]( PtrInterface::NotifieeConst* notifiee ) {
      if( notifiee->deliver_ ) {
         notifiee->deliver_( notifiee, attr, key );
      }
   } );
}

void NotifieeList::deliverZombie( std::uint64_t change ) {
   forEach( change, []( PtrInterface::NotifieeConst* notifiee ) { notifiee->onZeroReferences(); } );
}

PtrInterface::NotifieeConst::~NotifieeConst() {
   isRegisteredNotifieeIs( false );
}

void PtrInterface::NotifieeConst::hasNotificationActiveIs( bool active ) {
   PtrInterface::hasNotificationActiveIs( active );
}

void PtrInterface::NotifieeConst::onZeroReferences() {}

void PtrInterface::NotifieeConst::notifierIs( PtrInterface const* notifier ) {
   isRegisteredNotifieeIs( false );
   notifier_ = Ptr< PtrInterface const >( notifier );
   isRegisteredNotifieeIs( true );
}

void PtrInterface::NotifieeConst::isRegisteredNotifieeIs( bool registered ) const {
   if( registered == static_cast< bool >( list_ ) || !notifier_ ) {
      return;
   }
   if( registered ) {
      NotifieeList::of( notifier_.get() ).add( this );
   } else {
      list_->remove( this );
   }
}

GenericIf::NotifieeConst::NotifieeConst( Ptr< GenericIf const > notifier )
   : PtrInterface::NotifieeConst(
        []( PtrInterface::NotifieeConst* self, KelAttr attr, Ptr< GenericIf const > const& key ) {
           auto* notifiee = static_cast< GenericIf::NotifieeConst* >( self );
           notifiee->onAttribute( attr, key );
        } ),
     generic_( std::move( notifier ) ) {
   PtrInterface* object = generic_ ? generic_->ptrInterface() : nullptr;
   if( !object ) {
      throw TypeException( "only an object can be notified of, not a value or null" );
   }
   notifierIs( object );
}

GenericIf::NotifieeConst::~NotifieeConst() = default;

void GenericIf::NotifieeConst::onAttribute( AttributeId, void const* ) {}

void GenericIf::NotifieeConst::onAttribute( KelAttr attribute, Ptr< GenericIf const > const& key ) {
   onAttribute( attribute.attributeId(), key.get() );
}

} // namespace Kel
