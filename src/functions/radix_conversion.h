// From a binary fraction to digit words in radix r, and the proof that nothing was lost on the way.
//
// Digits   n words, little-endian in word order: digits[n-1] is the most significant, the value is
//          sum digits[i] * r^i = floor(fraction * r^n). Where fraction * r^n is less than 2^-32 above a whole
//          number, but not one, it may be one less. The usual radix is 10^19 for u64 and 10^9 for u32.
// Method   scaled fractions: the fraction of f * r^h holds the digits below the top h. Each half of a node is
//          converted from as many binary words as its digits can depend on; the high half yields one word
//          more, which must agree with the top word of the low half.
// Powers   r^e = odd^e * 2^(s e), whole words of zeros cut into an exponent: a stored power of 10^19 has 0.69
//          words per digit word, and the operand loses the words that would only reach the integer part. A
//          power's transform is made once and kept, in memory that the first and largest product has left.
// Products middle products: neither the integer part is wanted nor what lies below the digits, so transforms
//          that wrap are as long as the operand and not as the product.
// Threads  the upper log2(tds) levels fork, at most 8, a large top level excepted; table and plan are
//          read-only then.
// Source   the scaled fractions of D. J. Bernstein, "Scaled remainder trees", 2004, for one modulus.
#pragma once

#include <algorithm>
#include <array>

#include "core/types.h"
#include "memory/linear_buffer.h"
#include "multiply/algorithm_table.h"
#include "multiply/transform_words.h"
#include "numbers/big_float.h"
#include "numbers/run_context.h"

namespace orl {

/// The largest power of ten that fits a word, and its number of digits.
template <class W>
inline constexpr W kDecimalRadix = sizeof(W) == 8 ? static_cast<W>(10000000000000000000u) : W{1000000000u};
template <class W>
inline constexpr u64 kDecimalDigitsPerWord = sizeof(W) == 8 ? 19 : 9;

/// One level of a conversion: nodes that are split by the power r^digits.
struct ConvertLevel {
  u64 digits = 0;          ///< n0 << level: words of a full high part
  u64 max_digits = 0;      ///< words of the largest node that is split here
  u64 power_words = 0;     ///< bound of the stored power; a square has one more before its zeros are cut
  u64 power_exp = 0;       ///< whole words of zeros cut from it
  u64 low_words = 0;       ///< binary words of the largest low part's fraction
  u64 piece_words = 0;     ///< the product is made in pieces: two at the top, else one. Their words of the
                           ///< fraction, or of the window when the form is a wrapped one
  u64 product_words = 0;   ///< length of the shape that a piece takes
  bool transform = false;  ///< large enough for a kept transform
  ProductForm form = ProductForm::whole;
  ShapeChoice choice = ShapeChoice::kRow;  ///< lean at the levels that decide the memory
};

/// Words of binary that powers of one radix take, exactly.
class PowerWords {
 public:
  PowerWords() = default;
  /// For words of `word_bits` bits.
  PowerWords(u64 radix, u32 word_bits);
  /// Whole words of radix^n: floor(n log2(radix) / word_bits), for n below 2^50.
  u64 of(u64 n) const;

 private:
  double rough_ = 0;      // log2(radix) / word_bits
  __float128 exact_ = 0;  // to 2^-108
};

/// Scratch of sqr_bounded for the square of a power of at most `words` words, whose topmost words may be zeros that
/// are left out.
template <class W>
u64 power_square_bytes(u64 words, u64 tds) {
  constexpr u64 kZeros = 6;
  return basic_table<W>()
      .max_bounded_sizes(2 * words, tds, 2 * words - std::min(kZeros, 2 * words))
      .square_bytes;
}

/// A conversion of fractions to `digit_words` words in one radix. Built once, immutable, may be shared.
template <class W>
class ConvertPlanP {
 public:
  static constexpr u64 kMaxLevels = 56;
  /// A node of fewer digit words is converted word by word.
  static constexpr u64 kBaseDigits = 16;
  /// Binary words beyond what the digits of a node span: the errors of all levels stay below one of them.
  static constexpr u64 kGuardWords = 2;
  /// Bits of the digit words from which on a top level counts as large.
  static constexpr u64 kInTurnBits = 0x400000;

  /// Throws InvalidParametersException ("ConvertPlanP::make()", "Invalid Parameters") for a radix below 2, no
  /// words or tds 0.
  static ConvertPlanP make(W radix, u64 digit_words, u64 tds);

