// refused: an attribute's type is neither built in nor declared in a unit
#include <kel/Schema.h>

namespace Refused {

struct Unknown {};
struct Holder;
KEL_TYPES( _Refused_kelModule, Holder );
struct Holder {
   Unknown unknown;
};

KEL_UNIT( _Refused_kelModule, value< Holder >( attr< &Holder::unknown >( "unknown" ) ) )

} // namespace Refused
