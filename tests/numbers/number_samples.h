// Random numbers and their exact values, for the tests of the number objects.
#pragma once

#include <memory>
#include <vector>

#include "numbers/big_float.h"
#include "numbers/exact_float.h"
#include "support/gmp_oracle.h"
#include "support/random_words.h"
#include "support/test_parallelizers.h"

namespace orl::test {

/// All exponents in these tests lie above it, so that every value is an integer times W^kLowest.
inline constexpr s64 kLowest = -64;

/// |a| / W^kLowest.
template <class Number>
Mpz magnitude_value(const Number& a) {
  if (a.L == 0) return Mpz(0);
  return Mpz(a.T, a.L) << (static_cast<u64>(a.exp - kLowest) * Number::word_bits);
}
template <class Number>
Mpz value(const Number& a) {
  Mpz v = magnitude_value(a);
  if (a.L > 0 && !a.sign) mpz_neg(v, v);
  return v;
}
/// W^e / W^kLowest.
template <class W>
Mpz word_power(s64 e) {
  return Mpz(1) << (static_cast<u64>(e - kLowest) * 8 * sizeof(W));
}

/// |a * b| / W^kLowest.
template <class Number>
Mpz product_magnitude(const Number& a, const Number& b) {
  if (a.L == 0 || b.L == 0) return Mpz(0);
  return Mpz(a.T, a.L) * Mpz(b.T, b.L) << (static_cast<u64>(a.exp + b.exp - kLowest) * Number::word_bits);
}

/// A number in a guarded buffer: `below` free words under its lowest, `above` over its top.
template <class W, template <class> class Number = BigFloat>
struct Sample {
  explicit Sample(u64 capacity, u64 offset = 0) : words(capacity, offset), number(words.data(), capacity) {}
  Sample(Random& random, u64 L, s64 exp, u64 below = 0, u64 above = 0)
      : words(below + L + above, random.below(16)), number(words.data(), below + L + above) {
    const std::vector<W> digits = random.number<W>(L);
    number.T += below;
    std::copy(digits.begin(), digits.end(), number.T);
    number.L = L;
    number.exp = exp;
    number.sign = random.coin();
  }

  bool intact() const { return words.intact(); }
  operator const Number<W>&() const { return number; }
  Number<W>* operator->() { return &number; }

  GuardedWords<W> words;
  Number<W> number;
};

template <class W>
using ExactSample = Sample<W, ExactFloat>;

/// What the tests of number objects share.
template <class W>
class NumberTest : public testing::Test {
 protected:
  s64 exponent(u64 bound = 9, s64 lowest = -4) { return static_cast<s64>(random.below(bound)) + lowest; }
  /// A number with its hash, and free words on either side.
  ExactSample<W> exact_sample(u64 L, s64 exp, u64 below = 0, u64 above = 0) {
    ExactSample<W> s(random, L, exp, below, above);
    s->recompute_hash(serial);
    return s;
  }

  static constexpr W kOnes = static_cast<W>(~W{0});
  Random random;
  ReverseOrder reverse;
  ParallelContext serial{reverse, 1};
};

}  // namespace orl::test
