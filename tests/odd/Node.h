// Objects behind pointers of every sort: counted, const, raw, of a derived type, and one with a
// pointer interface of its own. Activity lock.
#pragma once

#include <vector>

#include <kel/Entity.h>

#include <acme/Store.h>
#include <odd/Scalars.h>

namespace Odd {

class Node;
class SpecialNode;
class Vehicle;
class Car;
class PtrDefault;
class Own;
class Link;
class Refuser;
class Keeper;
class Gate;
class SubGate;
class Clash;
class Board;

KEL_TYPES( _Odd_Node_kelModule, Node, SpecialNode, Vehicle, Car, PtrDefault, Own, Link, Refuser,
   Keeper, Gate, SubGate, Clash, Board );

class KEL_API Node : public Kel::PtrInterface {
 public:
   KEL_OBJECT( Node )

   explicit Node( U32 id );
   ~Node() override;

   U32 id() const { return id_; }
   void bump() { ++value; }
   U32 peek() const { return value; }

   // Not counted: null again once that node ends.
   Node* rawNext() const { return rawNext_; }
   void rawNextIs( Node* node );

   // The number of nodes alive.
   static U32 live();
   // A SpecialNode for "special", null for "none", a Node for every other kind.
   static Ptr< Node > make( String kind, U32 id );

   Ptr< Node > next;
   Ptr< Node const > constNext;
   U32 value = 0;

 private:
   U32 const id_;
   Node* rawNext_ = nullptr;
   std::vector< Node* > rawReferrers_; // the nodes whose rawNext_ is this one
};

class KEL_API SpecialNode : public Node {
 public:
   KEL_OBJECT( SpecialNode )

   using Node::Node;

   U32 extra = 0;
};

class KEL_API Vehicle : public Kel::PtrInterface {
 public:
   KEL_OBJECT( Vehicle )

   // A Car for "car", a Vehicle for every other kind.
   static Ptr< Vehicle > make( String kind );
};

class KEL_API Car : public Vehicle {
 public:
   KEL_OBJECT( Car )
};

class KEL_API PtrDefault : public Kel::PtrInterface {
 public:
   KEL_OBJECT( PtrDefault )

   static String defaultAttribute() { return "value"; }

   U32 value = 0;
};

// Counted without Kel::PtrInterface: a table of virtual functions, then the reference word.
class KEL_API Own {
 public:
   KEL_TRACKED( Own )

   Own() = default;
   Own( Own const& ) = delete;
   Own& operator=( Own const& ) = delete;
   virtual ~Own();

   std::uint32_t& kelReferenceWord() const noexcept { return word_; }
   void handleZeroRef() const noexcept { delete this; }

 private:
   mutable std::uint32_t word_ = 0;

 public:
   U32 n = 0;
};

class KEL_API Link : public Kel::PtrInterface {
 public:
   KEL_OBJECT( Link )

   Link( Ptr< Node > node, Acme::Color color ) : node_( std::move( node ) ), color_( color ) {}

   Ptr< Node > node() const { return node_; }
   Acme::Color color() const { return color_; }

 private:
   Ptr< Node > const node_;
   Acme::Color const color_;
};

class KEL_API Refuser : public Kel::PtrInterface {
 public:
   KEL_OBJECT( Refuser )

   // Throws Kel::RangeException for a number above 9.
   explicit Refuser( U32 n );

   U32 n() const { return n_; }

 private:
   U32 const n_;
};

class KEL_API Keeper : public Kel::PtrInterface {
 public:
   KEL_OBJECT( Keeper )

   Ptr< Own > own;
   Ptr< Node > node;
};

class KEL_API Gate : public Kel::PtrInterface {
 public:
   KEL_OBJECT( Gate )
};

class KEL_API SubGate : public Gate {
 public:
   KEL_OBJECT( SubGate )
};

// An attribute with the name that a collection's function for new members has in Python.
class KEL_API Clash : public Kel::PtrInterface {
 public:
   KEL_OBJECT( Clash )

   Acme::Store::StockItems entry;
   U32 newEntry = 0;
};

class KEL_API Board : public Kel::Entity {
 public:
   KEL_OBJECT( Board )

   using Marks = Kel::Map< String, U32 >;

   explicit Board( String name ) : Entity( std::move( name ) ) {}

   static Marks& registered();

   Marks mark;
};

} // namespace Odd
