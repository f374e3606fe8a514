// Short ways to generics, for tests.
#pragma once

#include <kel/GenericIf.h>
#include <kel/KelAttr.h>
#include <kel/Lock.h>
#include <kel/schema/Convert.h>

namespace Unit {

template< class T >
Kel::Ptr< Kel::GenericIf > generic( T value ) {
   return Kel::Schema::toGeneric< T >( value, false );
}
inline Kel::Ptr< Kel::GenericIf > text( char const* value ) {
   return generic( Kel::String( value ) );
}
// A default value, mutable.
template< class T >
Kel::Ptr< Kel::GenericIf > newValue() {
   return Kel::kelType< T >().genericIf( static_cast< void const* >( nullptr ), false );
}
template< class T >
T as( Kel::Ptr< Kel::GenericIf > const& generic ) {
   return Kel::Schema::fromGeneric< T >( generic.get() );
}
inline Kel::KelAttr attr( Kel::Ptr< Kel::GenericIf > const& object, char const* name ) {
   return object->type().attr( name );
}
inline Kel::Ptr< Kel::GenericIf > get( Kel::Ptr< Kel::GenericIf > const& object, char const* name,
   Kel::Ptr< Kel::GenericIf > const& key = nullptr ) {
   return attr( object, name ).genericIfGet( object, key );
}
inline void set( Kel::Ptr< Kel::GenericIf > const& object, char const* name,
   Kel::Ptr< Kel::GenericIf > const& value ) {
   attr( object, name ).genericIfSet( object, nullptr, value );
}
inline Kel::Ptr< Kel::GenericIf > make(
   char const* type, std::vector< Kel::Ptr< Kel::GenericIf > > args ) {
   return Kel::typeNode( type ).genericIf( Kel::ArgVector( args.begin(), args.end() ), false );
}

// Every test runs as a caller of the runtime does: with the activity lock.
struct Locked {
   Kel::LockAnchor locked{ Kel::activityLock() };
};

} // namespace Unit
