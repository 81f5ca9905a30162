#include "words/word_division.h"

#include "core/exceptions.h"
#include "words/shoup_step.h"

namespace orl {
namespace {

using word_loops::load;
using word_loops::store;

constexpr u64 kStretches = 4;
// Words of a stretch; four of them stay in the first-level cache between the two passes (32 KiB).
constexpr u64 kStretchWords = 1024;

// 1 / odd modulo 2^64 by Newton's iteration; 3 * odd ^ 2 is right to 5 bits.
u64 inverse_of(u64 odd) {
  u64 x = (3 * odd) ^ 2;
  for (int bits = 5; bits < 64; bits *= 2) x *= 2 - odd * x;
  return x;
}

}  // namespace

WordFold::WordFold(const ShoupDivider<u64>& divider)
    : divider_(divider),
      w2_(divider.pow_base(2)),
      w3_(divider.mul(w2_, divider.pow_base(1))),
      w4_(divider.mul(w2_, w2_)),
      w5_(divider.mul(w2_, w3_)) {}

// s is any 128-bit value of the right residue. With powers below 2^63, two products together stay below
// 2^128 - 2^65. Adding a 128-bit value to them may wrap once; W^2 then goes in for the 2^128 that was lost,
// and cannot wrap again.
u64 WordFold::mod(const void* A, u64 at, u64 L, u64 top) const {
  const ShoupStep<u64> step(divider_);
  for (; L % 4; --L) step.divide(top, load<u64>(A, at + L - 1));
  if (L == 0) return top;
  const u64 w2 = w2_, w3 = w3_, w4 = w4_, w5 = w5_;
  u128 s = top;
  for (; L > 0; L -= 4) {
    const u64 i = at + L - 4;
    const u128 low = u128{load<u64>(A, i + 1)} << 64 | load<u64>(A, i);
    u128 side = u128{load<u64>(A, i + 2)} * w2 + u128{load<u64>(A, i + 3)} * w3;
    side += low;
    side += side < low ? w2 : 0;
    s = u128{static_cast<u64>(s)} * w4 + u128{static_cast<u64>(s >> 64)} * w5;
    s += side;
    s += s < side ? w2 : 0;
  }
  u64 r = 0;
  step.divide(r, static_cast<u64>(s >> 64));
  step.divide(r, static_cast<u64>(s));
  return r;
}

WordDivision::WordDivision(const ShoupDivider<u64>& divider)
    : shift_(__builtin_ctzll(divider.divisor)),
      odd_(shift_ == 0 ? divider : ShoupDivider<u64>(divider.divisor >> shift_)),
      inverse_(inverse_of(odd_.divider().divisor)) {}

// Quotient words of the stretches T[at + k * length, at + (k + 1) * length). carries[k] is the remainder that
// leaves stretch k and becomes the one that must have entered it. Four at once hide the latency of a product.
template <bool zeros>
void WordDivision::four_quotients(void* T, const void* A, u64 at, u64 length, u64* carries) const {
  const u64 d = odd_.divider().divisor;
  const u64 inverse = inverse_;
  u64 c0 = carries[0], c1 = carries[1], c2 = carries[2], c3 = carries[3];
  const auto step = [=](u64 i, u64& c) {
    const u64 a = zeros ? 0 : load<u64>(A, i);
    const u64 q = (a - c) * inverse;
    store(T, i, q);
    c = static_cast<u64>(u128{q} * d >> 64) + (a < c);
  };
  for (u64 i = at; i < at + length; ++i) {
    step(i, c0);
    step(i + length, c1);
    step(i + 2 * length, c2);
    step(i + 3 * length, c3);
  }
  carries[0] = c0, carries[1] = c1, carries[2] = c2, carries[3] = c3;
}

template <bool zeros>
u64 WordDivision::divide_odd(void* T, const void* A, u64 L, u64 top, const char* function) const {
  const ShoupDivider<u64>& divider = odd_.divider();
  const ShoupStep<u64> word(divider);
  for (; L % kStretches; --L) store(T, L - 1, word.divide(top, zeros ? 0 : load<u64>(A, L - 1)));
  // One short piece at the top, then whole ones.
  u64 length = L / kStretches % kStretchWords;
  for (; L > 0; length = kStretchWords) {
    if (length == 0) continue;
    const u64 at = L - kStretches * length;
    const u64 power = divider.pow_base(length);
    u64 carries[kStretches];
    u64 remainders[kStretches + 1];  // [k] leaves stretch k, [k + 1] enters it
    remainders[kStretches] = top;
    for (u64 k = kStretches; k-- > 0;) {
      const u64 residue = zeros ? 0 : odd_.mod(A, at + k * length, length, 0);
      carries[k] = remainders[k] = divider.add(divider.mul(remainders[k + 1], power), residue);
    }
    four_quotients<zeros>(T, A, at, length, carries);
    for (u64 k = 0; k < kStretches; ++k)
      if (carries[k] != remainders[k + 1])
        throw AlgorithmFailedException(function, "Mismatching block residuals.");
    top = remainders[0];
    L = at;
  }
  return top;
}

// The quotient by odd * 2^shift is that of the dividend shifted down by the odd part; what was shifted out is
// the low end of the remainder.
u64 WordDivision::divide(void* T, const void* A, u64 L, u64 top, const char* function) const {
  if (shift_ == 0) return divide_odd<false>(T, A, L, top, function);
  const u64 low = load<u64>(A, 0) & ((u64{1} << shift_) - 1);
  u64 word = load<u64>(A, 0);
  for (u64 i = 0; i < L; ++i) {
    const u64 above = i + 1 < L ? load<u64>(A, i + 1) : top;
    store(T, i, word >> shift_ | above << (64 - shift_));
    word = above;
  }
  return divide_odd<false>(T, T, L, top >> shift_, function) << shift_ | low;
}

u64 WordDivision::extend(void* T, u64 L, u64 top, const char* function) const {
  if (shift_ == 0) return divide_odd<true>(T, nullptr, L, top, function);
  u64 remainder = top >> shift_;
  store(T, L - 1, ShoupStep<u64>(odd_.divider()).divide(remainder, top << (64 - shift_)));
  return divide_odd<true>(T, nullptr, L - 1, remainder, function) << shift_;
}

}  // namespace orl
