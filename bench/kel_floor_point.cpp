// The floor of a value that adds: `Point` makes one turn of the locks for a sum, `SameTurns` as
// many as _Kel does, which converts the right operand and lets go of a value under the activity
// lock.
#include "Model.h"
#include "Turn.h"

namespace {

using Bench::Point;

struct FloorPoint {
   PyObject_HEAD
   Point* point;
};

Point*& pointOf( PyObject* self ) {
   return reinterpret_cast< FloorPoint* >( self )->point;
}

PyObject* wrap( PyTypeObject* type, Point* point ) {
   PyObject* const self = type->tp_alloc( type, 0 );
   if( self ) {
      pointOf( self ) = point;
   } else {
      delete point;
   }
   return self;
}

PyObject* point_new( PyTypeObject* type, PyObject* args, PyObject* ) {
   int x, y;
   if( !PyArg_ParseTuple( args, "ii", &x, &y ) ) {
      return nullptr;
   }
   Turn turn;
   auto* const point = new Point( x, y );
   turn.gilIsBack();
   return wrap( type, point );
}

void point_dealloc( PyObject* self ) {
   delete pointOf( self );
   Py_TYPE( self )->tp_free( self );
}

void point_dealloc_same_turns( PyObject* self ) {
   {
      Turn turn;
      delete pointOf( self );
   }
   Py_TYPE( self )->tp_free( self );
}

PyObject* notImplemented() {
   Py_INCREF( Py_NotImplemented );
   return Py_NotImplemented;
}

PyObject* point_add( PyObject* a, PyObject* b ) {
   if( Py_TYPE( a ) != Py_TYPE( b ) ) {
      return notImplemented();
   }
   Turn turn;
   Point* const sum = pointOf( a )->plus( *pointOf( b ) );
   turn.gilIsBack();
   return wrap( Py_TYPE( a ), sum );
}

PyObject* point_add_same_turns( PyObject* a, PyObject* b ) {
   if( Py_TYPE( a ) != Py_TYPE( b ) ) {
      return notImplemented();
   }
   Turn turn;
   Point const* const right = turn.withGil( [&] { return pointOf( b ); } );
   Point* const sum = pointOf( a )->plus( *right );
   turn.gilIsBack();
   return wrap( Py_TYPE( a ), sum );
}

template< int ( Point::*coordinate )() const >
PyObject* coordinate_get( PyObject* self, void* ) {
   Turn turn;
   int const value = ( pointOf( self )->*coordinate )();
   turn.gilIsBack();
   return PyInt_FromLong( value );
}

char xName[] = "x";
char yName[] = "y";
PyGetSetDef getset[] = {
   { xName, coordinate_get< &Point::x >, nullptr, nullptr, nullptr },
   { yName, coordinate_get< &Point::y >, nullptr, nullptr, nullptr },
   {},
};

PyNumberMethods numbers[2];
PyTypeObject types[] = {
   { .ob_refcnt = 1, .tp_name = "kel_floor_point.Point", .tp_basicsize = sizeof( FloorPoint ) },
   { .ob_refcnt = 1, .tp_name = "kel_floor_point.SameTurns", .tp_basicsize = sizeof( FloorPoint ) },
};

bool readyTypes() {
   numbers[0].nb_add = point_add;
   numbers[1].nb_add = point_add_same_turns;
   types[0].tp_dealloc = point_dealloc;
   types[1].tp_dealloc = point_dealloc_same_turns;
   for( int turns = 0; turns < 2; ++turns ) {
      types[turns].tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_CHECKTYPES;
      types[turns].tp_as_number = &numbers[turns];
      types[turns].tp_getset = getset;
      types[turns].tp_new = point_new;
      if( PyType_Ready( &types[turns] ) < 0 ) {
         return false;
      }
   }
   return true;
}

PyMethodDef functions[] = { { nullptr, nullptr, 0, nullptr } };

} // namespace

extern "C" __attribute__( ( visibility( "default" ) ) ) void initkel_floor_point() {
   PyEval_InitThreads();
   PyObject* const module = Py_InitModule( "kel_floor_point", functions );
   if( module && readyTypes() ) {
      PyModule_AddObject( module, "Point", reinterpret_cast< PyObject* >( &types[0] ) );
      PyModule_AddObject( module, "SameTurns", reinterpret_cast< PyObject* >( &types[1] ) );
   }
}
