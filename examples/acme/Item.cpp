#include <acme/Item.h>

namespace Acme {

String Item::unit_( "mm" );

// Parts are kept const, so that nobody changes one through the collection; a look-up gives the item
// as it was added.
Ptr< Item > Item::lookup( Name name, Size size ) const {
   auto part = parts_.get( name );
   return part && part->size() == size ? Ptr< Item >( const_cast< Item* >( part.get() ) ) : nullptr;
}

String Item::describe( Color color ) {
   switch( color ) {
   case Color::red:
      return "a red item";
   case Color::blue:
      return "a blue item";
   }
   return "an item of no known color";
}

} // namespace Acme
