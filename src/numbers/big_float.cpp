#include "numbers/big_float.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include "core/ending.h"
#include "core/exceptions.h"
#include "multiply/algorithm_table.h"
#include "multiply/basecase.h"
#include "multiply/basic_int.h"
#include "numbers/big_int.h"
#include "numbers/exact_float.h"
#include "numbers/number_steps.h"
#include "numbers/windowed_add.h"
#include "words/hash.h"
#include "words/word_loops.h"
#include "words/words.h"

namespace orl {
namespace {

// Operands of at most this many words, when no product word is dropped, go to the schoolbook loop directly.
constexpr u64 kShortWords = 9;
constexpr u64 kShortSquareWords = 20;

template <class W>
using Double = word_loops::Double<W>;

// The top n words of a number.
template <class W>
WordWindow<W> top_window(const BigFloat<W>& a, u64 n) {
  const u64 cut = a.L > n ? a.L - n : 0;
  return {a.T + cut, a.L - cut, a.exp + static_cast<s64>(cut)};
}

template <class W>
WordWindow<W> window_of(const BigFloat<W>& a) {
  return {a.T, a.L, a.exp};
}

// x = the words of a, with that sign.
template <class W>
void copy_window(BigFloat<W>& x, const char* function, const WordWindow<W>& a, u8 sign,
                 ParallelContext parallel) {
  if (a.L == 0) return x.set_zero();
  place(x, function, {.L = a.L, .exp = a.exp, .sign = sign});
  bp_copy(x.T, a.T, a.L, parallel);
}

template <class W>
void store_product(W* T, W a, W b) {
  const Double<W> product = Double<W>{a} * b;
  T[0] = static_cast<W>(product);
  T[1] = static_cast<W>(product >> (8 * sizeof(W)));
}

}  // namespace

// Sizes ---------------------------------------------------------------------------------------------------

template <class W>
u64 BigFloat<W>::mul_scratch(u64 p, u64 tds) {
  return basic_table<W>().mul_cost(p, tds);
}

template <class W>
u64 BigFloat<W>::sqr_scratch(u64 p, u64 tds) {
  return basic_table<W>().sqr_cost(p, tds);
}

// Setting -------------------------------------------------------------------------------------------------

template <class W>
void BigFloat<W>::set_zero() {
  L = 0;
  exp = 0;
  sign = 0;
}

template <class W>
void BigFloat<W>::set_uW(W w) {
  if (w == 0) return set_zero();
  place(*this, "BigFloat::set_uW()", {.L = 1, .exp = 0, .sign = 1});
  T[0] = w;
}

template <class W>
void BigFloat<W>::set_sW(std::make_signed_t<W> w) {
  set_uW(w < 0 ? static_cast<W>(W{0} - static_cast<W>(w)) : static_cast<W>(w));
  if (w < 0) sign = 0;
}

template <class W>
void BigFloat<W>::set_double(double x, s64 exponent) {
  if (x == 0) return set_zero();
  u64 bits;
  std::memcpy(&bits, &x, sizeof bits);
  const u64 field = bits >> 52 & 0x7ff;
  const u64 fraction = bits & ((u64{1} << 52) - 1);
  const s64 e = field == 0 ? -1074 : static_cast<s64>(field) - 1075;
  const s64 whole = e >> (sizeof(W) == 4 ? 5 : 6);  // arithmetic, so that the rest is a shift to the left
  u128 mantissa = u128{field == 0 ? fraction : fraction | u64{1} << 52}
                  << static_cast<u32>(e - whole * static_cast<s64>(word_bits));
  s64 low = exponent + whole;
  while (static_cast<W>(mantissa) == 0) {
    mantissa >>= word_bits;
    ++low;
  }
  u64 words = 0;
  for (u128 rest = mantissa; rest != 0; rest >>= word_bits) ++words;
  require_capacity("BigFloat::set_double()", size, std::max<u64>(words, 8 / sizeof(W)));
  T = base;
  for (L = 0; L < words; ++L, mantissa >>= word_bits) T[L] = static_cast<W>(mantissa);
  exp = low;
  sign = bits >> 63 == 0;
}

template <class W>
void BigFloat<W>::set_BasicInt(const BasicInt<W>& b) {
  place(*this, "BigFloat::set_BasicInt()", {.L = b.L(), .exp = 0, .sign = 1});
  bp_copy(T, b.words(), L);
}

template <class W>
void BigFloat<W>::set_ExactFloat(const ExactFloat<W>& e, ParallelContext parallel) {
  copy_window<W>(*this, "BigFloat::set_ExactFloat()", {e.T, e.L, e.exp}, e.sign, parallel);
}

template <class W>
void BigFloat<W>::set_BigInt(const BigInt<W>& i, ParallelContext parallel) {
  copy_window<W>(*this, "BigFloat::set_BigInt()", {i.T, i.L, 0}, i.sign, parallel);
}

template <class W>
void BigFloat<W>::set_BigFloat(u64 p, const BigFloat& a, ParallelContext parallel) {
  copy_window(*this, "BigFloat::set_BigFloat()", top_window(a, p + kBigFloatExtraPrecision), a.sign,
              parallel);
}

// Queries -------------------------------------------------------------------------------------------------

template <class W>
W BigFloat<W>::word_at(s64 e) const {
  return e >= exp && e < magnitude() ? T[e - exp] : 0;
}

template <class W>
int BigFloat<W>::cmp(const BigFloat& a, const BigFloat& b) {
  if (a.L == 0 || b.L == 0) return a.L == b.L ? 0 : (a.L == 0 ? -1 : 1);
  if (a.magnitude() != b.magnitude()) return a.magnitude() < b.magnitude() ? -1 : 1;
  const u64 common = std::min(a.L, b.L);
  for (u64 i = 1; i <= common; ++i) {
    const W x = a.T[a.L - i];
    const W y = b.T[b.L - i];
    if (x != y) return x < y ? -1 : 1;
  }
  if (bp_strip<W>(0, a.T, a.L - common) > 0) return 1;
  if (bp_strip<W>(0, b.T, b.L - common) > 0) return -1;
  return 0;
}

template <class W>
int BigFloat<W>::cmp_signed(const BigFloat& a, const BigFloat& b) {
  const int sa = a.signum();
  const int sb = b.signum();
  if (sa != sb) return sa < sb ? -1 : 1;
  return sa < 0 ? -cmp(a, b) : cmp(a, b);
}

template <class W>
s64 BigFloat<W>::bit_length() const {
  if (L == 0) return 0;
  return (magnitude() - 1) * static_cast<s64>(word_bits) + 64 - __builtin_clzll(T[L - 1] | 1);
}

template <class W>
double BigFloat<W>::to_double(s64* e) const {
  *e = 0;
  if (L == 0) return 0;
  constexpr u64 kWords = 128 / word_bits;
  u128 top = 0;
  for (u64 i = 0; i < kWords; ++i) top = top << word_bits | (i < L ? T[L - 1 - i] : W{0});
  // The top word is not zero, unless memory failed: then a proof must meet a wrong value, not a trap.
  const int excess = 75 - __builtin_clzll(static_cast<u64>(top >> 64) | 1);
  const double mantissa = std::ldexp(static_cast<double>(static_cast<u64>(top >> excess)), excess - 128);
  *e = magnitude();
  return sign ? mantissa : -mantissa;
}

template <class W>
u64 BigFloat<W>::computed_hash(ParallelContext parallel) const {
  u64 h = bp_hash(0, T, L, parallel);
  if (!sign) h = hash_neg(h);
  return exp == 0 ? h : hash_mul(h, hash_word_pow<W>(exp));
}

template <class W>
void BigFloat<W>::check_normalization() const {
  if (L > 0 && T[L - 1] == 0) internal_error("BigFloat::check_normalization()", "Top word is zero.");
}

// In place ------------------------------------------------------------------------------------------------

template <class W>
void BigFloat<W>::mp2(s64 bits, ParallelContext parallel) {
  if (L == 0) return;
  const s64 words = bits >> (sizeof(W) == 4 ? 5 : 6);
  const u32 rest = static_cast<u32>(bits - words * static_cast<s64>(word_bits));
  if (rest != 0) mul_uW(static_cast<W>(W{1} << rest), parallel);
  exp += words;
}

template <class W>
void BigFloat<W>::truncate(u64 p) {
  const WordWindow<W> top = top_window(*this, p + kBigFloatExtraPrecision);
  T += L - top.L;
  L = top.L;
  exp = top.exp;
}

template <class W>
void BigFloat<W>::truncate_above(s64 e) {
  if (e < magnitude()) L = e > exp ? static_cast<u64>(e - exp) : 0;
  strip_top_zeros();
}

template <class W>
void BigFloat<W>::strip_tzs() {
  drop_low_zeros(*this, 1);
}

template <class W>
void BigFloat<W>::strip_tzs_aligned() {
  drop_low_zeros(*this, 16);
}

template <class W>
void BigFloat<W>::strip_top_zeros() {
  L = bp_strip<W>(0, T, L);
  if (L > 0) return;
  exp = 0;
  sign = 1;
}

template <class W>
void BigFloat<W>::strip_top_zeros(ParallelContext parallel) {
  if (L > 0 && T[L - 1] != 0) return;
  L = bp_strip<W>(0, T, L, parallel);
  strip_top_zeros();
}

template <class W>
void BigFloat<W>::strip_top_ones() {
  L = bp_strip<W>(static_cast<W>(~W{0}), T, L);
  strip_top_zeros();
}

template <class W>
void BigFloat<W>::purturb_up(u64 n) {
  const char* const function = "BigFloat::purturb_up()";
  if (L == 0) internal_error(function, "The value is zero.");
  if (L < n + 1) {
    const u64 missing = n + 1 - L;
    const u64 below = static_cast<u64>(T - base);
    if (below < missing) {
      require_capacity(function, size, n + 1);
      std::memmove(base + missing, T, L * sizeof(W));
      T = base + missing;
    }
    T -= missing;
    bp_fill(T, missing, 0);
    exp -= static_cast<s64>(missing);
    L = n + 1;
  }
  const u64 k = L - n - 1;
  if (bp_strip<W>(static_cast<W>(~W{0}), T + k, n + 1) == 0)
    require_capacity(function, size, static_cast<u64>(T - base) + L + 1);  // the carry will leave the top
  if (bp_carry<W>(1, T + k, n + 1) != 0) T[L++] = 1;
}

template <class W>
void BigFloat<W>::mul_uW(W w, ParallelContext parallel) {
  if (w == 0) return set_zero();
  if (w == 1 || L == 0) return;
  multiply_words(*this, "BigFloat::mul_uW()", w, parallel);
}

template <class W>
void BigFloat<W>::add_ip(W w, s64 e) {
  const char* const function = "BigFloat::add_ip()";
  if (w == 0) return;
  if (L == 0 || e < exp || e > magnitude())
    throw InvalidParametersException(function, "Exponent is out of range.");
  add_word(*this, function, w, static_cast<u64>(e - exp));
}

// Precision p: words --------------------------------------------------------------------------------------

template <class W>
void BigFloat<W>::set_mul_uW(u64 p, const BigFloat& a, W w, ParallelContext parallel) {
  if (a.L == 0 || w == 0) return set_zero();
  const WordWindow<W> top = top_window(a, p + 1);
  place(*this, "BigFloat::set_mul_uW()", {.L = top.L, .exp = top.exp, .sign = a.sign, .spare = 1});
  if (w == 1) return bp_copy(T, top.T, L, parallel);
  const W carry = bp_mul_uW(T, top.T, L, w, 0, parallel);
  if (carry != 0) T[L++] = carry;
}

template <class W>
void BigFloat<W>::set_mul_sL(u64 p, const BigFloat& a, s64 w, ParallelContext parallel) {
  const u64 factor = w < 0 ? u64{0} - static_cast<u64>(w) : static_cast<u64>(w);
  const u8 result_sign = a.sign ^ (w < 0);
  if (static_cast<W>(factor) == factor) {
    set_mul_uW(p, a, static_cast<W>(factor), parallel);
  } else {
    if (a.L == 0) return set_zero();
    const WordWindow<W> top = top_window(a, p + 1);
    place(*this, "BigFloat::set_mul_sL()", {.L = top.L + 2, .exp = top.exp, .sign = result_sign});
    const W words[2] = {static_cast<W>(factor), static_cast<W>(factor >> (word_bits / 2) >> (word_bits / 2))};
    mulB<W>(T, top.T, top.L, words, 2);
    strip_top_zeros();
    truncate(p);
  }
  if (L > 0) sign = result_sign;
}

template <class W>
void BigFloat<W>::set_div_sW(u64 p, const BigFloat& a, std::make_signed_t<W> w, ParallelContext parallel) {
  const char* const function = "BigFloat::set_div_sW()";
  if (w == 0) throw ArithmeticException(function, "Divide by zero.");
  if (w == 1) return set_BigFloat(p, a, parallel);
  const ShoupDivider<W> divider(w < 0 ? static_cast<W>(W{0} - static_cast<W>(w)) : static_cast<W>(w));
  if (a.L == 0) return set_zero();
  const u64 length = p + kBigFloatExtraPrecision;
  const WordWindow<W> top = top_window(a, length);
  const u64 extension = length - top.L;
  const u8 result_sign = a.sign ^ (w < 0);
  place(*this, function, {.L = length, .exp = top.exp - static_cast<s64>(extension), .sign = result_sign});
  const W remainder = bp_div_np(divider, T + extension, top.T, top.L, 0, parallel);
  bp_div_ex(divider, T, extension, remainder, parallel);
  if (T[L - 1] == 0) --L;
  if (L == 0) set_zero();
}

// Precision p: sums ---------------------------------------------------------------------------------------

template <class W>
void BigFloat<W>::set_uadd(u64 p, const BigFloat& a, const BigFloat& b, ParallelContext parallel) {
  if (a.L == 0 || b.L == 0) {
    set_BigFloat(p, a.L == 0 ? b : a, parallel);
    if (L > 0) sign = 1;
    return;
  }
  const s64 top = std::max(a.magnitude(), b.magnitude());
  const s64 bottom = std::max(std::min(a.exp, b.exp), top - static_cast<s64>(p) - 1);
  const u64 length = static_cast<u64>(top - bottom);
  place(*this, "BigFloat::set_uadd()", {.L = length, .exp = bottom, .sign = 1, .spare = 1});
  const W carry = windowed_add(T, bottom, length, window_of(a), window_of(b), parallel);
  if (carry != 0) T[L++] = carry;
}

template <class W>
void BigFloat<W>::set_usub(u64 p, const BigFloat& a, const BigFloat& b, ParallelContext parallel) {
  const char* const function = "BigFloat::set_usub()";
  if (b.L == 0) {
    set_BigFloat(p, a, parallel);
    if (L > 0) sign = 1;
    return;
  }
  if (a.L == 0) throw UnsupportedNegativeException(function, "A negative value was encountered.");
  const s64 top = std::max(a.magnitude(), b.magnitude());
  const s64 bottom = std::max(std::min(a.exp, b.exp), top - static_cast<s64>(p) - 1);
  const u64 length = static_cast<u64>(top - bottom);
  place(*this, function, {.L = length, .exp = bottom, .sign = 1});
  if (windowed_sub(T, bottom, length, window_of(a), window_of(b), parallel) != 0)
    throw UnsupportedNegativeException(function, "A negative value was encountered.");
  strip_top_zeros(parallel);
}

template <class W>
void BigFloat<W>::set_rsub(u64 p, const BigFloat& a, const BigFloat& b, s64 top, u8 result_sign,
                           ParallelContext parallel) {
  s64 lowest = top;
  if (a.L > 0) lowest = std::min(lowest, a.exp);
  if (b.L > 0) lowest = std::min(lowest, b.exp);
  const s64 bottom = std::max(lowest, top - static_cast<s64>(p) - 1);
  const u64 length = static_cast<u64>(top - bottom);
  place(*this, "BigFloat::set_rsub()", {.L = length, .exp = bottom, .sign = result_sign});
  // A borrow out of the window cancels against words above it.
  windowed_sub(T, bottom, length, window_of(a), window_of(b), parallel);
  strip_top_zeros(parallel);
}

template <class W>
void BigFloat<W>::set_add(u64 p, const BigFloat& a, const BigFloat& b, ParallelContext parallel) {
  if (a.L == 0) return set_BigFloat(p, b, parallel);
  if (b.L == 0) return set_BigFloat(p, a, parallel);
  if (a.sign == b.sign) {
    set_uadd(p, a, b, parallel);
    sign = a.sign;
    return;
  }
  const int order = cmp(a, b);
  if (order == 0) return set_zero();
  const BigFloat& larger = order > 0 ? a : b;
  set_usub(p, larger, order > 0 ? b : a, parallel);
  if (L > 0) sign = larger.sign;
}

template <class W>
void BigFloat<W>::set_sub(u64 p, const BigFloat& a, const BigFloat& b, ParallelContext parallel) {
  BigFloat minus = b;
  minus.negate();
  set_add(p, a, minus, parallel);
}

// Precision p: products -----------------------------------------------------------------------------------

template <class W>
void BigFloat<W>::set_mul(u64 p, const BigFloat& a, const BigFloat& b, const MultiplyContext& ctx) {
  if (a.L == 0 || b.L == 0) return set_zero();
  const u64 n = p + kBigFloatExtraPrecision;
  const WordWindow<W> x = top_window(a, n);
  const WordWindow<W> y = top_window(b, n);
  const u64 c = x.L + y.L;
  const u64 skip = c > n ? c - n : 0;
  place(*this, "BigFloat::set_mul()",
        {.L = c - skip, .exp = x.exp + y.exp + static_cast<s64>(skip), .sign = a.sign == b.sign});
  if (skip > 0 || std::min(x.L, y.L) > kShortWords)
    basic_table<W>().mul_bounded(ctx, {T, skip, c}, {x.T, x.L}, {y.T, y.L});
  else if (c == 2)
    store_product(T, x.T[0], y.T[0]);
  else
    mulB(T, x.T, x.L, y.T, y.L);
  if (T[L - 1] == 0) --L;
}

template <class W>
void BigFloat<W>::set_mul_small(u64 p, const BigFloat& a, const BigFloat& b, const MultiplyContext& ctx) {
  set_mul(p, a, b, {ctx.parallel.with_tds(1), ctx.tables, ctx.scratch});
}

template <class W>
void BigFloat<W>::set_sqr(u64 p, const BigFloat& a, const MultiplyContext& ctx) {
  if (a.L == 0) return set_zero();
  const u64 n = p + kBigFloatExtraPrecision;
  const WordWindow<W> x = top_window(a, n);
  const u64 c = 2 * x.L;
  const u64 skip = c > n ? c - n : 0;
  place(*this, "BigFloat::set_sqr()", {.L = c - skip, .exp = 2 * x.exp + static_cast<s64>(skip), .sign = 1});
  if (skip > 0 || c >= kShortSquareWords)
    basic_table<W>().sqr_bounded(ctx, {T, skip, c}, {x.T, x.L});
  else if (c == 2)
    store_product(T, x.T[0], x.T[0]);
  else
    sqrB(T, x.T, x.L);
  if (T[L - 1] == 0) --L;
}

template struct BigFloat<u32>;
template struct BigFloat<u64>;

}  // namespace orl
