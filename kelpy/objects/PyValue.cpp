#include <kelpy/objects/PyValue.h>

#include <kel/Assert.h>
#include <kelpy/convert/GenericIfToPyObject.h>
#include <kelpy/convert/PyObjectToGenericIf.h>
#include <kelpy/objects/MountProxyAnchor.h>
#include <kelpy/objects/PyStage.h>

namespace {

using Op = Kel::GenericIf::AttributeOp;

PyGenericIf* asWrapper( PyObject* object ) {
   return reinterpret_cast< PyGenericIf* >( object );
}

PyObject* asObject( PyGenericIf* wrapper ) {
   return reinterpret_cast< PyObject* >( wrapper );
}

PyObject* notImplemented() {
   Py_INCREF( Py_NotImplemented );
   return Py_NotImplemented;
}

// Null for null, a unary operation's missing operand.
Kel::Ptr< Kel::GenericIf > operand( PyObject* object, Kel::KelType type ) {
   return object ? PyObjectToGenericIf( object, type, false ) : nullptr;
}

PyObject* operationLacking( Kel::KelType type, Op opId, PyObject* resolvedRhs ) {
   if( resolvedRhs ) {
      return notImplemented();
   }
   KEL_ASSERT( opId == Kel::GenericIf::AttributeOp::operatorCompl_ );
   PyErr_Format( PyExc_TypeError, "bad operand type for unary ~: %s", type.fullTypeName() );
   return nullptr;
}

// Without the GIL; it is back at the end.
PyObject* arithmeticOp(
   Kel::PyLockAnchor& locks, PyGenericIf* lhs, Kel::KelType type, Op opId, PyObject* resolvedRhs ) {
   Kel::Ptr< Kel::GenericIf > result;
   try {
      auto const rhs = operand( resolvedRhs, type );
      result = type.genericIfArithmeticOp( PyGenericIfToGenericIf( lhs ), opId, rhs );
   } catch( Kel::OpNotSupportedException const& ) {
      locks.gilHeldIs( true );
      return operationLacking( type, opId, resolvedRhs );
   }
   locks.gilHeldIs( true );
   return GenericIfToPyObject( std::move( result ), true );
}

} // namespace

PyObject* pyGenericIfArithmeticOp( PyGenericIf* lhs, Op opId, PyObject* rhs ) {
   KEL_ASSERT( lhs );
   Kel::KelType const type = kelTypeOf( asObject( lhs ) );
   Stage stage( type, "resolution: " );
   return guarded( stage, noObject, [&] {
      MountProxyAnchor const proxy( rhs );
      return underLocks( Kel::flags0, stage, noObject, [&]( Kel::PyLockAnchor& locks ) {
         stage.is( "" );
         return arithmeticOp( locks, lhs, type, opId, proxy.resolved() );
      } );
   } );
}

int pyGenericIfBooleanOp( PyGenericIf* lhs, Op opId, PyObject* rhs ) {
   KEL_ASSERT( lhs );
   Kel::KelType const type = kelTypeOf( asObject( lhs ) );
   Stage stage( type, "resolution: " );
   return guarded( stage, -1, [&] {
      MountProxyAnchor const proxy( rhs );
      return underLocks( Kel::flags0, stage, -1, [&]( Kel::PyLockAnchor& locks ) -> int {
         stage.is( "" );
         bool const result = type.genericIfBooleanOp(
            PyGenericIfToGenericIf( lhs ), opId, operand( proxy.resolved(), type ) );
         locks.gilHeldIs( true );
         return result;
      } );
   } );
}

namespace {

// Raises a TypeError of that format in place of a pending NotImplementedError; any other error
// stands.
void explainLack( char const* format, Kel::KelType type ) {
   if( PyErr_ExceptionMatches( PyExc_NotImplementedError ) ) {
      PyErr_Clear();
      PyErr_Format( PyExc_TypeError, format, type.fullTypeName() );
   }
}

int PyGenericIf_value_nonzero( PyObject* self ) {
   int const truth = pyGenericIfBooleanOp( asWrapper( self ), Op::operatorBool_, nullptr );
   if( truth == -1 ) {
      explainLack( "%s does not support __nonzero__", kelTypeOf( self ) );
   }
   return truth;
}

int less( PyObject* a, PyObject* b ) {
   return pyGenericIfBooleanOp( asWrapper( a ), Op::operatorLess_, b );
}

int equal( PyObject* a, PyObject* b ) {
   return pyGenericIfBooleanOp( asWrapper( a ), Op::operatorEqual_, b );
}

int notEqual( PyObject* a, PyObject* b ) {
   int const result = equal( a, b );
   return result == -1 ? -1 : !result;
}

int lessOrEqual( PyObject* x, PyObject* y, PyObject* a, PyObject* b ) {
   int const result = less( x, y );
   return result == 0 ? equal( a, b ) : result;
}

// 1, 0, or -1 with a Python error.
int compare( PyObject* a, PyObject* b, int op ) {
   switch( op ) {
   case Py_LT:
      return less( a, b );
   case Py_LE:
      return lessOrEqual( a, b, a, b );
   case Py_EQ:
      return equal( a, b );
   case Py_NE:
      return notEqual( a, b );
   case Py_GT:
      return less( b, a );
   case Py_GE:
      return lessOrEqual( b, a, a, b );
   default:
      break;
   }
   KEL_ASSERT( false );
   __builtin_unreachable();
}

template< Op op >
PyObject* PyGenericIf_binary_op( PyObject* a, PyObject* b ) {
   if( Py_TYPE( a ) != Py_TYPE( b ) ) {
      return notImplemented();
   }
   return pyGenericIfArithmeticOp( asWrapper( a ), op, b );
}

PyObject* PyGenericIf_invert( PyObject* self ) {
   return pyGenericIfArithmeticOp( asWrapper( self ), Op::operatorCompl_, nullptr );
}

} // namespace

PyObject* PyGenericIf_value_richcompare( PyObject* self, PyObject* other, int op ) {
   if( Py_TYPE( self ) != Py_TYPE( other ) ) {
      return notImplemented();
   }
   int const result = compare( self, other, op );
   if( result == -1 ) {
      explainLack( "%s does not support operator", kelTypeOf( self ) );
      return nullptr;
   }
   return PyBool_FromLong( result );
}

// Classic, floor and true division are one operation.
constinit PyNumberMethods PyGenericIf_value_number = {
   .nb_add = PyGenericIf_binary_op< Op::operatorPlus_ >,
   .nb_subtract = PyGenericIf_binary_op< Op::operatorMinus_ >,
   .nb_multiply = PyGenericIf_binary_op< Op::operatorMult_ >,
   .nb_divide = PyGenericIf_binary_op< Op::operatorDiv_ >,
   .nb_remainder = PyGenericIf_binary_op< Op::operatorMod_ >,
   .nb_nonzero = PyGenericIf_value_nonzero,
   .nb_invert = PyGenericIf_invert,
   .nb_and = PyGenericIf_binary_op< Op::operatorAnd_ >,
   .nb_xor = PyGenericIf_binary_op< Op::operatorXor_ >,
   .nb_or = PyGenericIf_binary_op< Op::operatorOr_ >,
   .nb_floor_divide = PyGenericIf_binary_op< Op::operatorDiv_ >,
   .nb_true_divide = PyGenericIf_binary_op< Op::operatorDiv_ >,
};
