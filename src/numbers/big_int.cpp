#include "numbers/big_int.h"

#include <algorithm>
#include <cstring>

#include "core/ending.h"
#include "core/exceptions.h"
#include "multiply/algorithm_table.h"
#include "multiply/basecase.h"
#include "multiply/basic_int.h"
#include "numbers/big_float.h"
#include "numbers/number_steps.h"

namespace orl {
namespace {

// Products shorter than this go to the schoolbook loop directly.
constexpr u64 kBasecaseWords = 20;

}  // namespace

template <class W>
u64 BigInt<W>::mul_scratch(u64 words, u64 tds) {
  return basic_table<W>().max_bounded_sizes(words, tds).product_bytes;
}

template <class W>
void BigInt<W>::set_zero() {
  T = base;
  L = 0;
  sign = 1;
}

template <class W>
void BigInt<W>::set_uW(W w) {
  set_words(&w, 1);
}

template <class W>
void BigInt<W>::set_BasicInt(const BasicInt<W>& b) {
  require_capacity("BigInt::set_BasicInt()", size, b.L());
  set_words(b.words(), b.L());
}

template <class W>
void BigInt<W>::set_words(const W* A, u64 AL) {
  const u64 length = bp_strip<W>(0, A, AL);
  require_capacity("BigInt::set_words()", size, length);
  set_zero();
  L = length;
  bp_copy(T, A, L);
}

template <class W>
void BigInt<W>::set_BigInt(const BigInt& a, ParallelContext parallel) {
  require_capacity("BigInt::set_BigInt()", size, a.L);
  set_zero();
  L = a.L;
  sign = a.sign;
  bp_copy(T, a.T, L, parallel);
}

template <class W>
void BigInt<W>::set_BigFloat(const BigFloat<W>& f, ParallelContext parallel) {
  if (f.L == 0 || f.magnitude() < 1) return set_zero();
  const u64 length = static_cast<u64>(f.magnitude());
  require_capacity("BigInt::set_BigFloat()", size, length);
  const u64 zeros = f.exp > 0 ? static_cast<u64>(f.exp) : 0;
  const u64 cut = f.exp < 0 ? static_cast<u64>(-f.exp) : 0;
  set_zero();
  L = length;
  sign = f.sign;
  bp_fill(T, zeros, 0, parallel);
  bp_copy(T + zeros, f.T + cut, length - zeros, parallel);
}

template <class W>
void BigInt<W>::check_normalization() const {
  if (L > 0 && T[L - 1] == 0) internal_error("BigInt::check_normalization()", "Top word is zero.");
}

template <class W>
int BigInt<W>::cmp(const BigInt& a, const BigInt& b) {
  if (a.signum() != b.signum()) return a.signum() < b.signum() ? -1 : 1;
  const int larger = a.sign ? 1 : -1;
  if (a.L != b.L) return a.L > b.L ? larger : -larger;
  for (u64 i = a.L; i-- > 0;)
    if (a.T[i] != b.T[i]) return a.T[i] > b.T[i] ? larger : -larger;
  return 0;
}

template <class W>
BigInt<W>& BigInt<W>::operator<<=(u64 bits) {
  if (L == 0) return *this;
  const u64 words = bits / word_bits;
  const u32 rest = static_cast<u32>(bits % word_bits);
  const u64 room = size - static_cast<u64>(T - base);
  require_capacity("BigInt::operator<<=()", room, L + words + (rest != 0));
  std::memmove(T + words, T, L * sizeof(W));
  bp_fill(T, words, 0);
  L += words;
  if (rest == 0) return *this;
  const W carry = bp_mul_uW(T + words, T + words, L - words, static_cast<W>(W{1} << rest), 0);
  if (carry != 0) T[L++] = carry;
  return *this;
}

template <class W>
void BigInt<W>::mul_uW(W w, ParallelContext parallel) {
  if (w == 0) return set_zero();
  if (w == 1 || L == 0) return;
  multiply_words(*this, "BigInt::mul_uW()", w, parallel);
}

template <class W>
void BigInt<W>::set_mul_uW(const BigInt& a, W w, ParallelContext parallel) {
  if (w == 0 || a.L == 0) return set_zero();
  require_capacity("BigInt::set_mul_uW()", size, a.L + 1);
  set_zero();
  L = a.L;
  sign = a.sign;
  const W carry = bp_mul_uW(T, a.T, L, w, 0, parallel);
  if (carry != 0) T[L++] = carry;
}

template <class W>
void BigInt<W>::add_ip(W w, u64 i) {
  if (L == 0 || i > L) internal_error("BigInt::add_ip()", "Magnitude is out of range.");
  if (w == 0) return;
  add_word(*this, "BigInt::add_ip()", w, i);
}

template <class W>
void BigInt<W>::set_add(const BigInt& a, const BigInt& b, ParallelContext parallel) {
  const BigInt& x = a.L >= b.L ? a : b;
  const BigInt& y = a.L >= b.L ? b : a;
  require_capacity("BigInt::set_add()", size, x.L + 1);
  set_zero();
  L = x.L;
  const W carry = bp_add(T, x.T, y.T, y.L, 0, parallel);
  bp_copy(T + y.L, x.T + y.L, x.L - y.L, parallel);
  if (bp_carry<W>(static_cast<std::make_signed_t<W>>(carry), T + y.L, x.L - y.L, parallel) != 0) T[L++] = 1;
}

template <class W>
void BigInt<W>::set_sub(const BigInt& a, const BigInt& b, ParallelContext parallel) {
  const char* const function = "BigInt::set_sub()";
  const char* const negative = "A negative value was encountered.";
  if (a.L < b.L) throw UnsupportedNegativeException(function, negative);
  require_capacity(function, size, a.L);
  set_zero();
  L = a.L;
  const W borrow = bp_sub(T, a.T, b.T, b.L, 0, parallel);
  bp_copy(T + b.L, a.T + b.L, a.L - b.L, parallel);
  if (bp_carry<W>(-static_cast<std::make_signed_t<W>>(borrow), T + b.L, a.L - b.L, parallel) != 0)
    throw UnsupportedNegativeException(function, negative);
  L = bp_strip<W>(0, T, L, parallel);
}

template <class W>
void BigInt<W>::set_sqr(const BigInt& a, const MultiplyContext& ctx) {
  require_capacity("BigInt::set_sqr()", size, 2 * a.L);
  set_zero();
  if (a.L == 0) return;
  L = 2 * a.L;
  if (L >= kBasecaseWords)
    basic_table<W>().sqr_bounded(ctx, {T, 0, 2 * a.L}, {a.T, a.L});
  else
    sqrB(T, a.T, a.L);
  if (T[L - 1] == 0) --L;
}

template <class W>
void BigInt<W>::set_mul(const BigInt& a, const BigInt& b, const MultiplyContext& ctx) {
  if (a.L == 0 || b.L == 0) return set_zero();
  require_capacity("BigInt::set_mul()", size, a.L + b.L);
  set_zero();
  L = a.L + b.L;
  sign = a.sign == b.sign;
  if (L >= kBasecaseWords)
    basic_table<W>().mul_bounded(ctx, {T, 0, a.L + b.L}, {a.T, a.L}, {b.T, b.L});
  else
    mulB(T, a.T, a.L, b.T, b.L);
  if (T[L - 1] == 0) --L;
}

template struct BigInt<u32>;
template struct BigInt<u64>;

}  // namespace orl
