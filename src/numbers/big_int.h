// BigInt: signed integer without exponent and without hash.
//
// Value   (-1)^(sign is 0) * sum of T[i] * W^i. Zero has L = 0, sign = 1; else the top word is not zero.
// Buffer  [base, base + size), borrowed; checked before anything is written.
#pragma once

#include "core/types.h"
#include "multiply/algorithm.h"

namespace orl {

template <class W>
class BasicInt;
template <class W>
struct BigFloat;

template <class W>
struct BigInt {
  W* T = nullptr;
  u64 L = 0;
  u8 sign = 1;  ///< 1 positive, 0 negative
  W* base = nullptr;
  u64 size = 0;

  static constexpr u32 word_bits = 8 * sizeof(W);

  BigInt() = default;
  /// Zero, bound to `capacity` words at `buffer`.
  BigInt(W* buffer, u64 capacity) : T(buffer), base(buffer), size(capacity) {}

  /// Bytes of scratch of a product or square of at most `words` words.
  static u64 mul_scratch(u64 words, u64 tds);

  /// Each sets the number afresh, in its own buffer.
  void set_zero();
  void set_uW(W w);
  void set_BasicInt(const BasicInt<W>& b);
  /// The integer with these words, which may have zeros at the top.
  void set_words(const W* A, u64 AL);
  void set_BigInt(const BigInt& a, ParallelContext parallel);
  /// The integer part of f, truncated towards zero.
  void set_BigFloat(const BigFloat<W>& f, ParallelContext parallel);

  int signum() const { return L == 0 ? 0 : (sign ? 1 : -1); }
  /// Internal error when the top word is zero.
  void check_normalization() const;
  /// Compares with signs: -1, 0 or 1.
  static int cmp(const BigInt& a, const BigInt& b);

  /// *= 2^bits; capacity L + bits / word_bits + 1.
  BigInt& operator<<=(u64 bits);
  void mul_uW(W w, ParallelContext parallel);
  void set_mul_uW(const BigInt& a, W w, ParallelContext parallel);
  /// Adds the word w at index i <= L in magnitude; internal error past L or for zero.
  void add_ip(W w, u64 i);
  /// |a| + |b| and |a| - |b|, sign 1. set_sub throws UnsupportedNegativeException when |a| < |b|.
  void set_add(const BigInt& a, const BigInt& b, ParallelContext parallel);
  void set_sub(const BigInt& a, const BigInt& b, ParallelContext parallel);
  void set_sqr(const BigInt& a, const MultiplyContext& ctx);
  void set_mul(const BigInt& a, const BigInt& b, const MultiplyContext& ctx);
};

}  // namespace orl
