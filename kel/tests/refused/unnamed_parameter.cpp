// refused: a function attribute needs a name for each parameter
#include <kel/Schema.h>

namespace Refused {

class Adder;
KEL_TYPES( _Refused_kelModule, Adder );

class Adder : public Kel::PtrInterface {
 public:
   KEL_OBJECT( Adder )

   Kel::U32 add( Kel::U32 a, Kel::U32 b ) { return a + b; }
};

KEL_UNIT( _Refused_kelModule, pointer< Adder >( function< &Adder::add >( "add", "a" ) ) )

} // namespace Refused
