// What a hand-written extension would cost that follows the same two locks: the GIL released, an
// error-checking mutex taken, one virtual call, the GIL taken back, the value converted, the mutex
// released last. `Thing` makes one turn of the locks for each operation; `SameTurns` makes as many
// as the operations of _Kel do, which convert a value with the GIL under the activity lock and let
// go of objects under it.
#include <Python.h>

#include <pthread.h>

#include <cstdlib>
#include <string>

namespace {

pthread_mutex_t mutex = PTHREAD_ERRORCHECK_MUTEX_INITIALIZER_NP;

class Model {
 public:
   virtual ~Model() = default;
   virtual unsigned level() const { return level_; }
   virtual void levelIs( unsigned level ) { level_ = level; }
   virtual std::string const& text() const { return text_; }
   virtual void textIs( std::string text ) { text_ = std::move( text ); }

   Model* next = nullptr;

 private:
   unsigned level_ = 1;
   std::string text_ = "a text of some length";
};

struct FloorObject {
   PyObject_HEAD
   Model* model;
   bool owns;
};

Model* modelOf( PyObject* self ) {
   return reinterpret_cast< FloorObject* >( self )->model;
}

// The GIL released and the mutex held, then, from gilIsBack() on, both; the mutex goes last.
class Turn {
 public:
   Turn() : state_( PyEval_SaveThread() ), owns_( pthread_mutex_lock( &mutex ) == 0 ) {}
   ~Turn() {
      if( owns_ ) {
         pthread_mutex_unlock( &mutex );
      }
      if( state_ ) {
         PyEval_RestoreThread( state_ );
      }
   }
   void gilIsBack() {
      PyEval_RestoreThread( state_ );
      state_ = nullptr;
   }

 private:
   PyThreadState* state_;
   bool owns_;
};

PyObject* level_get( PyObject* self, void* ) {
   Turn turn;
   unsigned level = modelOf( self )->level();
   turn.gilIsBack();
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
   PyGILState_STATE state = PyGILState_Ensure();
   long level;
   bool fits = asLevel( value, level );
   PyGILState_Release( state );
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

int text_set( PyObject* self, PyObject* value, void* ) {
   if( !value || !PyString_Check( value ) ) {
      PyErr_SetString( PyExc_TypeError, "expected a str" );
      return -1;
   }
   std::string text( PyString_AS_STRING( value ), PyString_GET_SIZE( value ) );
   Turn turn;
   modelOf( self )->textIs( std::move( text ) );
   return 0;
}

int text_set_same_turns( PyObject* self, PyObject* value, void* ) {
   Turn turn;
   PyGILState_STATE state = PyGILState_Ensure();
   bool fits = value && PyString_Check( value );
   std::string text =
      fits ? std::string( PyString_AS_STRING( value ), PyString_GET_SIZE( value ) ) : std::string();
   if( !fits ) {
      PyErr_SetString( PyExc_TypeError, "expected a str" );
   }
   PyGILState_Release( state );
   if( fits ) {
      modelOf( self )->textIs( std::move( text ) );
   }
   return fits ? 0 : -1;
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
   Model* next = modelOf( self )->next;
   turn.gilIsBack();
   return wrap( Py_TYPE( self ), next, false );
}

PyObject* floor_new( PyTypeObject* type, PyObject* args, PyObject* ) {
   char const* text = "a text of some length";
   unsigned level = 1;
   if( !PyArg_ParseTuple( args, "|sI", &text, &level ) ) {
      return nullptr;
   }
   Turn turn;
   auto* model = new Model();
   model->next = model;
   model->textIs( text );
   model->levelIs( level );
   turn.gilIsBack();
   return wrap( type, model, true );
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
   { literal( "level" ), level_get, level_set, nullptr, nullptr },
   { literal( "text" ), text_get, text_set, nullptr, nullptr },
   { literal( "next" ), next_get, nullptr, nullptr, nullptr },
   { nullptr, nullptr, nullptr, nullptr, nullptr },
};
PyGetSetDef sameTurns[] = {
   { literal( "level" ), level_get, level_set_same_turns, nullptr, nullptr },
   { literal( "text" ), text_get, text_set_same_turns, nullptr, nullptr },
   { literal( "next" ), next_get, nullptr, nullptr, nullptr },
   { nullptr, nullptr, nullptr, nullptr, nullptr },
};

PyTypeObject* newType( char const* name, PyGetSetDef* getset, destructor dealloc ) {
   auto* type = static_cast< PyTypeObject* >( std::calloc( 1, sizeof( PyTypeObject ) ) );
   Py_REFCNT( type ) = 1;
   type->tp_name = name;
   type->tp_basicsize = sizeof( FloorObject );
   type->tp_flags = Py_TPFLAGS_DEFAULT;
   type->tp_getset = getset;
   type->tp_new = floor_new;
   type->tp_dealloc = dealloc;
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

} // namespace

extern "C" __attribute__( ( visibility( "default" ) ) ) void initkel_floor() {
   PyEval_InitThreads();
   PyObject* module = Py_InitModule( "kel_floor", functions );
   if( module ) {
      addType( module, "Thing", newType( "kel_floor.Thing", oneTurn, floor_dealloc ) );
      addType( module, "SameTurns",
         newType( "kel_floor.SameTurns", sameTurns, floor_dealloc_same_turns ) );
   }
}
