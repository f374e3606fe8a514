// kel_throws: types whose every operation throws what it is told to. Activity lock.
#include <kelpy/core/PyPython.h>

#include <kel/Collections.h>
#include <kel/Schema.h>
#include <odd/Calls.h>

namespace Throws {

class Value;
class Object;
KEL_TYPES( _Throws_kelModule, Value, Object );

// What is thrown, by its class name; nothing while it is empty.
Kel::String kind_;

Kel::String kind() {
   return kind_;
}
void kindIs( Kel::String kind ) {
   kind_ = kind;
}

void act() {
   if( kind_.length() ) {
      Kel::newObject< Odd::Faults >()->fail( kind_, "text" );
   }
}

class Value {
 public:
   Value() = default;
   explicit Value( Kel::U32 number ) : number( number ) {}

   friend bool operator==( Value const& a, Value const& b ) {
      act();
      return a.number == b.number;
   }
   friend bool operator<( Value const& a, Value const& b ) {
      act();
      return a.number < b.number;
   }
   friend Value operator+( Value const& a, Value const& b ) {
      act();
      return Value( a.number + b.number );
   }
   explicit operator bool() const {
      act();
      return number != 0;
   }
   std::uint64_t hash() const {
      act();
      return number;
   }
   Kel::String strRep() const {
      act();
      return "value";
   }

   Kel::U32 shown() const { return act(), number; }
   void shownIs( Kel::U32 value ) { number = value; }

   Kel::U32 number = 0;
};

class Map : public Kel::Map< Kel::String, Kel::U32 > {
   using Base = Kel::Map< Kel::String, Kel::U32 >;

 public:
   Iterator iterator() const {
      act();
      return Base::iterator();
   }
   bool exist( Kel::String const& key ) const {
      act();
      return Base::exist( key );
   }
   std::size_t members() const {
      act();
      return Base::members();
   }
};

class Object : public Kel::PtrInterface {
 public:
   KEL_OBJECT( Object )
   explicit Object( Kel::U32 ) { act(); }

   static Kel::String kind() { return Throws::kind(); }
   static void kindIs( Kel::String kind ) { Throws::kindIs( kind ); }

   Kel::U32 value() const { return act(), 1; }
   void valueIs( Kel::U32 ) { act(); }
   Kel::U32 call() const { return act(), 1; }

   Map map;
};

KEL_UNIT( _Throws_kelModule,
   value< Value >(
      args( arg< Kel::U32 >( "number" ) ), attr< &Value::shown, &Value::shownIs >( "number" ) ),
   pointer< Object >( args( arg< Kel::U32 >( "n" ) ),
      attr< &Object::kind, &Object::kindIs >( "kind" ),
      attr< &Object::value, &Object::valueIs >( "value" ), function< &Object::call >( "call" ),
      collection< &Object::map >( "map" ) ) )

} // namespace Throws

extern "C" __attribute__( ( visibility( "default" ) ) ) void initkel_throws() {
   static PyMethodDef none[] = { {} };
   Py_InitModule( "kel_throws", none );
}
