// The peer of pybind11. Each function makes its turn of the locks by hand, so that the conversion
// of the result too is made under both.
#include "Peer.h"

#include <pybind11/pybind11.h>

namespace py = pybind11;

namespace {

using Bench::Color;
using Bench::Deep;
using Bench::Model;
using Bench::Point;
using Bench::Prices;

py::bytes bytes( std::string const& text ) {
   return py::bytes( text );
}

// Calls under the mutex, then converts with the GIL as well.
template< class Call, class Convert >
auto turned( Call call, Convert convert ) {
   Turn turn;
   auto result = call();
   turn.gilIsBack();
   return convert( result );
}

template< class T >
T same( T value ) {
   return value;
}

struct Collection {
   Prices* prices;
};

struct Walk {
   Prices* prices;
   Prices::Position at;
};

unsigned look( Collection& self, std::string const& key ) {
   Turn turn;
   unsigned const* const at = self.prices->find( key );
   unsigned const price = at ? *at : 0;
   turn.gilIsBack();
   if( !at ) {
      throw py::key_error( key );
   }
   return price;
}

py::bytes step( Walk& self ) {
   Turn turn;
   std::string const* const at = self.prices->step( self.at );
   std::string const key = at ? *at : std::string();
   turn.gilIsBack();
   if( !at ) {
      throw py::stop_iteration();
   }
   return bytes( key );
}

void addThing( py::module_& module ) {
   py::enum_< Color >( module, "Color" ).value( "red", Color::red ).value( "blue", Color::blue );
   py::class_< Model >( module, "Thing" )
      .def( py::init( []( std::string const& text, unsigned level ) {
         return turned( [&] { return new Model( text, level ); }, same< Model* > );
      } ),
         py::arg( "text" ) = Bench::someText, py::arg( "level" ) = 1 )
      .def_property(
         "level",
         []( Model& self ) { return turned( [&] { return self.level(); }, same< unsigned > ); },
         []( Model& self, unsigned level ) {
            Turn const turn;
            self.levelIs( level );
         } )
      .def_property(
         "text", []( Model& self ) { return turned( [&] { return self.text(); }, bytes ); },
         []( Model& self, std::string text ) {
            Turn const turn;
            self.textIs( std::move( text ) );
         } )
      .def_property_readonly( "color",
         []( Model& self ) { return turned( [&] { return self.color(); }, same< Color > ); } )
      .def_property_readonly(
         "next",
         []( Model& self ) { return turned( [&] { return self.next(); }, same< Model* > ); },
         py::return_value_policy::reference )
      .def( "add", []( Model& self, int a,
                      int b ) { return turned( [&] { return self.add( a, b ); }, same< int > ); } )
      .def( "__eq__", []( Model& self, Model& other ) { return &self == &other; } )
      .def( "__hash__",
         []( Model& self ) { return turned( [&] { return self.hash(); }, same< std::size_t > ); } )
      .def( "__repr__",
         []( Model& self ) { return turned( [&] { return self.describe(); }, bytes ); } );
   py::class_< Deep< 2 >, Model >( module, "Deep2" );
   py::class_< Deep< 3 >, Deep< 2 > >( module, "Deep3" );
   py::class_< Deep< 4 >, Deep< 3 > >( module, "Deep4" ).def( py::init<>() );
}

// Objects to be wrapped: of one object pybind11 never makes a second wrapper.
struct Things {
   explicit Things( int size ) : models( static_cast< std::size_t >( size ) ) {
      for( auto& model : models ) {
         model = std::make_unique< Model >();
      }
   }

   std::vector< std::unique_ptr< Model > > models;
};

void addThings( py::module_& module ) {
   py::class_< Things >( module, "Things" )
      .def( py::init< int >() )
      .def(
         "__getitem__",
         []( Things& self, std::size_t i ) {
            return turned( [&] { return self.models.at( i ).get(); }, same< Model* > );
         },
         py::return_value_policy::reference );
}

void addPoint( py::module_& module ) {
   py::class_< Point >( module, "Point" )
      .def( py::init< int, int >(), py::call_guard< Turn >() )
      .def( "__add__", []( Point& self, Point& other ) {
         return turned( [&] { return self.plus( other ); }, same< Point* > );
      } );
}

void addPrices( py::module_& module ) {
   py::class_< Walk >( module, "Walk" )
      .def( "__iter__", []( py::object self ) { return self; } )
      .def( "next", step );
   py::class_< Collection >( module, "Collection" )
      .def( "__getitem__", look )
      .def(
         "__iter__",
         []( Collection& self ) {
            return turned(
               [&] {
                  return Walk{ self.prices, self.prices->begin() };
               },
               same< Walk > );
         },
         py::keep_alive< 0, 1 >() );
   py::class_< Prices >( module, "Owner" )
      .def( py::init<>() )
      .def( "fill", &Prices::fill )
      .def_property_readonly(
         "price", py::cpp_function( []( Prices& self ) { return Collection{ &self }; },
                     py::keep_alive< 0, 1 >() ) );
}

} // namespace

PYBIND11_MODULE( peer_pybind11, module ) {
   PyEval_InitThreads();
   addThing( module );
   addThings( module );
   addPoint( module );
   addPrices( module );
}
