// A collection of every kind, with containers that refuse to be asked, and a log of what the
// runtime did with them. Activity lock.
#pragma once

#include <array>
#include <string>

#include <kel/OrderedCollections.h>

#include <acme/Item.h>
#include <odd/Values.h>

namespace Odd {

class Coll;

KEL_TYPES( _Odd_Coll_kelModule, Coll );

// Cannot tell whether a key is there.
class KEL_API Blind : public Kel::Map< String, U32 > {
 public:
   // Throws Kel::OpNotSupportedException.
   bool exist( String const& key ) const;
};

// Fails when it is asked for a key or for its members.
class KEL_API Brittle : public Kel::Map< String, U32 > {
 public:
   // Both throw Kel::InternalException.
   bool exist( String const& key ) const;
   Iterator iterator() const;
};

class KEL_API Coll : public Kel::PtrInterface {
 public:
   KEL_OBJECT( Coll )

   using Nodes = Kel::PtrMap< Ptr< Node const >, &Node::id >;
   using Counts = Kel::Map< String, U32 >;
   using StockItems = Acme::Store::StockItems;

   static Counts& registry();
   static Nodes& shared();
   static StockItems& fleet();

   // Notes an operation for log().
   void ran( Kel::AttributeOp op ) const;
   // The operations on this object's collections since the last call, joined by blanks.
   String log() const;

   Kel::DynArray< U32 > slot{ 4 };
   Kel::PackedArray< U32 > packed;
   Kel::PodArray< U8, 4 > pod;
   Blind blind;
   Nodes node;
   Acme::Item::Parts part;
   Kel::Map< Ptr< Node const >, U32 > byNode;
   Kel::Map< Acme::Size, Acme::Size > size;
   Kel::Map< String, std::optional< U32 > > maybe;
   Kel::Map< PyText, U32 > text;
   Kel::Vector< S32 > track;
   Kel::Queue< U32 > line;
   Kel::Stack< U32 > pile;
   Kel::Queue< Ptr< Acme::StockItem > > intake;
   Brittle brittle;

 private:
   mutable std::string log_;
};

} // namespace Odd
