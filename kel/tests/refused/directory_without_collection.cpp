// refused: the third own attribute of a directory type must be a keyed collection
#include <kel/Dir.h>
#include <kel/Schema.h>

namespace Refused {

class Shelf;
KEL_TYPES( _Refused_kelModule, Shelf );

class Shelf : public Kel::Dir {
 public:
   KEL_OBJECT( Shelf )

   using Kel::Dir::Dir;
   Kel::U32 width, height, depth;
};

KEL_UNIT(
   _Refused_kelModule, entity< Shelf, Kel::Dir >( args( arg< Kel::String >( "name" ) ),
                          attr< &Shelf::width >( "width" ), attr< &Shelf::height >( "height" ),
                          attr< &Shelf::depth >( "depth" ) ) )

} // namespace Refused
