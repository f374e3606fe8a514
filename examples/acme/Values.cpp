#include <acme/Values.h>

#include <kel/Exception.h>

namespace Acme {

U32 Size::divisor() const {
   if( !value_ ) {
      throw Kel::RangeException( "division by zero" );
   }
   return value_;
}

// Some callers keep the low half alone, which tells points of every x apart for that.
std::uint64_t Point::hash() const {
   return U32( x ) * std::uint64_t( 0x9e3779b97f4a7c15 ) + U32( y );
}

} // namespace Acme
