#include <kel/AllocationTracker.h>

#include <kel/AllocTrack.h>
#include <kel/Schema.h>

namespace Kel {

AllocationTracker::AllocationTracker() : Entity( String( "allocationTracker" ) ) {}

// Several records may bear one name: each library may have a class of its own in an unnamed
// namespace.
void AllocationTracker::update() {
   Map< String, AllocatedType > counts;
   for( AllocTrackTypeInfo const* info : AllocTrackTypeInfo::all() ) {
      String const name = info->name();
      AllocatedType const* const others = counts.find( name );
      AllocatedType count = others ? *others : AllocatedType();
      count.objects += info->live();
      count.bytes += info->bytes();
      counts.set( name, count );
   }
   type_ = counts;
}

KEL_UNIT( _AllocationTracker_51f0c2aa_kelModule,
   value< AllocatedType >(
      attr< &AllocatedType::objects >( "objects" ), attr< &AllocatedType::bytes >( "bytes" ) ),
   entity< AllocationTracker, Entity >( notMade, function< &AllocationTracker::update >( "update" ),
      collection< &AllocationTracker::type >( "type", readOnly ) ) )

namespace {
[[maybe_unused]] bool const trackerExistsFromLoad = [] {
   Entity::singletonIs( newObject< AllocationTracker >() );
   return true;
}();
} // namespace

} // namespace Kel
