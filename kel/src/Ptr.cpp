#include <kel/Ptr.h>

#include <cstddef>

#include <kel/ActivityLoop.h>
#include <kel/Notifiee.h>

namespace Kel {

static_assert( sizeof( Ptr< PtrInterface > ) == 8 && sizeof( PtrInterface ) == 16 );

namespace {

// Sets or clears flag bits of a reference word, whatever others do to its count.
void flagIs( std::uint32_t& word, std::uint32_t bit, bool on ) {
   if( on ) {
      __atomic_fetch_or( &word, bit, __ATOMIC_SEQ_CST );
   } else {
      __atomic_fetch_and( &word, ~bit, __ATOMIC_SEQ_CST );
   }
}

} // namespace

PtrInterface::~PtrInterface() {
   if( hasNotifieeList_ ) {
      NotifieeList::drop( this );
   }
}

NotifieeList* PtrInterface::notifieeList() const {
   return hasNotifieeList_ ? NotifieeList::find( this ) : nullptr;
}

void PtrInterface::hasNotificationActiveIs( bool active ) {
   flagIs( word_, notificationActiveBit, active );
}

void PtrInterface::zeroReferencesIs( bool zero ) {
   if( zero ) {
      delete this;
   }
}

KelType PtrInterface::fwkType() const {
   return kelType< PtrInterface >();
}

void PtrInterface::kelMarkedForDeletionIs( bool marked ) const {
   if( marked == kelMarkedForDeletion() ) {
      return;
   }
   flagIs( word_, zombieBit, marked );
   if( marked && hasNotifiees_ ) {
      ActivityLoop::instance().queueZombie( this );
   }
}

void PtrInterface::notify( AttributeId attribute, Ptr< GenericIf const > key ) const {
   if( hasNotifiees_ ) {
      ActivityLoop::instance().queueChange( this, attribute, std::move( key ) );
   }
}

void PtrInterface::handleZeroRef() const noexcept {
   flagIs( word_, destructionBias, true );
   const_cast< PtrInterface* >( this )->zeroReferencesIs( true );
}

} // namespace Kel
