// refused: the unit's declarations must stand in the order of its KEL_TYPES list
#include <kel/Schema.h>

namespace Refused {

struct A {
   Kel::U32 x;
};
struct B {
   Kel::U32 x;
};
KEL_TYPES( _Refused_kelModule, A, B );

KEL_UNIT(
   _Refused_kelModule, value< B >( attr< &B::x >( "x" ) ), value< A >( attr< &A::x >( "x" ) ) )

} // namespace Refused
