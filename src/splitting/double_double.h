// Double-double arithmetic: an unevaluated sum of two doubles, about 31 decimal digits.
//
// Every size and term estimate is made in it: term counts pass 2^53, and a size is a small difference of
// large Stirling sums. Results are good to a few units of 2^-104; infinities and NaN do not occur.
//
// Source  T. J. Dekker, "A floating-point technique for extending the available precision", 1971.
#pragma once

#include <string_view>

#include "core/types.h"

namespace orl {

/// The value hi + lo.
struct DoubleDouble {
  double hi = 0;
  double lo = 0;

  constexpr DoubleDouble() = default;
  constexpr DoubleDouble(double value) : hi(value) {}
  /// hi and lo as they stand; |lo| is at most half a unit in the last place of hi.
  constexpr DoubleDouble(double high, double low) : hi(high), lo(low) {}

  /// Exact for every n.
  static DoubleDouble from_u64(u64 n);
  /// A decimal number such as "-0.0810614" without an exponent. Internal error for anything else.
  static DoubleDouble parse(std::string_view text);

  DoubleDouble operator-() const { return {-hi, -lo}; }
  double to_double() const { return hi + lo; }
  /// rint(hi) + rint(lo), for values in [0, 2^64).
  u64 rint_u64() const;
  /// Largest whole number not above the value, for values in [0, 2^64).
  u64 floor_u64() const;

  /// The natural logarithm of 2.
  static const DoubleDouble& ln2();
};

DoubleDouble operator+(DoubleDouble a, DoubleDouble b);
DoubleDouble operator-(DoubleDouble a, DoubleDouble b);
DoubleDouble operator*(DoubleDouble a, DoubleDouble b);
DoubleDouble operator/(DoubleDouble a, DoubleDouble b);

/// High parts first, then low parts.
constexpr bool operator<(DoubleDouble a, DoubleDouble b) {
  return a.hi < b.hi || (a.hi == b.hi && a.lo < b.lo);
}
constexpr bool operator>(DoubleDouble a, DoubleDouble b) { return b < a; }
constexpr bool operator<=(DoubleDouble a, DoubleDouble b) { return !(b < a); }
constexpr bool operator>=(DoubleDouble a, DoubleDouble b) { return !(a < b); }
constexpr bool operator==(DoubleDouble a, DoubleDouble b) { return a.hi == b.hi && a.lo == b.lo; }
inline DoubleDouble max(DoubleDouble a, DoubleDouble b) { return a < b ? b : a; }
inline DoubleDouble min(DoubleDouble a, DoubleDouble b) { return b < a ? b : a; }

/// e^x for |x| below 700.
DoubleDouble exp(DoubleDouble x);
/// ln(1 + x) for x > -1; absolute error below 2^-100 max(1, result).
DoubleDouble log1p(DoubleDouble x);

}  // namespace orl
