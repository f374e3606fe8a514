#include <odd/Node.h>

#include <algorithm>
#include <atomic>

#include <kel/Exception.h>
#include <kel/Schema.h>

namespace Odd {

namespace {
constinit std::atomic< U32 > liveNodes = 0;
} // namespace

Node::Node( U32 id ) : id_( id ) {
   ++liveNodes;
}

Node::~Node() {
   rawNextIs( nullptr );
   for( Node* referrer : rawReferrers_ ) {
      referrer->rawNext_ = nullptr;
   }
   --liveNodes;
}

void Node::rawNextIs( Node* node ) {
   if( rawNext_ ) {
      std::erase( rawNext_->rawReferrers_, this );
   }
   rawNext_ = node;
   if( node ) {
      node->rawReferrers_.push_back( this );
   }
}

U32 Node::live() {
   return liveNodes;
}

Ptr< Node > Node::make( String kind, U32 id ) {
   if( kind == "none" ) {
      return nullptr;
   }
   return kind == "special" ? Kel::newObject< SpecialNode >( id ) : Kel::newObject< Node >( id );
}

Ptr< Vehicle > Vehicle::make( String kind ) {
   return kind == "car" ? Kel::newObject< Car >() : Kel::newObject< Vehicle >();
}

Own::~Own() = default;

Refuser::Refuser( U32 n ) : n_( n ) {
   if( n > 9 ) {
      throw Kel::RangeException( "refused" );
   }
}

// Immortal, since objects in it may not outlive the runtime's own.
Board::Marks& Board::registered() {
   static auto* const marks = new Marks();
   return *marks;
}

KEL_UNIT( _Odd_Node_kelModule,

   pointer< Node >( args( arg< U32 >( "id" ) ), attr< &Node::id >( "id", immutable ),
      attr< &Node::next >( "next" ), attr< &Node::constNext >( "constNext" ),
      attr< &Node::rawNext, &Node::rawNextIs >( "rawNext" ), attr< &Node::value >( "value" ),
      function< &Node::bump >( "bump" ), function< &Node::peek >( "peek" ),
      function< &Node::references >( "references" ), attr< &Node::live >( "live" ),
      function< &Node::make >( "make", "kind", "id" ) ),
   pointer< SpecialNode, Node >(
      args( arg< U32 >( "id" ) ), attr< &SpecialNode::extra >( "extra" ) ),

   pointer< Vehicle >( madeBy< &Vehicle::make >( arg< String >( "kind" ) ) ),
   pointer< Car, Vehicle >(),

   pointer< PtrDefault >( attr< &PtrDefault::value >( "value" ),
      attr< &PtrDefault::defaultAttribute >( "defaultAttribute" ) ),
   pointer< Own >( attr< &Own::n >( "n" ) ),
   pointer< Link >( args( arg< Ptr< Node > >( "node" ), arg< Acme::Color >( "color" ) ),
      attr< &Link::node >( "node" ), attr< &Link::color >( "color" ) ),
   pointer< Refuser >( args( arg< U32 >( "n" ) ), attr< &Refuser::n >( "n" ) ),
   pointer< Keeper >( attr< &Keeper::own >( "own" ), attr< &Keeper::node >( "node" ) ),

   pointer< Gate >().with( isConstrainer ), pointer< SubGate, Gate >().with( isConstrainer ),

   pointer< Clash >(
      collection< &Clash::entry >( "entry", args( arg< String >( "sku" ), arg< U32 >( "count" ) ) )
         .indexedBy( "sku" ),
      attr< &Clash::newEntry >( "newEntry" ) ),

   entity< Board, Kel::Entity >( args( arg< String >( "name" ) ),
      collection< &Board::mark >( "mark" ), collection< &Board::registered >( "register" ) ) )

} // namespace Odd
