// refused: a declared base must not be virtual
#include <kel/Schema.h>

namespace Refused {

class Base;
class Derived;

KEL_TYPES( _Refused_kelModule, Base, Derived );

class Base : public Kel::PtrInterface {
 public:
   KEL_OBJECT( Base )
};

class Derived : public virtual Base {
 public:
   KEL_OBJECT( Derived )
};

KEL_UNIT( _Refused_kelModule, pointer< Base >(), pointer< Derived, Base >() )

} // namespace Refused
