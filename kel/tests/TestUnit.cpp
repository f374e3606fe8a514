#include "TestUnit.h"

#include <kel/Schema.h>

namespace Unit {

KEL_UNIT( _Unit_kelModule,
   enumeration< Level >( constant< Level::low >( "low" ), constant< Level::none >( "none" ),
      constant< Level::high >( "high" ) ),
   value< Money >( args( arg< Kel::U32 >( "cents" ) ), attr< &Money::cents >( "cents", valAttr ) ),
   value< Pair >( attr< &Pair::name >( "name" ), attr< &Pair::count >( "count" ) ),
   value< Either >(
      attr< &Either::number, &Either::numberIs >( "number" ).aliveIf< &Either::numberIsLive >(),
      attr< &Either::text, &Either::textIs >( "text" ).aliveIf< &Either::textIsLive >() )
      .with( isUnion ),
   pointer< Part >( args( arg< Kel::String >( "id" ) ), attr< &Part::id >( "id", immutable ),
      attr< &Part::weight, &Part::weightIs >( "weight", notifies ),
      function< &Part::twin >( "twin", "suffix" ), function< &Part::drop >( "drop" ) ),
   pointer< SpecialPart, Part >(
      args( arg< Kel::String >( "id" ) ), attr< &SpecialPart::extra >( "extra" ) ),
   pointer< Maker, Part >( madeBy< &Maker::make >( arg< bool >( "special" ) ) ),
   entity< Box, Kel::Entity >( args( arg< Kel::String >( "name" ), arg< Kel::U32 >( "size" ) ),
      attr< &Box::size >( "size" ), attr< &Box::price, &Box::priceIs >( "price", notifies ),
      attr< &Box::part >( "part" ), attr< &Box::constPart >( "constPart" ),
      attr< &Box::rawPart >( "rawPart" ), attr< &Box::level >( "level", notifies ),
      collection< &Box::made >( "made", args( arg< Kel::String >( "id" ) ), notifies )
         .indexedBy( "id" ),
      collection< &Box::seen >( "seen" ).indexedBy( "id" ),
      collection< &Box::stock >( "stock", notifies ), collection< &Box::tag >( "tag", notifies ),
      collection< &Box::order >( "order", notifies ), collection< &Box::undo >( "undo" ),
      collection< &Box::track >( "track" ), collection< &Box::slot >( "slot" ),
      instance< &Box::lid >( "lid", args( arg< Kel::String >( "id" ) ) ),
      attr< &Box::boxes >( "boxes" ) ),
   entity< Rack, Kel::Dir >( args( arg< Kel::String >( "name" ) ), attr< &Rack::width >( "width" ),
      attr< &Rack::height >( "height" ),
      collection< &Rack::entities >( "slot" ).indexedBy( "name" ) ),
   pointer< Own >( attr< &Own::n >( "n" ) ),
   pointer< SpecialOwn, Own >( attr< &SpecialOwn::more >( "more" ) ),
   value< Mask >( attr< &Mask::bits >( "bits", valAttr ) ) )

} // namespace Unit
