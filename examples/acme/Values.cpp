#include <acme/Values.h>

#include <kel/Exception.h>

namespace Acme {

U32 Size::divisor() const {
   if( !value_ ) {
      throw Kel::RangeException( "division by zero" );
   }
   return value_;
}

std::uint64_t Point::hash() const {
   return std::hash< std::uint64_t >()( std::uint64_t( U32( x ) ) << 32 | U32( y ) );
}

} // namespace Acme
