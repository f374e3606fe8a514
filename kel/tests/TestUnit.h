// A small unit of every shape, for the tests of the runtime alone.
#pragma once

#include <kel/Collections.h>
#include <kel/Dir.h>
#include <kel/OrderedCollections.h>

namespace Unit {

enum class Level : Kel::S16 { low = -2, none = 0, high = 300 };
struct Money;
struct Pair;
struct Either;
struct Mask;
class Part;
class SpecialPart;
class Maker;
class Box;
class Rack;
class Own;
class SpecialOwn;

KEL_TYPES( _Unit_kelModule, Level, Money, Pair, Either, Part, SpecialPart, Maker, Box, Rack, Own,
   SpecialOwn, Mask );

struct Money {
   Kel::U32 cents = 0;

   bool operator==( Money const& ) const = default;
   bool operator<( Money const& other ) const { return cents < other.cents; }
   Money operator+( Money other ) const { return { cents + other.cents }; }
   explicit operator bool() const { return cents; }
   std::uint64_t hash() const { return cents; }
};

// Neither operators nor hash: what the runtime does by attributes alone.
struct Pair {
   Kel::String name;
   std::optional< Kel::U32 > count;
};

struct Either {
   Kel::U32 number = 0;
   Kel::String text;
   bool isText = false;

   void numberIs( Kel::U32 value ) { *this = { value, {}, false }; }
   void textIs( Kel::String value ) { *this = { 0, std::move( value ), true }; }
   bool numberIsLive() const { return !isText; }
   bool textIsLive() const { return isText; }
};

struct Mask {
   Kel::U32 bits = 0;

   Mask operator~() const { return { ~bits }; }
};

class Part : public Kel::PtrInterface {
 public:
   KEL_OBJECT( Part )

   explicit Part( Kel::String id ) : id_( std::move( id ) ) { ++live; }
   ~Part() override { --live; }
   Kel::String const& id() const { return id_; }
   Kel::U32 weight() const { return weight_; }
   void weightIs( Kel::U32 weight ) { memberIs( weight_, weight, Kel::attrId( "weight" ) ); }
   Kel::Ptr< Part > twin( Kel::String suffix ) const {
      return Kel::newObject< Part >( id_ + suffix );
   }
   void drop() { weightIs( 0 ); }

   inline static Kel::U32 live = 0;

 private:
   Kel::String id_;
   Kel::U32 weight_ = 0;
};

class SpecialPart : public Part {
 public:
   KEL_OBJECT( SpecialPart )

   using Part::Part;
   Kel::U32 extra = 7;
};

// Constructing gives a base or a sibling, never a Maker.
class Maker : public Part {
 public:
   KEL_OBJECT( Maker )

   static Kel::Ptr< Part > make( bool special ) {
      return special ? Kel::Ptr< Part >( Kel::newObject< SpecialPart >( Kel::String( "special" ) ) )
                     : Kel::newObject< Part >( Kel::String( "plain" ) );
   }
};

class Box : public Kel::Entity {
 public:
   KEL_OBJECT( Box )

   explicit Box( Kel::String name, Kel::U32 size = 0 )
      : Kel::Entity( std::move( name ) ), size_( size ) {}

   Kel::U32 size() const { return size_; }
   Money price() const { return price_; }
   void priceIs( Money price ) { memberIs( price_, price, Kel::attrId( "price" ) ); }

   Kel::Ptr< Part > part;
   Kel::Ptr< Part const > constPart;
   Part* rawPart = nullptr;
   Level level = Level::none;
   Kel::PtrMap< Kel::Ptr< Part >, &Part::id > made{ this, Kel::attrId( "made" ) };
   Kel::PtrMap< Kel::Ptr< Part const >, &Part::id > seen;
   Kel::Map< Kel::String, Kel::U32 > stock{ this, Kel::attrId( "stock" ) };
   Kel::SetOf< Kel::String > tag{ this, Kel::attrId( "tag" ) };
   Kel::Queue< Kel::String > order{ this, Kel::attrId( "order" ) };
   Kel::Stack< Money > undo;
   Kel::Vector< Kel::S32 > track;
   Kel::DynArray< Kel::U32 > slot{ 4 };
   Kel::Ptr< Part > lid;
   inline static Kel::U32 boxes = 5;

 private:
   Kel::U32 size_;
   Money price_;
};

class Rack : public Kel::Dir {
 public:
   KEL_OBJECT( Rack )

   using Kel::Dir::Dir;
   Kel::U32 width = 0, height = 0;
};

// Counted without PtrInterface.
class Own {
 public:
   Own() = default;
   Own( Own const& ) = delete;
   Own& operator=( Own const& ) = delete;
   virtual ~Own() = default;
   std::uint32_t& kelReferenceWord() const noexcept { return word_; }
   void handleZeroRef() const noexcept { delete this; }

   Kel::U32 n = 5;

 private:
   mutable std::uint32_t word_ = 0;
};

class SpecialOwn : public Own {
 public:
   Kel::U32 more = 6;
};

} // namespace Unit
