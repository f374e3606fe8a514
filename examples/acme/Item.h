// Things and items: named objects that stand in directories and tell their notifiees of each
// change. Activity lock.
#pragma once

#include <kel/Collections.h>
#include <kel/Entity.h>

#include <acme/Values.h>

namespace Acme {

class KEL_API Thing : public Kel::Entity {
 public:
   KEL_OBJECT( Thing )

   explicit Thing( Name name ) : Entity( std::move( name ) ) {}

   String const& note() const { return note_; }
   void noteIs( String note ) { memberIs( note_, std::move( note ), Kel::attrId( "note" ) ); }

 private:
   String note_;
};

class KEL_API Item : public Thing {
 public:
   KEL_OBJECT( Item )

   using Parts = Kel::PtrMap< Ptr< Item const >, &Entity::name >;

   explicit Item( Name name, U32 id = 0 ) : Thing( std::move( name ) ), id_( id ) {}

   U32 id() const { return id_; }
   Size size() const { return size_; }
   Color color() const { return color_; }
   Point position() const { return position_; }
   Ptr< Item > parent() const { return parent_; }
   double weight() const { return weight_; }
   void sizeIs( Size size ) { memberIs( size_, size, Kel::attrId( "size" ) ); }
   void colorIs( Color color ) { memberIs( color_, color, Kel::attrId( "color" ) ); }
   void positionIs( Point at ) { memberIs( position_, at, Kel::attrId( "position" ) ); }
   void parentIs( Ptr< Item > parent ) {
      memberIs( parent_, std::move( parent ), Kel::attrId( "parent" ) );
   }
   void weightIs( double weight ) { memberIs( weight_, weight, Kel::attrId( "weight" ) ); }

   Parts& parts() { return parts_; }
   // The part of that name and size, or null.
   Ptr< Item > lookup( Name name, Size size ) const;
   void resize( Size size ) { sizeIs( size ); }
   // The sum, which wraps around.
   S32 add( S32 a, S32 b ) const { return static_cast< S32 >( U32( a ) + U32( b ) ); }

   // The unit of all sizes.
   static String unit() { return unit_; }
   static void unitIs( String unit ) { unit_ = std::move( unit ); }
   // "a red item"; "an item of no known color" for a number that is no color.
   static String describe( Color color );

 private:
   U32 const id_;
   Size size_;
   Color color_ = Color::red;
   Point position_;
   Ptr< Item > parent_;
   double weight_ = 0;
   Parts parts_;

   static String unit_;
};

} // namespace Acme
