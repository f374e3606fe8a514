// refused: indexedBy names an attribute that the member type does not have
#include <kel/Schema.h>

namespace Refused {

class Part;
class Box;
KEL_TYPES( _Refused_kelModule, Part, Box );

class Part : public Kel::PtrInterface {
 public:
   KEL_OBJECT( Part )

   Kel::String id() const { return "part"; }
};

class Box : public Kel::PtrInterface {
 public:
   KEL_OBJECT( Box )

   Kel::PtrMap< Kel::Ptr< Part >, &Part::id > part;
};

KEL_UNIT( _Refused_kelModule, pointer< Part >( attr< &Part::id >( "id" ) ),
   pointer< Box >( collection< &Box::part >( "part" ).indexedBy( "name" ) ) )

} // namespace Refused
