// ExactFloat: the exact float of binary splitting. Nothing is truncated, and a hash goes with every number.
//
// Value    as BigFloat: (-1)^(sign is 0) * (sum of T[i] * W^i) * W^exp, L = 0 is zero.
// Hash     lazy residue modulo 2^61 - 1 of the value: hash of the words, negated if sign is 0, times W^exp.
//          Operations compute it from the operands' hashes, not from words, so check_hash() proves the words.
// Buffer   [base, base + size), borrowed. T may move down in place when a lower number is added, so
//          set_mul with `extend` leaves zero words below the product.
// Aliasing a result may share no words with an operand, except where "in place" is said.
#pragma once

#include "core/types.h"
#include "multiply/algorithm.h"
#include "words/hash.h"

namespace orl {

template <class W>
class BasicInt;

inline constexpr u64 kExactFloatBasecase =
    20;  ///< products shorter than this go to the schoolbook loop directly

template <class W>
struct ExactFloat {
  W* T = nullptr;
  u64 L = 0;
  s64 exp = 0;
  u8 sign = 0;  ///< 1 positive, 0 negative
  u64 hash = 0;
  W* base = nullptr;
  u64 size = 0;

  static constexpr u32 word_bits = 8 * sizeof(W);
  /// An `extend` that no product reaches.
  static constexpr s64 kNoExtend = INT64_MAX;

  ExactFloat() = default;
  /// Zero, bound to `capacity` words at `buffer`.
  ExactFloat(W* buffer, u64 capacity) : T(buffer), base(buffer), size(capacity) {}

  /// Bytes of scratch of a product or square of at most `words` words, whatever the operands.
  static u64 mul_scratch(u64 words, u64 tds);

  /// Each sets number and hash afresh.
  void set_zero();
  void set_uW(W w);
  /// The hash of b, negated for positive = 0. "ExactFloat::set_BasicInt()".
  void set_BasicInt(const BasicInt<W>& b, u8 positive);
  void set_ExactFloat(const ExactFloat& a, ParallelContext parallel);

  int signum() const { return L == 0 ? 0 : (sign ? 1 : -1); }
  s64 magnitude() const { return exp + static_cast<s64>(L); }
  /// The word at exponent e; zero outside of [exp, magnitude()).
  W word_at(s64 e) const;
  /// Internal error when the top word is zero.
  void check_normalization() const;

  /// The residue of the words, sign and exponent as they stand.
  u64 computed_hash(ParallelContext parallel) const;
  void recompute_hash(ParallelContext parallel) { hash = computed_hash(parallel); }
  /// hash_sub(hash, computed): canonically 0 when words and hash agree.
  u64 check_hash(ParallelContext parallel) const { return hash_sub(hash, computed_hash(parallel)); }
  bool is_consistent(ParallelContext parallel) const { return hash_canon(check_hash(parallel)) == 0; }

  // In place ----------------------------------------------------------------------------------------------
  void negate();
  /// *= 2^bits; needs one free word above the top unless bits is a multiple of the word.
  void mp2(s64 bits, ParallelContext parallel);
  /// mp2() with the hash left alone, for a caller that recomputes it.
  void mp2_noupdate(s64 bits, ParallelContext parallel);
  /// *= w; needs one free word above the top. w = 0 clears.
  void mul_uW(W w, ParallelContext parallel);
  /// this += b and this -= b with signs, in this number's buffer, which must reach from the lower of the two
  /// bottoms to the higher of the two tops, one word more for like signs. Throws InvalidParametersException
  /// "Amag >= Tmax", "Bmag >= Tmax", "Amag > Tmax", "Bmag > Tmax" or "Bexp < Tmin"; nothing is touched then.
  /// b shares no words.
  void add_ip(const ExactFloat& b, ParallelContext parallel);
  void sub_ip(const ExactFloat& b, ParallelContext parallel);
  /// add_ip and sub_ip in the calling thread.
  ExactFloat& operator+=(const ExactFloat& b);
  ExactFloat& operator-=(const ExactFloat& b);
  void strip_tzs();

  // Three addresses ---------------------------------------------------------------------------------------
  /// a + b and a - b as magnitudes of like sign: operands of different sign are refused with "Not implemented
  /// yet.", |a| < |b| in set_sub gives the negative difference. Capacity: from the lower bottom to the higher
  /// top, and one word for the carry of set_add.
  void set_add(const ExactFloat& a, const ExactFloat& b, ParallelContext parallel);
  void set_sub(const ExactFloat& a, const ExactFloat& b, ParallelContext parallel);
  /// a * b, capacity a.L + b.L. When a.exp + b.exp > extend, zero words are written below the product down to
  /// exponent `extend` (capacity grows by as many).
  void set_mul(const ExactFloat& a, const ExactFloat& b, const MultiplyContext& ctx, s64 extend = kNoExtend);
  void set_sqr(const ExactFloat& a, const MultiplyContext& ctx);
};

}  // namespace orl
