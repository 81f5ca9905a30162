// From a binary fraction to digit words in radix r, and the proof that nothing was lost on the way.
//
// Digits     n words, little-endian in word order: digits[n-1] is the most significant, the value is
//            sum digits[i] * r^i = floor(fraction * r^n), at most one unit of digits[0] too low. The usual radix is
//            10^19 for u64 and 10^9 for u32.
// Method     scaled fractions: the fraction of f * r^h holds the digits below the top h. Each half of a node is
//            converted from as many binary words as its digits can depend on; the high half yields one word more,
//            which must agree with the top word of the low half.
// Powers     r^e = odd^e * 2^(s e): whole words of zeros are cut into an exponent, so a stored power of 10^19 has
//            0.69 words a digit word, and the operand loses the words that only reach the integer part.
// Threads    the upper log2(tds) levels fork, at most 8; the table is read-only while the conversion runs.
#pragma once

#include <array>

#include "frame/types.h"
#include "numbers/big_float.h"
#include "numbers/ram_store.h"
#include "numbers/run_context.h"
#include "parallel/linear_buffer.h"

namespace orl {

/// The largest power of ten that fits a word, and its number of digits.
template <class W>
inline constexpr W kDecimalRadix = sizeof(W) == 8 ? static_cast<W>(10000000000000000000u) : static_cast<W>(1000000000u);
template <class W>
inline constexpr u64 kDecimalDigitsPerWord = sizeof(W) == 8 ? 19 : 9;

/// A conversion of fractions to `digit_words` words in one radix. Built once, immutable, may be shared.
template <class W>
class ConvertPlanP {
 public:
  /// Throws InvalidParametersException ("ConvertPlanP::make()", "Invalid Parameters") for a radix below 2 or no words.
  static ConvertPlanP make(W radix, u64 digit_words, u64 tds);

  W radix() const { return radix_; }
  u64 digit_words() const { return digit_words_; }
  u64 tds() const { return tds_; }
  /// Binary words of fraction that the digits can depend on; what lies below them in x is not read.
  u64 fraction_words() const { return fraction_words_; }
  /// out_words is digit_words().
  Need need() const { return need_; }

  /// digits[0, n) = floor(frac(|x|) * r^n); the integer part of x is not converted. x may be zero and is not changed.
  /// Throws AlgorithmFailedException "Overlap Mismatch" (CBRv2::convert_L()) or "Power Hash Mismatch"
  /// (CBRv2::CheckP()) when something has miscomputed, InvalidParametersException for a ctx of more tds than the plan.
  void run(const RunContext& ctx, W* digits, const BigFloat<W>& x, LinearHeapBuffer heap) const;

 private:
  W radix_ = 0;
  u64 digit_words_ = 0;
  u64 tds_ = 1;
  u64 fraction_words_ = 0;
  Need need_;
};

/// The check of a conversion: forms the part E that the digits drop, F * r^n = D * W^m + E with F the top m binary
/// words of the fraction, and compares the hashes of both sides. D, F and the integer parts come from the digit words
/// and the binary words as they are stored; E is a low product of its own.
template <class W>
class VerifyConversion {
 public:
  VerifyConversion(W radix, u64 digit_words, u64 tds);

  Need need() const { return need_; }

  struct Result {
    u64 digits_hash = 0;  ///< R: hash of D * W^m + E, canonical
    u64 binary_hash = 0;  ///< B: hash of F * r^n, canonical
    bool ok = false;      ///< both agree and E is a proper remainder
  };
  Result run(const RunContext& ctx, const W* digits, const BigFloat<W>& x, LinearHeapBuffer heap) const;

 private:
  W radix_;
  u64 digit_words_;
  u64 tds_;
  Need need_;
};

namespace CBRv2 {

/// Compares the hash of T[0, L) * W^exp with radix^e. Prints both and throws AlgorithmFailedException
/// "Power Hash Mismatch" when they differ, InvalidParametersException "Radix is less than 2.".
template <class W>
void CheckP(W radix, u64 e, const W* T, u64 L, u64 exp, ParallelContext parallel);

}  // namespace CBRv2

}  // namespace orl
