// Declares the types of the example to the runtime: what a class has in C++ and what it is called.
#include <kel/Schema.h>

#include <acme/Item.h>
#include <acme/Store.h>

namespace Acme {

KEL_UNIT( _Acme_kelModule,

   enumeration< Color >( constant< Color::red >( "red" ), constant< Color::blue >( "blue" ) ),

   value< Size >(
      args( arg< U32 >( "value" ) ), attr< &Size::value, &Size::valueIs >( "value", valAttr ) ),

   value< Name, String >( args( arg< String >( "value" ) ), attr< &Name::value >( "value" ) ),

   value< Point >( attr< &Point::x >( "x" ), attr< &Point::y >( "y" ) ),

   entity< Thing, Kel::Entity >(
      args( arg< Name >( "name" ) ), attr< &Thing::note, &Thing::noteIs >( "note", notifies ) ),

   entity< Item, Thing >( args( arg< Name >( "name" ), arg< U32 >( "id" ) ),
      attr< &Item::id >( "id", immutable ), attr< &Item::size, &Item::sizeIs >( "size", notifies ),
      attr< &Item::color, &Item::colorIs >( "color", notifies ),
      attr< &Item::position, &Item::positionIs >( "position", notifies ),
      attr< &Item::parent, &Item::parentIs >( "parent", notifies ),
      attr< &Item::weight, &Item::weightIs >( "weight", notifies ),
      function< &Item::lookup >( "lookup", "name", "size" ),
      function< &Item::resize >( "resize", "size" ), function< &Item::add >( "add", "a", "b" ),
      collection< &Item::parts >( "part" ).indexedBy( "name" ),
      attr< &Item::unit, &Item::unitIs >( "unit" ),
      function< &Item::describe >( "describe", "color" ) ),

   pointer< StockItem >( args( arg< String >( "sku" ), arg< U32 >( "count" ) ),
      attr< &StockItem::sku >( "sku", immutable ),
      attr< &StockItem::count, &StockItem::countIs >( "count", notifies ) ),

   pointer< Badge >( args( arg< String >( "text" ), arg< U32 >( "level" ) ),
      attr< &Badge::text >( "text" ), attr< &Badge::level, &Badge::levelIs >( "level" ) ),

   entity< Store, Kel::Entity >( args( arg< String >( "name" ) ),
      collection< &Store::item >(
         "item", args( arg< String >( "sku" ), arg< U32 >( "count" ) ), notifies )
         .indexedBy( "sku" ),
      collection< &Store::favorite >( "favorite", notifies ).indexedBy( "sku" ),
      collection< &Store::price >( "price", notifies ), collection< &Store::alias >( "alias" ),
      collection< &Store::tag >( "tag", notifies ),
      collection< &Store::order >( "order", notifies ), collection< &Store::undo >( "undo" ),
      collection< &Store::track >( "track" ),
      instance< &Store::badge >( "badge", args( arg< String >( "text" ), arg< U32 >( "level" ) ) ),
      function< &Store::restock >( "restock", "sku", "count" ) ),

   // A directory type's third attribute is its default collection: here its entities once more.
   entity< Shelf, Kel::Dir >( args( arg< String >( "name" ) ),
      attr< &Shelf::capacity, &Shelf::capacityIs >( "capacity" ),
      attr< &Shelf::owner, &Shelf::ownerIs >( "owner" ),
      collection< &Shelf::entities >( "slot" ).indexedBy( "name" ) ) )

} // namespace Acme
