// What the hand-written extension and its peers wrap: plain C++ classes whose functions are
// virtual, as those of a runtime are. No lock of their own.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <utility>

namespace Bench {

inline char const* const someText = "a text of some length";

enum class Color : unsigned char { red = 0, blue = 1 };

class Model {
 public:
   explicit Model( std::string text = someText, unsigned level = 1 )
      : text_( std::move( text ) ), level_( level ) {}
   Model( Model const& ) = delete;
   Model& operator=( Model const& ) = delete;
   virtual ~Model() = default;

   virtual unsigned level() const { return level_; }
   virtual void levelIs( unsigned level ) { level_ = level; }
   virtual std::string const& text() const { return text_; }
   virtual void textIs( std::string text ) { text_ = std::move( text ); }
   virtual Color color() const { return color_; }
   virtual int add( int a, int b ) const { return a + b; }
   virtual std::size_t hash() const { return reinterpret_cast< std::size_t >( this ) >> 4; }
   virtual std::string describe() const { return "Bench::Model(" + text_ + ")"; }
   // Lives as long as the process, and only the caller ever wraps it.
   virtual Model* next() const {
      static Model other;
      return &other;
   }

 private:
   std::string text_;
   unsigned level_;
   Color color_ = Color::blue;
};

// A value: each result is a new one.
class Point {
 public:
   explicit Point( int x = 0, int y = 0 ) : x_( x ), y_( y ) {}
   virtual ~Point() = default;

   virtual int x() const { return x_; }
   virtual int y() const { return y_; }
   virtual Point* plus( Point const& other ) const {
      return new Point( x_ + other.x_, y_ + other.y_ );
   }

 private:
   int x_;
   int y_;
};

class Prices {
 public:
   using Map = std::map< std::string, unsigned, std::less<> >;
   using Position = Map::const_iterator;

   virtual ~Prices() = default;

   virtual void priceIs( std::string const& key, unsigned price ) { map_[key] = price; }
   virtual bool erase( std::string const& key ) { return map_.erase( key ); }
   // Null if there is none.
   virtual unsigned const* find( std::string const& key ) const {
      auto const at = map_.find( key );
      return at == map_.end() ? nullptr : &at->second;
   }
   virtual Position begin() const { return map_.begin(); }
   // The key there, or null behind the last; goes on to the next one.
   virtual std::string const* step( Position& at ) const {
      return at == map_.end() ? nullptr : &at++->first;
   }
   // Sets the keys "0" to "size - 1".
   void fill( int size ) {
      for( int i = 0; i < size; ++i ) {
         priceIs( std::to_string( i ), static_cast< unsigned >( i ) );
      }
   }

 private:
   Map map_;
};

} // namespace Bench
