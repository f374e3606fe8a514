// A time or a span of time in seconds. One double, no lock, throws nothing.
#pragma once

#include <compare>
#include <cstddef>
#include <functional>

namespace Kel {

class Seconds {
 public:
   constexpr Seconds() noexcept = default;
   constexpr explicit Seconds( double value ) noexcept : value_( value ) {}

   constexpr double value() const noexcept { return value_; }
   constexpr explicit operator double() const noexcept { return value_; }

   constexpr Seconds operator-() const noexcept { return Seconds( -value_ ); }
   constexpr Seconds& operator+=( Seconds other ) noexcept {
      value_ += other.value_;
      return *this;
   }
   constexpr Seconds& operator-=( Seconds other ) noexcept {
      value_ -= other.value_;
      return *this;
   }
   constexpr Seconds& operator*=( double factor ) noexcept {
      value_ *= factor;
      return *this;
   }
   constexpr Seconds& operator/=( double divisor ) noexcept {
      value_ /= divisor;
      return *this;
   }

   friend constexpr Seconds operator+( Seconds a, Seconds b ) noexcept { return a += b; }
   friend constexpr Seconds operator-( Seconds a, Seconds b ) noexcept { return a -= b; }
   friend constexpr Seconds operator*( Seconds a, double factor ) noexcept { return a *= factor; }
   friend constexpr Seconds operator*( double factor, Seconds a ) noexcept { return a *= factor; }
   friend constexpr Seconds operator/( Seconds a, double divisor ) noexcept { return a /= divisor; }
   // How often the one goes into the other.
   friend constexpr double operator/( Seconds a, Seconds b ) noexcept {
      return a.value_ / b.value_;
   }

   // Unordered where one is not a number, as doubles are.
   friend constexpr bool operator==( Seconds a, Seconds b ) noexcept = default;
   friend constexpr std::partial_ordering operator<=>( Seconds a, Seconds b ) noexcept = default;

 private:
   double value_ = 0;
};

static_assert( sizeof( Seconds ) == sizeof( double ) );

} // namespace Kel

template<>
struct std::hash< Kel::Seconds > {
   std::size_t operator()( Kel::Seconds seconds ) const noexcept {
      return std::hash< double >()( seconds.value() );
   }
};
