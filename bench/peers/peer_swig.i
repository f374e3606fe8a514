// The peer of SWIG with its built-in types. The locks stand around each call and its conversion:
// %exception wraps the call, the typemap `ret` stands behind the conversion of the result.
%module peer_swig
%include <std_string.i>

%{
#include "Peer.h"

using namespace Bench;

// Attributes that are not members of the class: SWIG calls these by name. What returns nothing has
// nothing to convert, so its turn ends here.
unsigned Bench_Model_level_get( Model* self ) { return self->level(); }
std::string const& Bench_Model_text_get( Model* self ) { return self->text(); }
Color Bench_Model_color_get( Model* self ) { return self->color(); }
Model* Bench_Model_next_get( Model* self ) { return self->next(); }

void Bench_Model_level_set( Model* self, unsigned level ) {
   self->levelIs( level );
   unlockTurn();
}

void Bench_Model_text_set( Model* self, std::string const& text ) {
   self->textIs( text );
   unlockTurn();
}

struct Collection {
   Prices* prices;
};

struct Walk {
   Prices* prices;
   Prices::Position at;
};

Collection* Bench_Prices_price_get( Prices* self ) { return new Collection{ self }; }
%}

%init %{
   PyEval_InitThreads();
%}

%exception {
   PyThreadState* const gil = PyEval_SaveThread();
   lockTurn();
   $action
   PyEval_RestoreThread( gil );
}
%typemap(ret) SWIGTYPE, SWIGTYPE *, SWIGTYPE &, enum SWIGTYPE, bool, int, unsigned, long,
   std::string, std::string const &, std::string const *, unsigned const * "unlockTurn();"

// None at the end, as in the floor.
%exception Bench::Model::~Model "$action"
%exception Bench::Point::~Point "$action"
%exception Collection::~Collection "$action"
%exception Walk::~Walk "$action"
%exception Bench::Prices::~Prices "$action"
%exception Bench::Prices::fill "$action"

// A null pointer is what is not there.
%typemap(out) unsigned const * "$result = PyInt_FromSize_t( *$1 );"
%typemap(out) std::string const * "$result = SWIG_From_std_string( *$1 );"
%exception Collection::look {
   PyThreadState* const gil = PyEval_SaveThread();
   lockTurn();
   $action
   PyEval_RestoreThread( gil );
   if( !result ) {
      unlockTurn();
      PyErr_SetObject( PyExc_KeyError, swig_obj[0] );
      SWIG_fail;
   }
}
%exception Walk::step {
   PyThreadState* const gil = PyEval_SaveThread();
   lockTurn();
   $action
   PyEval_RestoreThread( gil );
   if( !result ) {
      unlockTurn();
      PyErr_SetNone( PyExc_StopIteration );
      SWIG_fail;
   }
}

%rename(Thing) Bench::Model;
%rename(Owner) Bench::Prices;
%feature( "python:slot", "tp_hash", functype = "hashfunc" ) Bench::Model::hash;
%feature( "python:slot", "tp_repr", functype = "reprfunc" ) Bench::Model::describe;
%feature( "python:slot", "nb_add", functype = "binaryfunc" ) Bench::Point::plus;
%feature( "python:slot", "mp_subscript", functype = "binaryfunc" ) Collection::look;
%feature( "python:slot", "tp_iter", functype = "getiterfunc" ) Collection::walk;
%feature( "python:slot", "tp_iter", functype = "getiterfunc" ) Walk::same;
%feature( "python:slot", "tp_iternext", functype = "iternextfunc" ) Walk::step;
%newobject Bench::Point::plus;
%newobject Bench::Prices::price;
%newobject Collection::walk;

namespace Bench {

enum class Color : unsigned char { red, blue };

class Model {
 public:
   Model( std::string text = "a text of some length", unsigned level = 1 );
   ~Model();
   int add( int a, int b ) const;
   long hash() const;
   std::string describe() const;
   %extend {
      unsigned level;
      std::string text;
      %immutable;
      Color color;
      Model* next;
      %mutable;
   }
};

class Point {
 public:
   Point( int x, int y );
   Point* plus( Point const& other ) const;
};

class Prices {
 public:
   void fill( int size );
   %extend {
      %immutable;
      Collection* price;
      %mutable;
   }
};

template< int > struct Deep;
template<> struct Deep< 1 > : Model {};
template<> struct Deep< 2 > : Deep< 1 > {};
template<> struct Deep< 3 > : Deep< 2 > {};
template<> struct Deep< 4 > : Deep< 3 > {};
%template(Deep1) Deep< 1 >;
%template(Deep2) Deep< 2 >;
%template(Deep3) Deep< 3 >;
%template(Deep4) Deep< 4 >;

}

struct Collection {
   %extend {
      unsigned const* look( std::string const& key ) { return self->prices->find( key ); }
      Walk* walk() { return new Walk{ self->prices, self->prices->begin() }; }
   }
};

struct Walk {
   %extend {
      std::string const* step() { return self->prices->step( self->at ); }
   }
};