  W radix() const { return radix_; }
  /// radix = odd() << shift(); a power of two has odd() 1.
  W odd() const { return radix_ >> shift_; }
  u32 shift() const { return shift_; }
  u64 digit_words() const { return digit_words_; }
  u64 tds() const { return tds_; }
  u64 levels() const { return levels_; }
  const ConvertLevel& level(u64 index) const { return level_[index]; }
  /// Levels below this one do not fork.
  u64 thread_level() const { return levels_ > 8 ? levels_ - 8 : 0; }
  /// Whether the halves of a level's nodes run at the same time on `tds` tasks. Those of a large top level
  /// run one after the other: their products are large enough for all tasks, and one half's memory serves
  /// both.
  bool forks(u64 level, u64 tds) const {
    if (tds < 2 || level < thread_level()) return false;
    return level + 1 < levels_ || digit_words_ < kInTurnBits / (8 * sizeof(W));
  }

  /// Binary words of fraction that n digit words are made from.
  u64 fraction_words(u64 n) const;
  /// Words of x below the point that can matter; what lies under them is not read.
  u64 fraction_words() const { return fraction_words(digit_words_); }
  /// Words of odd^e.
  u64 odd_power_words(u64 e) const;
  /// out_words is digit_words().
  Need need() const { return need_; }
  /// Bytes for nodes that may use levels [0, count) and `tds` tasks, beside tables and kept transforms.
  u64 node_bytes(u64 count, u64 tds) const;
  /// The shape of a level's products for `tds` tasks; `tables` may be null when only sizes are wanted.
  const Parameters& shape(u64 level, ParametersBox& box, const TransformTables* tables, u64 tds) const {
    const ConvertLevel& l = level_[level];
    return basic_table<W>().parameters_for(box, tables, l.product_words, tds, l.choice);
  }
  /// Bytes of one product of a level: with its kept transform at hand, or making the power's transform too.
  u64 product_bytes(u64 level, u64 tds, bool kept) const;

  /// What a product by transforms works in.
  struct ProductAreas {
    void* F;    ///< of the fraction
    void* G;    ///< of the power; null where it is kept
    void* tmp;  ///< working scratch
    W* result;  ///< of a wrapped product
    W* upper;   ///< the upper piece of a top product in pieces
  };
  /// Cuts what a product of the level takes, in a shape for its words; G too where no transform of the power is kept.
  template <class Arena>
  ProductAreas cut_product(Arena& arena, u64 level, const Parameters& shape, bool kept) const {
    const ConvertLevel& l = level_[level];
    ProductAreas areas{};
    areas.F = arena.template cut<u8>(shape.transform_size());
    if (!kept) areas.G = arena.template cut<u8>(shape.transform_size());
    areas.tmp = arena.template cut<u8>(shape.scratch_size());
    areas.result = arena.template cut<W>(MiddleShape<W>{l.form, shape}.result_bytes() / sizeof(W));
    if (l.form == ProductForm::whole && level + 1 == levels_)
      areas.upper = arena.template cut<W>(l.piece_words);
    return areas;
  }
  /// Where the powers lie, and the low part's fraction of the top node.
  struct PowerAreas {
    std::array<W*, kMaxLevels> powers{};
    W* low = nullptr;
  };
  /// Cuts the powers below the top and the fraction. The top power, which nobody needs behind the first product, is
  /// cut from `first`, which takes the rest of `arena` otherwise: for the squares and that product.
  template <class Arena>
  PowerAreas cut_powers(Arena& arena, Arena& first) const {
    PowerAreas areas;
    const u64 top = levels_ - 1;
    for (u64 i = 0; i < top; ++i) areas.powers[i] = arena.template cut<W>(level_[i].power_words + 1);
    areas.low = arena.template cut<W>(level_[top].low_words);
    first = arena;
    areas.powers[top] = first.template cut<W>(level_[top].power_words + 1);
    for (u64 i = 0; i < top; ++i) first.leave(power_square_bytes<W>(level_[i].power_words, tds_));
    return areas;
  }
  /// The kept transforms of the powers below the top; null where a level has none. They are made in what lies
  /// behind them.
  template <class Arena>
  std::array<void*, kMaxLevels> cut_kept(Arena& arena) const {
    std::array<void*, kMaxLevels> kept{};
    ParametersBox box;
    u64 scratch_bytes = 0;
    for (u64 i = 0; i + 1 < levels_; ++i) {
      if (!level_[i].transform) continue;
      const MultiplySizes sizes = shape(i, box, nullptr, tds_).sizes();
      kept[i] = arena.template cut<u8>(sizes.transform_bytes);
      scratch_bytes = std::max(scratch_bytes, sizes.scratch_bytes);
    }
    arena.leave(LinearHeapBuffer::cut_bytes<u8>(scratch_bytes));
    return kept;
  }

  /// digits[0, n) = frac(|x|) in radix r; the integer part of x is not converted, x is not changed and may be
  /// zero. Throws InvalidParametersException when x is below 1/W or ctx has other tds than the plan,
  /// AlgorithmFailedException "Overlap Mismatch" (CBRv2::convert_L()) or "Power Hash Mismatch"
  /// (CBRv2::CheckP()) when something has miscomputed.
  void run(const RunContext& ctx, NullStackFrame& frame, W* digits, const BigFloat<W>& x,
           LinearHeapBuffer heap) const;

