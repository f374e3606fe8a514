// COUNT classes of 20 attributes.
#include "Peer.h"

#include <utility>

#include <pybind11/pybind11.h>

namespace py = pybind11;

namespace {

using Bench::Made;

template< int i >
void addClass( py::module_& module ) {
   using M = Made< i >;
   static std::string const name = "Made" + std::to_string( i );
   py::class_< M >( module, name.c_str() )
      .def_readwrite( "a0", &M::a0 )
      .def_readwrite( "a1", &M::a1 )
      .def_readwrite( "a2", &M::a2 )
      .def_readwrite( "a3", &M::a3 )
      .def_readwrite( "a4", &M::a4 )
      .def_readwrite( "a5", &M::a5 )
      .def_readwrite( "a6", &M::a6 )
      .def_readwrite( "a7", &M::a7 )
      .def_readwrite( "a8", &M::a8 )
      .def_readwrite( "a9", &M::a9 )
      .def_readwrite( "b0", &M::b0 )
      .def_readwrite( "b1", &M::b1 )
      .def_readwrite( "b2", &M::b2 )
      .def_readwrite( "b3", &M::b3 )
      .def_readwrite( "b4", &M::b4 )
      .def_readwrite( "b5", &M::b5 )
      .def_readwrite( "b6", &M::b6 )
      .def_readwrite( "b7", &M::b7 )
      .def_readwrite( "b8", &M::b8 )
      .def_readwrite( "b9", &M::b9 );
}

template< int... i >
void addClasses( py::module_& module, std::integer_sequence< int, i... > ) {
   ( addClass< i >( module ), ... );
}

} // namespace

PYBIND11_MODULE( MODULE, module ) {
   addClasses( module, std::make_integer_sequence< int, COUNT >() );
}
