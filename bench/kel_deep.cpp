// Runtime types that derive from one another twelve deep, with one attribute, `level`, in the
// first: what inheritance costs.
#include <Python.h>

#include <utility>

#include <kel/Schema.h>

namespace Bench {

template< int depth >
class Deep;

KEL_TYPES( _Deep_0b1e_kelModule, Deep< 1 >, Deep< 2 >, Deep< 3 >, Deep< 4 >, Deep< 5 >, Deep< 6 >,
   Deep< 7 >, Deep< 8 >, Deep< 9 >, Deep< 10 >, Deep< 11 >, Deep< 12 > );

template< int depth >
class Deep : public Deep< depth - 1 > {
 public:
   KEL_OBJECT( Deep )
};

template<>
class Deep< 1 > : public Kel::PtrInterface {
 public:
   KEL_OBJECT( Deep )

   Kel::U32 level_ = 1;
};

KEL_UNIT( _Deep_0b1e_kelModule, pointer< Deep< 1 > >( attr< &Deep< 1 >::level_ >( "level" ) ),
   pointer< Deep< 2 >, Deep< 1 > >(), pointer< Deep< 3 >, Deep< 2 > >(),
   pointer< Deep< 4 >, Deep< 3 > >(), pointer< Deep< 5 >, Deep< 4 > >(),
   pointer< Deep< 6 >, Deep< 5 > >(), pointer< Deep< 7 >, Deep< 6 > >(),
   pointer< Deep< 8 >, Deep< 7 > >(), pointer< Deep< 9 >, Deep< 8 > >(),
   pointer< Deep< 10 >, Deep< 9 > >(), pointer< Deep< 11 >, Deep< 10 > >(),
   pointer< Deep< 12 >, Deep< 11 > >() )

} // namespace Bench

extern "C" __attribute__( ( visibility( "default" ) ) ) void initkel_deep() {
   Py_InitModule( "kel_deep", nullptr );
}
