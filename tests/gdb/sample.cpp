// Stops with values of each sort that gdb is to show.
#include <kel/GenericIf.h>
#include <kel/KelAttr.h>
#include <kel/Lock.h>

#include <acme/Item.h>

extern "C" __attribute__( ( noinline ) ) void stopHere() {
   asm volatile( "" );
}

int main() {
   Kel::LockAnchor const lock( Kel::activityLock() );
   Kel::String const text = Acme::Item::describe( Acme::Color::red );
   Kel::String const emptyText;
   Kel::KelType const type = Kel::typeNode( "Acme::Item" );
   Kel::KelType const noType;
   Kel::KelAttr const attr = type.attr( "color" );
   Kel::KelAttr const noAttr;
   Kel::Ptr< Kel::GenericIf > const generic =
      Kel::typeNode( "Acme::Size" ).genericIf( static_cast< void const* >( nullptr ), true );
   Kel::Ptr< Kel::GenericIf > const second = generic;
   Kel::Ptr< Acme::Item > const null;
   stopHere();
   return text.length() != 0 && emptyText.empty() && noType == Kel::KelType() &&
                noAttr == Kel::KelAttr() && attr && second && !null
             ? 0
             : 1;
}
