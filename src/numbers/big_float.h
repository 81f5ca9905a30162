// BigFloat: the truncating float of Newton iterations and constant formulas.
//
// Value      (-1)^(sign is 0) * (sum of T[i] * W^i) * W^exp, W = 2^(bits of a word); exponents count words.
//            L = 0 is zero, whose sign means nothing. If L > 0 the top word is not zero; bottom words may be.
// Precision  p words: an operation keeps at most p + 2 and truncates, never rounds; the lowest two are
// guards. Buffer     [base, base + size), borrowed; a writer that starts afresh sets T = base, truncation
// moves T up.
//            Every writer checks size first and throws BufferTooSmallException under its own name.
// Aliasing   a result may share no words with an operand, except where "in place" is said.
// Scratch    products take ctx.scratch, sized by mul_scratch / sqr_scratch; nothing else takes any.
#pragma once

#include "core/types.h"
#include "multiply/algorithm.h"

namespace orl {

template <class W>
class BasicInt;
template <class W>
struct BigInt;
template <class W>
struct ExactFloat;

inline constexpr u64 kBigFloatExtraPrecision = 2;  ///< guard words

template <class W>
struct BigFloat {
  W* T = nullptr;
  u64 L = 0;
  s64 exp = 0;
  u8 sign = 0;  ///< 1 positive, 0 negative
  W* base = nullptr;
  u64 size = 0;

  BigFloat() = default;
  /// Zero, bound to `capacity` words at `buffer`.
  BigFloat(W* buffer, u64 capacity) : T(buffer), base(buffer), size(capacity) {}

  static constexpr u32 word_bits = 8 * sizeof(W);

  // Sizes -------------------------------------------------------------------------------------------------
  /// Bytes of scratch of set_mul / set_sqr at precision p, whatever the operands. Not decreasing in p.
  static u64 mul_scratch(u64 p, u64 tds);
  static u64 sqr_scratch(u64 p, u64 tds);
  /// Words that the result of an operation at precision p may take; enough for every set_ method below.
  static constexpr u64 capacity(u64 p) { return p + 3; }

  // Setting -----------------------------------------------------------------------------------------------
  void set_zero();
  void set_uW(W w);
  void set_sW(std::make_signed_t<W> w);
  /// x * W^exponent, exact, without zero words below; capacity 3 (u32) or 2 (u64). "BigFloat::set_double()".
  void set_double(double x, s64 exponent = 0);
  void set_BasicInt(const BasicInt<W>& b);
  void set_ExactFloat(const ExactFloat<W>& e, ParallelContext parallel);
  void set_BigInt(const BigInt<W>& i, ParallelContext parallel);
  /// The top min(p + 2, a.L) words of a.
  void set_BigFloat(u64 p, const BigFloat& a, ParallelContext parallel);

  // Queries -----------------------------------------------------------------------------------------------
  int signum() const { return L == 0 ? 0 : (sign ? 1 : -1); }
  /// exp + L: the exponent above the top word.
  s64 magnitude() const { return exp + static_cast<s64>(L); }
  /// The word with exponent e; 0 outside of the number.
  W word_at(s64 e) const;
  /// Compares magnitudes: -1, 0 or 1.
  static int cmp(const BigFloat& a, const BigFloat& b);
  static int cmp_signed(const BigFloat& a, const BigFloat& b);
  /// (exp + L - 1) * word_bits + significant bits of the top word; 0 for zero.
  s64 bit_length() const;
  /// Mantissa in (-1, 1), truncated to 53 bits of the top words; value = mantissa * W^e.
  double to_double(s64* e) const;
  /// The residue of the value modulo 2^61 - 1, from the words, sign and exponent as they stand; lazy.
  u64 computed_hash(ParallelContext parallel) const;
  /// Internal error "BigFloat::check_normalization(): Top word is zero.".
  void check_normalization() const;

  // In place ----------------------------------------------------------------------------------------------
  void negate() { sign ^= 1; }
  /// *= 2^bits, bits may be negative. Needs one free word above the top unless bits is a multiple of the
  /// word.
  void mp2(s64 bits, ParallelContext parallel);
  /// Drops words below the top p + 2.
  void truncate(u64 p);
  /// Cuts all words with exponent e or higher, and strips.
  void truncate_above(s64 e);
  void strip_tzs();
  /// Drops zero bottom words in multiples of 16, so that T keeps its alignment.
  void strip_tzs_aligned();
  void strip_top_zeros();
  void strip_top_zeros(ParallelContext parallel);
  /// Drops all-ones top words, then zero top words.
  void strip_top_ones();
  /// Adds one to the word with exponent magnitude() - n - 1, rippling upward; zeros are supplied when the
  /// number ends above that word. "BigFloat::purturb_up()" when the buffer cannot hold the result.
  void purturb_up(u64 n);
  void mul_uW(W w, ParallelContext parallel);
  /// Adds w * W^e when e lies in [exp, exp + L]: throws InvalidParametersException otherwise, and the caller
  /// takes set_uadd. "BigFloat::add_ip()".
  void add_ip(W w, s64 e);

  // Precision p -------------------------------------------------------------------------------------------
  /// Top p + 1 words of a, times w. Capacity p + 2.
  void set_mul_uW(u64 p, const BigFloat& a, W w, ParallelContext parallel);
  /// Top p + 1 words of a, times a signed 64-bit multiplier, which may be two words of u32. Capacity p + 3.
  void set_mul_sL(u64 p, const BigFloat& a, s64 w, ParallelContext parallel);
  /// a / w to p + 2 words. Throws ArithmeticException "Divide by zero."; powers of two other than 1 and
  /// divisors with the top bit are refused by ShoupDivider.
  void set_div_sW(u64 p, const BigFloat& a, std::make_signed_t<W> w, ParallelContext parallel);

  /// |a| + |b|, at most p + 1 words and one for the carry. sign is 1.
  void set_uadd(u64 p, const BigFloat& a, const BigFloat& b, ParallelContext parallel);
  /// |a| - |b| for |a| >= |b|; UnsupportedNegativeException "A negative value was encountered." otherwise.
  void set_usub(u64 p, const BigFloat& a, const BigFloat& b, ParallelContext parallel);
  /// |a| - |b| with the given sign, in the window of p + 1 words under exponent `top`. The difference must
  /// lie in [0, W^top - W^(top - p)): words of a and b at `top` and above are not read, they agree or cancel.
  void set_rsub(u64 p, const BigFloat& a, const BigFloat& b, s64 top, u8 result_sign,
                ParallelContext parallel);
  /// a + b and a - b with signs.
  void set_add(u64 p, const BigFloat& a, const BigFloat& b, ParallelContext parallel);
  void set_sub(u64 p, const BigFloat& a, const BigFloat& b, ParallelContext parallel);

  /// a * b; operands are cut to p + 2 words, as is the result. Exact when the whole product fits p + 2 words.
  void set_mul(u64 p, const BigFloat& a, const BigFloat& b, const MultiplyContext& ctx);
  /// set_mul in the calling thread.
  void set_mul_small(u64 p, const BigFloat& a, const BigFloat& b, const MultiplyContext& ctx);
  void set_sqr(u64 p, const BigFloat& a, const MultiplyContext& ctx);
};

}  // namespace orl
