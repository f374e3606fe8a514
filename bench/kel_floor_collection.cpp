// The floor of a keyed collection: what reading `owner.price`, a look-up of a str, and a walk along
// the keys cost in a hand-written extension that makes one turn of the locks for each, or, in
// `SameTurns`, as many as _Kel does, which converts the key under the activity lock.
#include "Model.h"
#include "Turn.h"

#include <memory>
#include <string>

namespace {

using Bench::Prices;

struct Owner {
   PyObject_HEAD
   Prices* price;
};

struct Collection {
   PyObject_HEAD
   PyObject* owner;
};

struct Walk {
   PyObject_HEAD
   PyObject* owner;
   Prices::Position at;
};

template< class T >
T* as( PyObject* object ) {
   return reinterpret_cast< T* >( object );
}

Prices& priceOf( PyObject* owner ) {
   return *as< Owner >( owner )->price;
}

template< class T >
void ownerDropped( PyObject* self ) {
   Py_DECREF( as< T >( self )->owner );
   Py_TYPE( self )->tp_free( self );
}

PyObject* missing( PyObject* key ) {
   PyErr_SetObject( PyExc_KeyError, key );
   return nullptr;
}

bool asKey( PyObject* key, std::string& text ) {
   if( !PyString_Check( key ) ) {
      PyErr_SetString( PyExc_TypeError, "expected a str" );
      return false;
   }
   text.assign( PyString_AS_STRING( key ), PyString_GET_SIZE( key ) );
   return true;
}

PyObject* find( Turn& turn, PyObject* self, PyObject* key, std::string const& text ) {
   unsigned const* const at = priceOf( as< Collection >( self )->owner ).find( text );
   unsigned const value = at ? *at : 0;
   turn.gilIsBack();
   return at ? PyInt_FromLong( value ) : missing( key );
}

PyObject* subscript( PyObject* self, PyObject* key ) {
   std::string text;
   if( !asKey( key, text ) ) {
      return nullptr;
   }
   Turn turn;
   return find( turn, self, key, text );
}

PyObject* subscriptSameTurns( PyObject* self, PyObject* key ) {
   Turn turn;
   std::string text;
   if( !turn.withGil( [&] { return asKey( key, text ); } ) ) {
      return nullptr;
   }
   return find( turn, self, key, text );
}

bool asPrice( PyObject* value, unsigned& price ) {
   long const number = PyInt_Check( value ) ? PyInt_AS_LONG( value ) : -1;
   if( number < 0 || number > 0xffffffffl ) {
      PyErr_SetString( PyExc_TypeError, "expected an int in range" );
      return false;
   }
   price = static_cast< unsigned >( number );
   return true;
}

// Sets or, without a value, deletes; without the GIL. False for a key that is not there.
bool change( PyObject* self, std::string const& key, PyObject* value, unsigned price ) {
   Prices& prices = priceOf( as< Collection >( self )->owner );
   if( !value ) {
      return prices.erase( key );
   }
   prices.priceIs( key, price );
   return true;
}

int ass_subscript( PyObject* self, PyObject* key, PyObject* value ) {
   std::string text;
   unsigned price = 0;
   if( !asKey( key, text ) || ( value && !asPrice( value, price ) ) ) {
      return -1;
   }
   Turn turn;
   if( change( self, text, value, price ) ) {
      return 0;
   }
   turn.gilIsBack();
   missing( key );
   return -1;
}

int assSubscriptSameTurns( PyObject* self, PyObject* key, PyObject* value ) {
   Turn turn;
   std::string text;
   unsigned price = 0;
   if( !turn.withGil( [&] { return asKey( key, text ); } ) ||
       ( value && !turn.withGil( [&] { return asPrice( value, price ); } ) ) ) {
      return -1;
   }
   if( change( self, text, value, price ) ) {
      return 0;
   }
   turn.gilIsBack();
   missing( key );
   return -1;
}

PyObject* next( PyObject* self ) {
   Walk* const walk = as< Walk >( self );
   Turn turn;
   std::string const* const at = priceOf( walk->owner ).step( walk->at );
   if( !at ) {
      turn.gilIsBack();
      return nullptr;
   }
   std::string const key = *at;
   turn.gilIsBack();
   return PyString_FromStringAndSize( key.data(), key.size() );
}

PyTypeObject walkType = {
   .ob_refcnt = 1, .tp_name = "kel_floor_collection.Walk", .tp_basicsize = sizeof( Walk )
};

PyObject* iterate( PyObject* self ) {
   Turn turn;
   PyObject* const owner = as< Collection >( self )->owner;
   auto const begin = priceOf( owner ).begin();
   turn.gilIsBack();
   PyObject* const walk = walkType.tp_alloc( &walkType, 0 );
   if( walk ) {
      Py_INCREF( owner );
      as< Walk >( walk )->owner = owner;
      new( &as< Walk >( walk )->at ) Prices::Position( begin );
   }
   return walk;
}

PyMappingMethods mapping[] = { { nullptr, subscript, ass_subscript },
   { nullptr, subscriptSameTurns, assSubscriptSameTurns } };
PyTypeObject collectionType[] = {
   { .ob_refcnt = 1,
      .tp_name = "kel_floor_collection.Collection",
      .tp_basicsize = sizeof( Collection ) },
   { .ob_refcnt = 1,
      .tp_name = "kel_floor_collection.SameTurnsCollection",
      .tp_basicsize = sizeof( Collection ) },
};

template< int turns >
PyObject* price_get( PyObject* self, void* ) {
   PyTypeObject* const type = &collectionType[turns];
   PyObject* const collection = type->tp_alloc( type, 0 );
   if( collection ) {
      Py_INCREF( self );
      as< Collection >( collection )->owner = self;
   }
   return collection;
}

PyObject* owner_new( PyTypeObject* type, PyObject*, PyObject* ) {
   PyObject* const self = type->tp_alloc( type, 0 );
   if( self ) {
      as< Owner >( self )->price = new Prices();
   }
   return self;
}

void owner_dealloc( PyObject* self ) {
   delete as< Owner >( self )->price;
   Py_TYPE( self )->tp_free( self );
}

PyObject* fill( PyObject* self, PyObject* args ) {
   int size;
   if( !PyArg_ParseTuple( args, "i", &size ) ) {
      return nullptr;
   }
   priceOf( self ).fill( size );
   Py_RETURN_NONE;
}

PyMethodDef methods[] = {
   { "fill", fill, METH_VARARGS, "Sets the keys '0' to 'size - 1'." },
   { nullptr, nullptr, 0, nullptr },
};
char priceName[] = "price";
PyGetSetDef getset[2][2] = {
   { { priceName, price_get< 0 >, nullptr, nullptr, nullptr }, {} },
   { { priceName, price_get< 1 >, nullptr, nullptr, nullptr }, {} },
};
PyTypeObject ownerType[] = {
   { .ob_refcnt = 1, .tp_name = "kel_floor_collection.Owner", .tp_basicsize = sizeof( Owner ) },
   { .ob_refcnt = 1, .tp_name = "kel_floor_collection.SameTurns", .tp_basicsize = sizeof( Owner ) },
};

bool readyTypes() {
   walkType.tp_flags = Py_TPFLAGS_DEFAULT;
   walkType.tp_dealloc = ownerDropped< Walk >;
   walkType.tp_iter = PyObject_SelfIter;
   walkType.tp_iternext = next;
   bool ready = PyType_Ready( &walkType ) == 0;
   for( int turns = 0; turns < 2; ++turns ) {
      collectionType[turns].tp_flags = Py_TPFLAGS_DEFAULT;
      collectionType[turns].tp_dealloc = ownerDropped< Collection >;
      collectionType[turns].tp_as_mapping = &mapping[turns];
      collectionType[turns].tp_iter = iterate;
      ownerType[turns].tp_flags = Py_TPFLAGS_DEFAULT;
      ownerType[turns].tp_new = owner_new;
      ownerType[turns].tp_dealloc = owner_dealloc;
      ownerType[turns].tp_methods = methods;
      ownerType[turns].tp_getset = getset[turns];
      ready = ready && PyType_Ready( &collectionType[turns] ) == 0 &&
              PyType_Ready( &ownerType[turns] ) == 0;
   }
   return ready;
}

PyMethodDef functions[] = { { nullptr, nullptr, 0, nullptr } };

} // namespace

extern "C" __attribute__( ( visibility( "default" ) ) ) void initkel_floor_collection() {
   PyEval_InitThreads();
   PyObject* const module = Py_InitModule( "kel_floor_collection", functions );
   if( module && readyTypes() ) {
      PyModule_AddObject( module, "Owner", reinterpret_cast< PyObject* >( &ownerType[0] ) );
      PyModule_AddObject( module, "SameTurns", reinterpret_cast< PyObject* >( &ownerType[1] ) );
   }
}
