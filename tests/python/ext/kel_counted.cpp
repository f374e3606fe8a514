// kel_counted: the type Counted::Number, a value that notes which of its operators the runtime
// called. Activity lock.
#include <kelpy/core/PyPython.h>

#include <utility>

#include <kel/Schema.h>
#include <kel/String.h>

namespace Counted {

class Number;
KEL_TYPES( _Counted_kelModule, Number );

class Number {
 public:
   explicit Number( Kel::S32 value = 0 ) : value( value ) {}

   friend bool operator==( Number a, Number b ) {
      noted( a.value < 0 ? "equal-negative" : "equal" );
      return a.value == b.value;
   }
   friend bool operator<( Number a, Number b ) {
      noted( a.value < 0 ? "less-negative" : "less" );
      return a.value < b.value;
   }
   friend Number operator/( Number a, Number ) { return noted( "divide" ), a; }

   // The words since the last call, joined by blanks.
   static Kel::String log() { return std::exchange( log_, Kel::String() ); }

   Kel::S32 value;

 private:
   static void noted( char const* word ) {
      log_ += log_.length() ? " " : "";
      log_ += word;
   }

   static Kel::String log_;
};

Kel::String Number::log_;

KEL_UNIT(
   _Counted_kelModule, value< Number >( args( arg< Kel::S32 >( "number" ) ),
                          attr< &Number::value >( "value" ), function< &Number::log >( "log" ) ) )

} // namespace Counted

extern "C" __attribute__( ( visibility( "default" ) ) ) void initkel_counted() {
   static PyMethodDef none[] = { {} };
   Py_InitModule( "kel_counted", none );
}
