#include "Ledger.h"

#include <algorithm>
#include <map>

#include <kel/Lock.h>

#include "NativeThreads.h"

namespace Stress {

namespace {

std::map< Kel::PtrInterface const*, Changes > ledger;

} // namespace

void note( Kel::PtrInterface const* object, char const* attribute, std::string key ) {
   ledger[object].push_back( { attribute, std::move( key ) } );
}

Changes const& noted( Kel::PtrInterface const* object ) {
   return ledger[object];
}

void forgetNoted() {
   ledger.clear();
}

Recorder::Recorder( Kel::PtrInterface* object )
   : NotifieeConst( Kel::KelType::genericIf( object, false ) ),
     object_( object ),
     from_( noted( object ).size() ) {}

void Recorder::onAttribute( Kel::KelAttr attr, Kel::Ptr< Kel::GenericIf const > const& key ) {
   seen_.push_back( { attr.name(), key ? key->strRep().stdString() : "" } );
   Kel::UnlockAnchor const unlocked( Kel::activityLock() );
   dawdle();
}

std::string Recorder::fault( bool all ) const {
   Changes const& wanted = noted( object_ );
   std::size_t const count = wanted.size() - from_;
   if( seen_.size() > count || ( all && seen_.size() < count ) ) {
      return "a native notifiee saw " + std::to_string( seen_.size() ) + " of " +
             std::to_string( count ) + " changes";
   }
   auto const from = wanted.begin() + static_cast< std::ptrdiff_t >( from_ );
   auto const [seen, change] = std::mismatch( seen_.begin(), seen_.end(), from );
   if( seen == seen_.end() ) {
      return "";
   }
   return "a native notifiee saw " + seen->attribute + " " + seen->key + " instead of " +
          change->attribute + " " + change->key;
}

} // namespace Stress
