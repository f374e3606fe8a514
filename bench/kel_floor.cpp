// What a hand-written extension would cost that follows the same two locks: the GIL released, an
// error-checking mutex taken, one virtual call, the GIL taken back, the value converted, the mutex
// released last. `Thing` makes one turn of the locks for each operation; `SameTurns` makes as many
// as the operations of _Kel do, which convert a value with the GIL under the activity lock and let
// go of objects under it.
#include "Model.h"
#include "Turn.h"

#include <cstdlib>
#include <string>

namespace {

using Bench::Model;

struct FloorObject {
   PyObject_HEAD
   Model* model;
   bool owns;
};

Model* modelOf( PyObject* self ) {
   return reinterpret_cast< FloorObject* >( self )->model;
}

PyObject* level_get( PyObject* self, void* ) {
   Turn turn;
   unsigned level = modelOf( self )->level();
   turn.gilIsBack();
   return PyInt_FromLong( level );
}

// The same without a lock, with the mutex alone, and with a turn of the GIL alone.
PyObject* level_get_bare( PyObject* self, void* ) {
   return PyInt_FromLong( modelOf( self )->level() );
}

PyObject* level_get_mutex( PyObject* self, void* ) {
   pthread_mutex_lock( &turnMutex );
   PyObject* const level = PyInt_FromLong( modelOf( self )->level() );
   pthread_mutex_unlock( &turnMutex );
   return level;
}

PyObject* level_get_gil( PyObject* self, void* ) {
   PyThreadState* const state = PyEval_SaveThread();
   unsigned const level = modelOf( self )->level();
   PyEval_RestoreThread( state );
   return PyInt_FromLong( level );
}

bool asLevel( PyObject* value, long& level ) {
   if( !value || !PyInt_CheckExact( value ) ) {
      PyErr_SetString( PyExc_TypeError, "expected an int" );
      return false;
   }
   level = PyInt_AS_LONG( value );
   if( level < 0 || level > 0xffffffffl ) {
      PyErr_SetString( PyExc_TypeError, "out of range" );
      return false;
   }
   return true;
}

int level_set( PyObject* self, PyObject* value, void* ) {
   long level;
   if( !asLevel( value, level ) ) {
      return -1;
   }
   Turn turn;
   modelOf( self )->levelIs( static_cast< unsigned >( level ) );
   return 0;
}

// Converts under the mutex, with a second turn of the GIL.
int level_set_same_turns( PyObject* self, PyObject* value, void* ) {
   Turn turn;
   long level;
   bool fits = turn.withGil( [&] { return asLevel( value, level ); } );
   if( fits ) {
      modelOf( self )->levelIs( static_cast< unsigned >( level ) );
   }
   return fits ? 0 : -1;
}

PyObject* text_get( PyObject* self, void* ) {
   Turn turn;
   std::string text = modelOf( self )->text();
   turn.gilIsBack();
   return PyString_FromStringAndSize( text.data(), text.size() );
}

bool asText( PyObject* value, std::string& text ) {
   if( !value || !PyString_Check( value ) ) {
      PyErr_SetString( PyExc_TypeError, "expected a str" );
      return false;
   }
   text.assign( PyString_AS_STRING( value ), PyString_GET_SIZE( value ) );
   return true;
}

int text_set( PyObject* self, PyObject* value, void* ) {
   std::string text;
   if( !asText( value, text ) ) {
      return -1;
   }
   Turn turn;
   modelOf( self )->textIs( std::move( text ) );
   return 0;
}

int text_set_same_turns( PyObject* self, PyObject* value, void* ) {
   Turn turn;
   std::string text;
   bool fits = turn.withGil( [&] { return asText( value, text ); } );
   if( fits ) {
      modelOf( self )->textIs( std::move( text ) );
   }
   return fits ? 0 : -1;
}

// The name of an enum's constant.
PyObject* color_get( PyObject* self, void* ) {
   static PyObject* const names[] = { PyString_InternFromString( "red" ),
      PyString_InternFromString( "blue" ) };
   Turn turn;
   auto const color = static_cast< unsigned >( modelOf( self )->color() );
   turn.gilIsBack();
   Py_INCREF( names[color] );
   return names[color];
}

PyObject* floor_add( PyObject* self, PyObject* args ) {
   int a, b;
   if( !PyArg_ParseTuple( args, "ii", &a, &b ) ) {
      return nullptr;
   }
   Turn turn;
   int sum = modelOf( self )->add( a, b );
   turn.gilIsBack();
   return PyInt_FromLong( sum );
}

PyObject* floor_add_same_turns( PyObject* self, PyObject* args ) {
   Turn turn;
   int a, b;
   if( !turn.withGil( [&] { return PyArg_ParseTuple( args, "ii", &a, &b ); } ) ) {
      return nullptr;
   }
   int sum = modelOf( self )->add( a, b );
   turn.gilIsBack();
   return PyInt_FromLong( sum );
}

PyObject* wrap( PyTypeObject* type, Model* model, bool owns ) {
   PyObject* self = type->tp_alloc( type, 0 );
   if( self ) {
      reinterpret_cast< FloorObject* >( self )->model = model;
      reinterpret_cast< FloorObject* >( self )->owns = owns;
   }
   return self;
}

PyObject* next_get( PyObject* self, void* ) {
   Turn turn;
   Model* next = modelOf( self )->next();
   turn.gilIsBack();
   return wrap( Py_TYPE( self ), next, false );
}

PyObject* floor_new( PyTypeObject* type, PyObject* args, PyObject* ) {
   char const* text = Bench::someText;
   unsigned level = 1;
   if( !PyArg_ParseTuple( args, "|sI", &text, &level ) ) {
      return nullptr;
   }
   Turn turn;
   auto* model = new Model( text, level );
   turn.gilIsBack();
   return wrap( type, model, true );
}

// By the address, without either lock, as _Kel compares.
PyObject* floor_richcompare( PyObject* self, PyObject* other, int op ) {
   if( Py_TYPE( self )->tp_richcompare != Py_TYPE( other )->tp_richcompare ||
       ( op != Py_EQ && op != Py_NE ) ) {
      Py_INCREF( Py_NotImplemented );
      return Py_NotImplemented;
   }
   return PyBool_FromLong( ( modelOf( self ) == modelOf( other ) ) == ( op == Py_EQ ) );
}

long floor_hash( PyObject* self ) {
   Turn turn;
   return static_cast< long >( modelOf( self )->hash() );
}

PyObject* floor_repr( PyObject* self ) {
   Turn turn;
   std::string const text = modelOf( self )->describe();
   turn.gilIsBack();
   return PyString_FromStringAndSize( text.data(), text.size() );
}

void letGo( PyObject* self ) {
   if( reinterpret_cast< FloorObject* >( self )->owns ) {
      delete modelOf( self );
   }
}

void floor_dealloc( PyObject* self ) {
   letGo( self );
   Py_TYPE( self )->tp_free( self );
}

void floor_dealloc_same_turns( PyObject* self ) {
   {
      Turn turn;
      letGo( self );
   }
   Py_TYPE( self )->tp_free( self );
}

char* literal( char const* text ) {
   return const_cast< char* >( text );
}

PyGetSetDef oneTurn[] = {
   { literal( "bareLevel" ), level_get_bare, nullptr, nullptr, nullptr },
   { literal( "mutexLevel" ), level_get_mutex, nullptr, nullptr, nullptr },
   { literal( "gilLevel" ), level_get_gil, nullptr, nullptr, nullptr },
   { literal( "level" ), level_get, level_set, nullptr, nullptr },
   { literal( "text" ), text_get, text_set, nullptr, nullptr },
   { literal( "next" ), next_get, nullptr, nullptr, nullptr },
   { literal( "color" ), color_get, nullptr, nullptr, nullptr },
   { nullptr, nullptr, nullptr, nullptr, nullptr },
};
PyGetSetDef sameTurns[] = {
   { literal( "level" ), level_get, level_set_same_turns, nullptr, nullptr },
   { literal( "text" ), text_get, text_set_same_turns, nullptr, nullptr },
   { literal( "next" ), next_get, nullptr, nullptr, nullptr },
   { literal( "color" ), color_get, nullptr, nullptr, nullptr },
   { nullptr, nullptr, nullptr, nullptr, nullptr },
};

PyMethodDef oneTurnMethods[] = {
   { "add", floor_add, METH_VARARGS, nullptr },
   { nullptr, nullptr, 0, nullptr },
};
PyMethodDef sameTurnsMethods[] = {
   { "add", floor_add_same_turns, METH_VARARGS, nullptr },
   { nullptr, nullptr, 0, nullptr },
};

PyTypeObject* newType( char const* name, PyGetSetDef* getset, destructor dealloc,
   PyMethodDef* methods = nullptr, PyTypeObject* base = nullptr ) {
   auto* type = static_cast< PyTypeObject* >( std::calloc( 1, sizeof( PyTypeObject ) ) );
   Py_REFCNT( type ) = 1;
   type->tp_name = name;
   type->tp_basicsize = sizeof( FloorObject );
   type->tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE;
   type->tp_getset = getset;
   type->tp_methods = methods;
   type->tp_base = base;
   type->tp_new = floor_new;
   type->tp_dealloc = dealloc;
   type->tp_richcompare = floor_richcompare;
   type->tp_hash = floor_hash;
   type->tp_repr = floor_repr;
   return PyType_Ready( type ) < 0 ? nullptr : type;
}

// A class of 20 attributes, written by hand: what making such a class costs.
PyObject* newClass( PyObject*, PyObject* ) {
   static char const* const names[] = { "a0", "a1", "a2", "a3", "a4", "a5", "a6", "a7", "a8", "a9",
      "b0", "b1", "b2", "b3", "b4", "b5", "b6", "b7", "b8", "b9" };
   auto* getset = static_cast< PyGetSetDef* >( std::calloc( 21, sizeof( PyGetSetDef ) ) );
   for( int i = 0; i < 20; ++i ) {
      getset[i].name = literal( names[i] );
      getset[i].get = level_get;
      getset[i].set = level_set;
   }
   auto* type = reinterpret_cast< PyObject* >( newType( "kel_floor.Made", getset, floor_dealloc ) );
   Py_XINCREF( type );
   return type;
}

PyMethodDef functions[] = {
   { "newClass", newClass, METH_NOARGS, "A new class of 20 attributes." },
   { nullptr, nullptr, 0, nullptr },
};

void addType( PyObject* module, char const* name, PyTypeObject* type ) {
   if( type ) {
      PyModule_AddObject( module, name, reinterpret_cast< PyObject* >( type ) );
   }
}

// Deep2 to Deep12, each derived from the one before, the first from `type`.
void addDeep( PyObject* module, PyTypeObject* type ) {
   static char const* const names[] = { "kel_floor.Deep2", "kel_floor.Deep3", "kel_floor.Deep4",
      "kel_floor.Deep5", "kel_floor.Deep6", "kel_floor.Deep7", "kel_floor.Deep8", "kel_floor.Deep9",
      "kel_floor.Deep10", "kel_floor.Deep11", "kel_floor.Deep12" };
   for( char const* name : names ) {
      type = newType( name, nullptr, floor_dealloc, nullptr, type );
      addType( module, name + sizeof "kel_floor", type );
   }
}

} // namespace

extern "C" __attribute__( ( visibility( "default" ) ) ) void initkel_floor() {
   PyEval_InitThreads();
   PyObject* module = Py_InitModule( "kel_floor", functions );
   if( module ) {
      PyTypeObject* deep = newType( "kel_floor.Thing", oneTurn, floor_dealloc, oneTurnMethods );
      addType( module, "Thing", deep );
      addType( module, "SameTurns",
         newType( "kel_floor.SameTurns", sameTurns, floor_dealloc_same_turns, sameTurnsMethods ) );
      addDeep( module, deep );
   }
}
