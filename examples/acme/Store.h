// A store with a collection of every sort, and a shelf: a directory with attributes of its own.
// Activity lock.
#pragma once

#include <kel/Dir.h>
#include <kel/OrderedCollections.h>

#include <acme/Values.h>

namespace Acme {

// So many of one kind of goods.
class KEL_API StockItem : public Kel::PtrInterface {
 public:
   KEL_OBJECT( StockItem )

   StockItem( String sku, U32 count ) : sku_( std::move( sku ) ), count_( count ) {}

   String const& sku() const { return sku_; }
   U32 count() const { return count_; }
   void countIs( U32 count ) { memberIs( count_, count, Kel::attrId( "count" ) ); }

 private:
   String const sku_;
   U32 count_;
};

class KEL_API Badge : public Kel::PtrInterface {
 public:
   KEL_OBJECT( Badge )

   Badge( String text, U32 level ) : text_( std::move( text ) ), level_( level ) {}

   String const& text() const { return text_; }
   U32 level() const { return level_; }
   void levelIs( U32 level ) { level_ = level; }

 private:
   String const text_;
   U32 level_;
};

class KEL_API Store : public Kel::Entity {
 public:
   KEL_OBJECT( Store )

   using StockItems = Kel::PtrMap< Ptr< StockItem >, &StockItem::sku >;

   explicit Store( String name ) : Entity( std::move( name ) ) {}

   // Adds to the count of that item, which is made if need be.
   Ptr< StockItem > restock( String sku, U32 count );

   StockItems item{ this, Kel::attrId( "item" ) };
   StockItems favorite{ this, Kel::attrId( "favorite" ) };
   Kel::Map< String, U32 > price{ this, Kel::attrId( "price" ) };
   Kel::Map< Name, Name > alias;
   Kel::SetOf< String > tag{ this, Kel::attrId( "tag" ) };
   Kel::Queue< String > order{ this, Kel::attrId( "order" ) };
   Kel::Stack< Size > undo;
   Kel::Vector< S32 > track;
   Ptr< Badge > badge;
};

class KEL_API Shelf : public Kel::Dir {
 public:
   KEL_OBJECT( Shelf )

   explicit Shelf( String name ) : Dir( std::move( name ) ) {}

   U32 capacity() const { return capacity_; }
   void capacityIs( U32 capacity ) { capacity_ = capacity; }
   String const& owner() const { return owner_; }
   void ownerIs( String owner ) { owner_ = std::move( owner ); }

 private:
   U32 capacity_ = 0;
   String owner_;
};

} // namespace Acme
