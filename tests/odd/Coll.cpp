#include <odd/Coll.h>

#include <utility>

#include <kel/Exception.h>
#include <kel/Schema.h>

namespace Odd {

bool Blind::exist( String const& ) const {
   throw Kel::OpNotSupportedException( "exist" );
}

bool Brittle::exist( String const& ) const {
   throw Kel::InternalException( "exist" );
}

Brittle::Iterator Brittle::iterator() const {
   throw Kel::InternalException( "iterate" );
}

// The static collections are immortal: their members may not go after the runtime itself.
Coll::Counts& Coll::registry() {
   static auto* const registry = new Counts();
   return *registry;
}

Coll::Nodes& Coll::shared() {
   static auto* const shared = new Nodes();
   return *shared;
}

Coll::StockItems& Coll::fleet() {
   static auto* const fleet = new StockItems();
   return *fleet;
}

namespace {

char const* wordOf( Kel::AttributeOp op ) {
   using Op = Kel::AttributeOp;
   static constexpr std::pair< Op, char const* > words[] = {
      { Op::exist, "exist" },
      { Op::get, "get" },
      { Op::set, "set" },
      { Op::del, "del" },
      { Op::add, "add" },
      { Op::remove, "remove" },
      { Op::front, "front" },
      { Op::back, "back" },
      { Op::members, "members" },
      { Op::version, "version" },
      { Op::iterate, "iterate" },
   };
   for( auto const& [known, word] : words ) {
      if( known == op ) {
         return word;
      }
   }
   return "?";
}

} // namespace

void Coll::ran( Kel::AttributeOp op ) const {
   log_ += log_.empty() ? "" : " ";
   log_ += wordOf( op );
}

String Coll::log() const {
   return std::exchange( log_, std::string() );
}

KEL_UNIT( _Odd_Coll_kelModule,

   pointer< Coll >( collection< &Coll::slot >( "slot" ).observedBy< &Coll::ran >(),
      collection< &Coll::packed >( "packed" ).observedBy< &Coll::ran >(),
      collection< &Coll::pod >( "pod" ).observedBy< &Coll::ran >(),
      collection< &Coll::blind >( "blind" ).observedBy< &Coll::ran >(),
      collection< &Coll::node >( "node" ).indexedBy( "id" ).observedBy< &Coll::ran >(),
      collection< &Coll::part >( "part", asSet ).indexedBy( "name" ).observedBy< &Coll::ran >(),
      collection< &Coll::byNode >( "byNode" ).observedBy< &Coll::ran >(),
      collection< &Coll::size >( "size" ).observedBy< &Coll::ran >(),
      collection< &Coll::maybe >( "maybe" ).observedBy< &Coll::ran >(),
      collection< &Coll::text >( "text" ).observedBy< &Coll::ran >(),
      collection< &Coll::track >( "track" ).observedBy< &Coll::ran >(),
      collection< &Coll::line >( "line" ).observedBy< &Coll::ran >(),
      collection< &Coll::pile >( "pile" ).observedBy< &Coll::ran >(),
      collection< &Coll::registry >( "registry" ),
      collection< &Coll::shared >( "shared" ).indexedBy( "id" ),
      collection< &Coll::fleet >( "fleet", args( arg< String >( "sku" ), arg< U32 >( "count" ) ) )
         .indexedBy( "sku" ),
      collection< &Coll::intake >( "intake", args( arg< String >( "sku" ), arg< U32 >( "count" ) ) )
         .observedBy< &Coll::ran >(),
      collection< &Coll::brittle >( "brittle" ).observedBy< &Coll::ran >(),
      function< &Coll::log >( "log" ) ) )

} // namespace Odd