 private:
  ConvertPlanP() = default;
  void plan_levels();
  void plan_need();

  W radix_ = 0;
  u32 shift_ = 0;
  PowerWords words_;      // of r
  PowerWords odd_words_;  // of its odd part
  u64 digit_words_ = 0;
  u64 tds_ = 1;
  u64 levels_ = 0;
  std::array<ConvertLevel, kMaxLevels> level_{};
  std::array<u64, kMaxLevels + 1> serial_bytes_{};  // node_bytes(count, 1)
  Need need_;
};

/// The proof of a conversion. F being the m binary words that the digits D were made from, it forms the part
/// E that the digits drop, by a low product of its own with a power of its own, and compares the hashes of F
/// * r^n, from the binary words, and of D * W^m + E, from the digit words and E.
template <class W>
class VerifyConversion {
 public:
  /// Parameters and failures as of ConvertPlanP::make.
  VerifyConversion(W radix, u64 digit_words, u64 tds);

  Need need() const { return need_; }

  /// Both sides of the identity.
  struct Result {
    u64 digits_hash = 0;  ///< R: of D * W^m + E, canonical
    u64 binary_hash = 0;  ///< B: of F * r^n, canonical
    bool ok = false;      ///< they agree, and every digit word is below the radix
  };
  /// `digits` as ConvertPlanP::run gave them for `x`. Throws BufferTooSmallException for a short heap.
  Result run(const RunContext& ctx, NullStackFrame& frame, const W* digits, const BigFloat<W>& x,
             LinearHeapBuffer heap) const;

 private:
  Result prove(const RunContext& ctx, const W* digits, const BigFloat<W>& x, LinearHeapBuffer heap) const;
  struct Areas {
    W* power;    ///< r^n, and every other power on the way to it
    W* dropped;  ///< E, and the powers in between
  };
  template <class Arena>
  Areas lay_out(Arena& arena) const;

  ConvertPlanP<W> plan_;
  u64 zero_words_ = 0;        // whole words of zeros under r^n
  u64 power_words_ = 0;       // of the rest of r^n
  u64 half_power_words_ = 0;  // of r to the half of the digits, the last power to be squared
  u64 half_words_ = 0;        // of a half of E; its products are twice as long
  u64 dropped_words_ = 0;     // of E above those zeros, and one word that must equal D's lowest
  Need need_;
};

/// The binary words of |x| below the point, top word first at exponent -1: the highest `limit` that x stores.
template <class W>
struct FractionView {
  const W* T = nullptr;
  u64 L = 0;
};
/// Throws InvalidParametersException when 0 < |x| < 1/W.
template <class W>
FractionView<W> fraction_of(const BigFloat<W>& x, u64 limit);

namespace CBRv2 {

/// A stored power: T[0, L) * W^exp.
template <class W>
struct Power {
  W* T = nullptr;
  u64 L = 0;
  u64 exp = 0;
};

/// Compares the hash of a power with radix^e. Prints both hashes and throws AlgorithmFailedException
/// "Power Hash Mismatch" when they differ; InvalidParametersException "Radix is less than 2.".
template <class W>
void CheckP(W radix, u64 e, const Power<W>& power, const RunContext& ctx);

/// Makes the two halves of `digits` words agree: high[0, length) stands above a word that both have computed,
/// the low part as `low_word`, which stays, and the high part as `high_word`. A difference of a unit across
/// zero ripples through the high part. Throws AlgorithmFailedException "Overlap Mismatch" when they differ by
/// more than a unit.
template <class W>
void match_overlap(W radix, W* high, u64 length, W low_word, W high_word, u64 digits);

/// Makes one number of two windows of a product: upper[0, length), whose lowest word the lower window has too, as
/// `below`. The upper one is off by a few units there, which are added. Throws AlgorithmFailedException "Overlap
/// Mismatch" when it is off by more than kMaxWindowOff.
template <class W>
void join_windows(W* upper, u64 length, W below, ParallelContext parallel);
/// A wrapped product is off by at most two units of its lowest word, and one more for operand words left out; a carry
/// into the lower window's highest word is one more.
inline constexpr int kMaxWindowOff = 4;

/// powers[i] = radix^(n0 << i) for every level of the plan, each checked, in `areas`; `heap` is scratch.
template <class W>
void orl_CBRv2_ci_btrf_build_table(const ConvertPlanP<W>& plan, const RunContext& ctx, Power<W>* powers,
                                   const typename ConvertPlanP<W>::PowerAreas& areas, LinearHeapBuffer heap);

}  // namespace CBRv2

}  // namespace orl
