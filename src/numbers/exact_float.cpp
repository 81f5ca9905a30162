#include "numbers/exact_float.h"

#include <algorithm>

#include "core/ending.h"
#include "core/exceptions.h"
#include "multiply/algorithm_table.h"
#include "multiply/basecase.h"
#include "multiply/basic_int.h"
#include "numbers/big_float.h"
#include "numbers/number_steps.h"
#include "numbers/windowed_add.h"
#include "threads/simple_frameworks.h"

namespace orl {
namespace {

template <class W>
WordWindow<W> window_of(const ExactFloat<W>& a) {
  return {a.T, a.L, a.exp};
}

template <class W>
int compare_magnitudes(const ExactFloat<W>& a, const ExactFloat<W>& b) {
  BigFloat<W> x, y;
  x.T = a.T, x.L = a.L, x.exp = a.exp;
  y.T = b.T, y.L = b.L, y.exp = b.exp;
  return BigFloat<W>::cmp(x, y);
}

template <class W>
void strip(ExactFloat<W>& a) {
  a.L = bp_strip<W>(0, a.T, a.L);
  if (a.L > 0) return;
  a.exp = 0;
  a.sign = 1;
}

// What an in-place sum may reach: `carry` is 1 for sums, whose bound is a word tighter.
template <class W>
void check_bounds(const ExactFloat<W>& a, const ExactFloat<W>& b, s64 carry, const char* function) {
  const s64 lowest = a.exp - (a.T - a.base);
  const s64 highest = lowest + static_cast<s64>(a.size) - carry;
  if (a.magnitude() > highest)
    throw InvalidParametersException(function, carry ? "Amag >= Tmax" : "Amag > Tmax");
  if (b.magnitude() > highest)
    throw InvalidParametersException(function, carry ? "Bmag >= Tmax" : "Bmag > Tmax");
  if (b.exp < lowest) throw InvalidParametersException(function, "Bexp < Tmin");
}

// Moves T down to exponent e; the new words are left to the caller.
template <class W>
void extend_down(ExactFloat<W>& a, s64 e) {
  const s64 n = a.exp - e;
  a.T -= n;
  a.L += static_cast<u64>(n);
  a.exp = e;
}

// |a| += |b| in place. What b has outside of a is copied, gaps are cleared, the rest is added.
template <class W>
void add_magnitude(ExactFloat<W>& a, const ExactFloat<W>& b, ParallelContext parallel) {
  const s64 a_bottom = a.exp;
  const s64 a_top = a.magnitude();
  const s64 b_top = b.magnitude();
  if (b.exp < a.exp) {
    extend_down(a, b.exp);
    const s64 copied = std::min(b_top, a_bottom) - b.exp;
    bp_copy(a.T, b.T, static_cast<u64>(copied), parallel);
    bp_fill(a.T + copied, static_cast<u64>(a_bottom - b.exp - copied), 0, parallel);
  }
  if (b_top > a_top) {
    const s64 from = std::max(b.exp, a_top);
    bp_fill(a.T + (a_top - a.exp), static_cast<u64>(from - a_top), 0, parallel);
    bp_copy(a.T + (from - a.exp), b.T + (from - b.exp), static_cast<u64>(b_top - from), parallel);
    a.L = static_cast<u64>(b_top - a.exp);
  }
  const s64 from = std::max(a_bottom, b.exp);
  const s64 to = std::min(a_top, b_top);
  if (from >= to) return;
  W* const overlap = a.T + (from - a.exp);
  const W carry = bp_add(overlap, overlap, b.T + (from - b.exp), static_cast<u64>(to - from), 0, parallel);
  const auto out = bp_carry<W>(static_cast<std::make_signed_t<W>>(carry), a.T + (to - a.exp),
                               static_cast<u64>(a.magnitude() - to), parallel);
  if (out != 0) a.T[a.L++] = 1;
}

// |a| -= |b| in place, |a| >= |b|.
template <class W>
void subtract_magnitude(ExactFloat<W>& a, const ExactFloat<W>& b, ParallelContext parallel) {
  const s64 a_bottom = a.exp;
  if (b.exp < a.exp) {
    extend_down(a, b.exp);
    bp_fill(a.T, static_cast<u64>(a_bottom - b.exp), 0, parallel);
  }
  W* const overlap = a.T + (b.exp - a.exp);
  const W borrow = bp_sub(overlap, overlap, b.T, b.L, 0, parallel);
  bp_carry<W>(-static_cast<std::make_signed_t<W>>(borrow), overlap + b.L,
              static_cast<u64>(a.magnitude() - b.magnitude()), parallel);
}

// |a| = |b| - |a| in place, |b| > |a|.
template <class W>
void subtract_magnitude_reversed(ExactFloat<W>& a, const ExactFloat<W>& b, ParallelContext parallel) {
  const s64 a_bottom = a.exp;
  const s64 a_top = a.magnitude();
  if (b.exp < a.exp) {
    extend_down(a, b.exp);
    bp_fill(a.T, static_cast<u64>(a_bottom - b.exp), 0, parallel);
  }
  if (b.magnitude() > a_top) {
    bp_fill(a.T + (a_top - a.exp), static_cast<u64>(b.magnitude() - a_top), 0, parallel);
    a.L = static_cast<u64>(b.magnitude() - a.exp);
  }
  // Below b: 0 - a, which is the complement plus 1 and borrows unless it is zero.
  const u64 below = static_cast<u64>(b.exp - a.exp);
  bp_not(a.T, a.T, below, parallel);
  const W borrow = below > 0 && bp_carry<W>(1, a.T, below, parallel) == 0;
  bp_sub(a.T + below, b.T, a.T + below, b.L, borrow, parallel);
}

template <class W>
void sum_in_place(ExactFloat<W>& a, const ExactFloat<W>& b, ParallelContext parallel) {
  const bool a_on_top = a.magnitude() >= b.magnitude();
  check_bounds(a, b, 1, a_on_top ? "ExactFloat::uaddAB_ip()" : "ExactFloat::uaddBA_ip()");
  add_magnitude(a, b, parallel);
}

// Both subtractions leave the sign of the larger magnitude, where b counts with the sign `b_sign`.
template <class W>
void difference_in_place(ExactFloat<W>& a, const ExactFloat<W>& b, u8 b_sign, ParallelContext parallel) {
  const bool a_on_top = a.magnitude() >= b.magnitude();
  check_bounds(a, b, 0, a_on_top ? "ExactFloat::usubAB_ip()" : "ExactFloat::usubBA_ip()");
  if (compare_magnitudes(a, b) >= 0) {
    subtract_magnitude(a, b, parallel);
  } else {
    subtract_magnitude_reversed(a, b, parallel);
    a.sign = b_sign;
  }
  strip(a);
}

// Copies a number's words and description to dst; throws under `function` when dst is too small.
template <class W>
void copy_number(ExactFloat<W>& dst, const ExactFloat<W>& a, const char* function, ParallelContext parallel) {
  if (a.L == 0) return dst.set_zero();
  place(dst, function, {.L = a.L, .exp = a.exp, .sign = a.sign});
  bp_copy(dst.T, a.T, a.L, parallel);
  dst.hash = a.hash;
}

// A product of `words` words at `exp`, with zero words below it when that lies above `extend`. Returns where
// the words go.
template <class W>
W* place_product(ExactFloat<W>& result, u64 words, s64 exp, s64 extend, const char* function,
                 ParallelContext parallel) {
  const u64 zeros = exp > extend ? static_cast<u64>(exp - extend) : 0;
  place(result, function, {.L = words + zeros, .exp = exp - static_cast<s64>(zeros), .sign = 1});
  bp_fill(result.T, zeros, 0, parallel);
  return result.T + zeros;
}

}  // namespace

template <class W>
u64 ExactFloat<W>::mul_scratch(u64 words, u64 tds) {
  return basic_table<W>().max_bounded_sizes(words, tds).product_bytes;
}

template <class W>
void ExactFloat<W>::set_zero() {
  L = 0;
  exp = 0;
  sign = 0;
  hash = 0;
}

template <class W>
void ExactFloat<W>::set_uW(W w) {
  if (w == 0) return set_zero();
  place(*this, "ExactFloat::set_uW()", {.L = 1, .exp = 0, .sign = 1});
  T[0] = w;
  hash = hash_fold(w);
}

template <class W>
void ExactFloat<W>::set_BasicInt(const BasicInt<W>& b, u8 positive) {
  place(*this, "ExactFloat::set_BasicInt()", {.L = b.L(), .exp = 0, .sign = positive});
  bp_copy(T, b.words(), L);
  hash = positive ? b.hash() : hash_neg(b.hash());
}

template <class W>
void ExactFloat<W>::set_ExactFloat(const ExactFloat& a, ParallelContext parallel) {
  copy_number(*this, a, "ExactFloat::set_ExactFloat()", parallel);
}

template <class W>
W ExactFloat<W>::word_at(s64 e) const {
  return e >= exp && e < magnitude() ? T[e - exp] : 0;
}

template <class W>
void ExactFloat<W>::check_normalization() const {
  if (L > 0 && T[L - 1] == 0) internal_error("ExactFloat::check_normalization()", "Top word is zero.");
}

template <class W>
u64 ExactFloat<W>::computed_hash(ParallelContext parallel) const {
  if (L == 0) return 0;
  u64 h = parallel.tds > 1 ? bp_hash(0, T, L, parallel) : bp_hash(0, T, L);
  if (!sign) h = hash_neg(h);
  return exp == 0 ? h : hash_mul(h, hash_word_pow<W>(exp));
}

template <class W>
void ExactFloat<W>::negate() {
  sign ^= 1;
  hash = hash_neg(hash);
}

template <class W>
void ExactFloat<W>::mp2(s64 bits, ParallelContext parallel) {
  if (L == 0) return;
  mp2_noupdate(bits, parallel);
  const s64 words = bits >> (sizeof(W) == 4 ? 5 : 6);
  const u64 rest = static_cast<u64>(bits - words * static_cast<s64>(word_bits));
  hash = hash_mul(hash_mul(hash, hash_word_pow<W>(words)), u64{1} << rest);
}

template <class W>
void ExactFloat<W>::mp2_noupdate(s64 bits, ParallelContext parallel) {
  if (L == 0) return;
  const s64 words = bits >> (sizeof(W) == 4 ? 5 : 6);
  const u64 rest = static_cast<u64>(bits - words * static_cast<s64>(word_bits));
  if (rest != 0) multiply_words(*this, "ExactFloat::mp2()", static_cast<W>(W{1} << rest), parallel);
  exp += words;
}

template <class W>
void ExactFloat<W>::mul_uW(W w, ParallelContext parallel) {
  if (w == 0) return set_zero();
  if (w == 1 || L == 0) return;
  multiply_words(*this, "ExactFloat::mul_uW()", w, parallel);
  hash = hash_mul(hash, w);
}

template <class W>
void ExactFloat<W>::add_ip(const ExactFloat& b, ParallelContext parallel) {
  if (b.L == 0) return;
  if (L == 0) return set_ExactFloat(b, parallel);
  if (sign == b.sign)
    sum_in_place(*this, b, parallel);
  else
    difference_in_place(*this, b, b.sign, parallel);
  hash = hash_add(hash, b.hash);
}

template <class W>
void ExactFloat<W>::sub_ip(const ExactFloat& b, ParallelContext parallel) {
  if (b.L == 0) return;
  if (L == 0) {
    set_ExactFloat(b, parallel);
    return negate();
  }
  if (sign != b.sign)
    sum_in_place(*this, b, parallel);
  else
    difference_in_place(*this, b, b.sign ^ 1, parallel);
  hash = hash_sub(hash, b.hash);
}

template <class W>
ExactFloat<W>& ExactFloat<W>::operator+=(const ExactFloat& b) {
  Parallelizer_None none;
  add_ip(b, {none, 1});
  return *this;
}

template <class W>
ExactFloat<W>& ExactFloat<W>::operator-=(const ExactFloat& b) {
  Parallelizer_None none;
  sub_ip(b, {none, 1});
  return *this;
}

template <class W>
void ExactFloat<W>::strip_tzs() {
  drop_low_zeros(*this, 1);
}

template <class W>
void ExactFloat<W>::set_add(const ExactFloat& a, const ExactFloat& b, ParallelContext parallel) {
  const char* const function = "ExactFloat::set_add()";
  if (a.L == 0 || b.L == 0) return copy_number(*this, a.L == 0 ? b : a, function, parallel);
  if (a.sign != b.sign) throw UnsupportedValueException(function, "Not implemented yet.");
  const s64 bottom = std::min(a.exp, b.exp);
  const u64 length = static_cast<u64>(std::max(a.magnitude(), b.magnitude()) - bottom);
  place(*this, function, {.L = length, .exp = bottom, .sign = a.sign, .spare = 1});
  hash = hash_add(a.hash, b.hash);
  const W carry = windowed_add(T, bottom, length, window_of(a), window_of(b), parallel);
  if (carry != 0) T[L++] = carry;
}

template <class W>
void ExactFloat<W>::set_sub(const ExactFloat& a, const ExactFloat& b, ParallelContext parallel) {
  const char* const function = "ExactFloat::set_sub()";
  if (b.L == 0) return copy_number(*this, a, function, parallel);
  if (a.L == 0) {
    copy_number(*this, b, function, parallel);
    return negate();
  }
  if (a.sign != b.sign) throw UnsupportedValueException("ExactFloat::set_add()", "Not implemented yet.");
  const s64 bottom = std::min(a.exp, b.exp);
  const u64 length = static_cast<u64>(std::max(a.magnitude(), b.magnitude()) - bottom);
  const bool a_larger = compare_magnitudes(a, b) >= 0;
  const u8 result_sign = a_larger ? a.sign : a.sign ^ 1;
  place(*this, function, {.L = length, .exp = bottom, .sign = result_sign});
  hash = hash_sub(a.hash, b.hash);
  windowed_sub(T, bottom, length, window_of(a_larger ? a : b), window_of(a_larger ? b : a), parallel);
  strip(*this);
}

template <class W>
void ExactFloat<W>::set_mul(const ExactFloat& a, const ExactFloat& b, const MultiplyContext& ctx,
                            s64 extend) {
  if (a.L == 0 || b.L == 0) return set_zero();
  const u64 c = a.L + b.L;
  W* const product = place_product(*this, c, a.exp + b.exp, extend, "ExactFloat::set_mul()", ctx.parallel);
  sign = a.sign == b.sign;
  hash = hash_mul(a.hash, b.hash);
  if (c >= kExactFloatBasecase)
    basic_table<W>().mul_bounded(ctx, {product, 0, a.L + b.L}, {a.T, a.L}, {b.T, b.L});
  else
    mulB(product, a.T, a.L, b.T, b.L);
  if (T[L - 1] == 0) --L;
}

template <class W>
void ExactFloat<W>::set_sqr(const ExactFloat& a, const MultiplyContext& ctx) {
  if (a.L == 0) return set_zero();
  const u64 c = 2 * a.L;
  W* const product = place_product(*this, c, 2 * a.exp, kNoExtend, "ExactFloat::set_sqr()", ctx.parallel);
  sign = 1;
  hash = hash_mul(a.hash, a.hash);
  if (c >= kExactFloatBasecase)
    basic_table<W>().sqr_bounded(ctx, {product, 0, 2 * a.L}, {a.T, a.L});
  else
    sqrB(product, a.T, a.L);
  if (T[L - 1] == 0) --L;
}

template struct ExactFloat<u32>;
template struct ExactFloat<u64>;

}  // namespace orl
