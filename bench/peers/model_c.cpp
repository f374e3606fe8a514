// The model as functions of C, for ctypes: that gives up the GIL around each call and converts
// behind it, so the mutex is taken and released within the call.
#include "Peer.h"

namespace {

using Bench::Model;
using Bench::Point;
using Bench::Prices;

class Locked {
 public:
   Locked() { Bench::lockTurn(); }
   Locked( Locked const& ) = delete;
   Locked& operator=( Locked const& ) = delete;
   ~Locked() { Bench::unlockTurn(); }
};

struct Walk {
   Prices* prices;
   Prices::Position at;
};

thread_local std::string text; // the last one given out

} // namespace

#pragma GCC visibility push( default )
extern "C" {

Model* thingNew( char const* text, unsigned level ) {
   Locked const locked;
   return new Model( text, level );
}

void thingDelete( Model* self ) {
   delete self;
}

unsigned levelGet( Model* self ) {
   Locked const locked;
   return self->level();
}

void levelSet( Model* self, unsigned level ) {
   Locked const locked;
   self->levelIs( level );
}

char const* textGet( Model* self ) {
   Locked const locked;
   text = self->text();
   return text.c_str();
}

void textSet( Model* self, char const* text ) {
   Locked const locked;
   self->textIs( text );
}

unsigned colorGet( Model* self ) {
   Locked const locked;
   return static_cast< unsigned >( self->color() );
}

Model* nextGet( Model* self ) {
   Locked const locked;
   return self->next();
}

int add( Model* self, int a, int b ) {
   Locked const locked;
   return self->add( a, b );
}

std::size_t hashOf( Model* self ) {
   Locked const locked;
   return self->hash();
}

char const* describe( Model* self ) {
   Locked const locked;
   text = self->describe();
   return text.c_str();
}

Point* pointNew( int x, int y ) {
   Locked const locked;
   return new Point( x, y );
}

void pointDelete( Point* self ) {
   delete self;
}

Point* pointPlus( Point* self, Point* other ) {
   Locked const locked;
   return self->plus( *other );
}

Prices* pricesNew() {
   return new Prices();
}

void pricesFill( Prices* self, int size ) {
   self->fill( size );
}

// Less than 0 for a key that is not there.
long look( Prices* self, char const* key ) {
   Locked const locked;
   unsigned const* const found = self->find( key );
   return found ? static_cast< long >( *found ) : -1;
}

Walk* walkNew( Prices* self ) {
   Locked const locked;
   return new Walk{ self, self->begin() };
}

void walkDelete( Walk* self ) {
   delete self;
}

char const* step( Walk* self ) {
   Locked const locked;
   std::string const* const key = self->prices->step( self->at );
   if( !key ) {
      return nullptr;
   }
   text = *key;
   return text.c_str();
}

} // extern "C"
#pragma GCC visibility pop
