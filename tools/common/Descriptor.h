// A file descriptor that is closed at the end of its life.
#pragma once

#include <unistd.h>

class Descriptor {
 public:
   // Takes it over; negative for none.
   explicit Descriptor( int number ) : number_( number ) {}
   Descriptor( Descriptor const& ) = delete;
   Descriptor& operator=( Descriptor const& ) = delete;
   ~Descriptor() {
      if( number_ >= 0 ) {
         close( number_ );
      }
   }

   int get() const { return number_; }
   explicit operator bool() const { return number_ >= 0; }

 private:
   int const number_;
};
