#include <acme/Store.h>

namespace Acme {

Ptr< StockItem > Store::restock( String sku, U32 count ) {
   auto present = item.get( sku );
   if( present ) {
      present->countIs( present->count() + count );
      return present;
   }
   auto made = Kel::newObject< StockItem >( std::move( sku ), count );
   item.newMember( made );
   return made;
}

} // namespace Acme
