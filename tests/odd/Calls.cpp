#include <odd/Calls.h>

#include <new>
#include <stdexcept>

#include <kel/Exception.h>
#include <kel/Schema.h>

namespace Odd {

S64 Args::nine( S32 a, S32 b, S32 c, S32 d, S32 e, S32 f, S32 g, S32 h, S32 i ) const {
   return S64( a ) + b + c + d + e + f + g + h + i;
}

Ptr< Node > Args::many( Ptr< Node > n, S32, S32, S32, S32, S32, S32, S32, S32 ) const {
   return n;
}

namespace {

struct Fault {
   char const* kind;
   void ( *raise )( String const& text );
};

template< class E >
void raiseFault( String const& text ) {
   throw E( text );
}

constexpr Fault faults[] = {
   { "Kel::Exception", raiseFault< Kel::Exception > },
   { "Kel::NoTypeNodeException", raiseFault< Kel::NoTypeNodeException > },
   { "Kel::TypeException", raiseFault< Kel::TypeException > },
   { "Kel::IllegalNameException", raiseFault< Kel::IllegalNameException > },
   { "Kel::NameInUseException", raiseFault< Kel::NameInUseException > },
   { "Kel::ConstException", raiseFault< Kel::ConstException > },
   { "Kel::NondeletableAttrException", raiseFault< Kel::NondeletableAttrException > },
   { "Kel::NoImplementationException", raiseFault< Kel::NoImplementationException > },
   { "Kel::RpcException", raiseFault< Kel::RpcException > },
   { "Kel::RpcConnectionException", raiseFault< Kel::RpcConnectionException > },
   { "Kel::RangeException", raiseFault< Kel::RangeException > },
   { "Kel::ErrnoException", []( String const& text ) { throw Kel::ErrnoException( 5, text ); } },
   { "Kel::MemoryException", raiseFault< Kel::MemoryException > },
   { "Kel::InternalException", raiseFault< Kel::InternalException > },
   { "Kel::OpNotSupportedException", raiseFault< Kel::OpNotSupportedException > },
   { "std::runtime_error",
      []( String const& text ) { throw std::runtime_error( text.stdString() ); } },
   { "std::bad_alloc", []( String const& ) { throw std::bad_alloc(); } },
   { "int", []( String const& ) { throw 7; } },
};

} // namespace

void Faults::fail( String kind, String text ) const {
   for( auto const& fault : faults ) {
      if( kind == fault.kind ) {
         fault.raise( text );
      }
   }
   throw Kel::TypeException( Kel::_fmt( "'%s' is no kind of exception", kind.charPtr() ) );
}

void Faults::failErrno( S32 number, String text ) const {
   throw Kel::ErrnoException( number, text );
}

void Faults::failTraced( String text ) const {
   throw Kel::withBacktrace( Kel::RangeException( text ) );
}

U32 Faults::bad() const {
   throw Kel::InternalException( "read" );
}

void Faults::badIs( U32 ) {
   throw Kel::ConstException( "write" );
}

KEL_UNIT( _Odd_Calls_kelModule,

   pointer< Args >( function< &Args::none >( "none" ), function< &Args::one >( "one", "a" ),
      function< &Args::nine >( "nine", "a", "b", "c", "d", "e", "f", "g", "h", "i" ),
      function< &Args::opt >( "opt", "a" ), function< &Args::size >( "size", "s" ),
      function< &Args::node >( "node", "n" ), function< &Args::pyText >( "pyText", "t" ),
      function< &Args::many >( "many", "n", "b", "c", "d", "e", "f", "g", "h", "i" ),
      function< &Args::keep >( "keep", "n" ), function< &Args::kept >( "kept" ),
      function< &Args::poke >( "poke" ).with( invasive ),
      function< &Args::unknown >( "unknown", "x" ) ),

   pointer< Faults >( function< &Faults::fail >( "fail", "kind", "text" ),
      function< &Faults::failErrno >( "failErrno", "number", "text" ),
      function< &Faults::failTraced >( "failTraced", "text" ),
      attr< &Faults::bad, &Faults::badIs >( "bad" ) ) )

} // namespace Odd
