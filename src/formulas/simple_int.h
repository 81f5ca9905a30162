// Signed integers of any length on a vector: for the analysis of polynomials, never for large numbers.
#pragma once

#include <compare>
#include <utility>
#include <vector>

#include "core/types.h"

namespace orl::Polynomials {

/// A value: copies are deep, no two share words.
class SimpleInt {
 public:
  using stype = s64;

  SimpleInt() = default;  ///< zero
  /// Implicit, as integers are.
  SimpleInt(s64 value);
  /// |value| = words, least significant first; top zeros are dropped.
  SimpleInt(bool not_negative, std::vector<u64> words);

  bool sign() const { return sign_; }  ///< true: not negative
  u64 L() const { return L_; }         ///< words of the magnitude; 0 for zero
  bool is_zero() const { return L_ == 0; }
  /// Word i of the magnitude, i < L().
  u64 operator[](u64 i) const { return words_[i]; }

  /// Throws ArithmeticException "Number doesn't fit into an stype.".
  explicit operator stype() const;

  SimpleInt operator-() const;
  friend SimpleInt operator+(const SimpleInt& a, const SimpleInt& b);
  friend SimpleInt operator-(const SimpleInt& a, const SimpleInt& b);
  friend SimpleInt operator*(const SimpleInt& a, const SimpleInt& b);
  /// Quotient towards zero and the remainder, which has the sign of *this. Throws ArithmeticException
  /// "Divide by zero.".
  std::pair<SimpleInt, SimpleInt> divmod(const SimpleInt& divisor) const;

  friend bool operator==(const SimpleInt& a, const SimpleInt& b) = default;
  friend std::strong_ordering operator<=>(const SimpleInt& a, const SimpleInt& b);

 private:
  void normalise();

  bool sign_ = true;
  u64 L_ = 0;
  std::vector<u64> words_;
};

}  // namespace orl::Polynomials
