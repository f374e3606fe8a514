// refused: an attribute name or id stands twice in one type
#include <kel/Schema.h>

namespace Refused {

struct Point;
KEL_TYPES( _Refused_kelModule, Point );
struct Point {
   Kel::U32 x, y;
};

KEL_UNIT( _Refused_kelModule, value< Point >( attr< &Point::x >( "x" ), attr< &Point::y >( "x" ) ) )

} // namespace Refused
