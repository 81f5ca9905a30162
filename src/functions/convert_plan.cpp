#include <bit>

#include "core/exceptions.h"
#include "core/round_up.h"
#include "functions/radix_conversion.h"
#include "memory/sizing_arena.h"
#include "multiply/algorithm_table.h"
#include "multiply/basecase.h"

namespace orl {

namespace {

// Largest product, in bits, that is multiplied word by word; above it a level keeps its power's transform.
// 64-bit words, 2026, AMD EPYC, Zen 4, ns per digit word: a product of 91 words 9.2 against 18.8 with a kept
// transform, of 177 words 16.1 against 16.4. Legal: any.
template <class W>
constexpr u64 kBasecaseBits = sizeof(W) == 8 ? 8192 : 4096;

// Upper levels whose shapes are lean: each keeps half of what the one above it does.
constexpr u64 kLeanLevels = 3;

template <class W>
constexpr u32 kWordBits = 8 * sizeof(W);

using Quad = __float128;

// log(m) for m in [1, 2) by the series of 2 atanh((m - 1) / (m + 1)), whose terms fall by 9 at least.
Quad log_of_mantissa(Quad m) {
  const Quad z = (m - 1) / (m + 1), square = z * z;
  Quad sum = 0;
  for (int k = 37; k >= 0; --k) sum = sum * square + Quad(1) / (2 * k + 1);
  return 2 * z * sum;
}

Quad log2_of(u64 radix) {
  const int exponent = 63 - std::countl_zero(radix);
  const Quad mantissa = static_cast<Quad>(radix) / static_cast<Quad>(u64{1} << exponent);
  const Quad ln2 = 2 * log_of_mantissa(static_cast<Quad>(4) / 3) + log_of_mantissa(static_cast<Quad>(9) / 8);
  return exponent + log_of_mantissa(mantissa) / ln2;
}

}  // namespace

PowerWords::PowerWords(u64 radix, u32 word_bits) : exact_(log2_of(radix) / static_cast<Quad>(word_bits)) {
  rough_ = static_cast<double>(exact_);
}

// A double decides unless it comes near a whole number. n log2(r) stays 2^-57 away from multiples of the word's
// bits for n below 2^50, as its continued fractions say, and the long product is right to 2^-58.
u64 PowerWords::of(u64 n) const {
  const double words = static_cast<double>(n) * rough_, margin = words * 0x1p-50;
  const u64 floor = static_cast<u64>(words);
  const double rest = words - static_cast<double>(floor);
  if (rest > margin && rest < 1 - margin) return floor;
  return static_cast<u64>(static_cast<Quad>(n) * exact_);
}

// Guard words. Let u be a unit of the lowest word of a node's fraction. A node of n digits holds at least
// n log2(r)/bits + 2 words, so u * r^n < W^-2. Multiplying by r^h turns an error of c units into at most c
// units of the low part's fraction; the product adds one for what is cut below the window and at most three
// for carries lost from trimmed operands, or one for words that are left out of a middle product and two for
// its wrapping. Under 56 levels the error of any digit string is thus below 225
// W^-2 of its last digit: for u32, less than 2^-56. All errors make fractions smaller, so a fraction that
// lies less than that above 0 comes near 1 instead, as the overlap tells; the top has no such fractions, as
// run() answers those of less than W^2 units with zeros, and W^2 units are W^-1 of the last digit or more.
template <class W>
u64 ConvertPlanP<W>::fraction_words(u64 n) const {
  return words_.of(n) + 1 + kGuardWords;
}

template <class W>
u64 ConvertPlanP<W>::odd_power_words(u64 e) const {
  return odd_words_.of(e) + 1;
}

template <class W>
ConvertPlanP<W> ConvertPlanP<W>::make(W radix, u64 digit_words, u64 tds) {
  if (radix < 2 || digit_words == 0 || tds == 0)
    throw InvalidParametersException("ConvertPlanP::make()", "Invalid Parameters");
  ConvertPlanP plan;
  plan.radix_ = radix;
  plan.shift_ = static_cast<u32>(std::countr_zero(radix));
  plan.words_ = PowerWords(radix, kWordBits<W>);
  plan.odd_words_ = PowerWords(plan.odd(), kWordBits<W>);
  plan.digit_words_ = digit_words;
  plan.tds_ = tds;
  plan.plan_levels();
  plan.plan_need();
  return plan;
}

template <class W>
void ConvertPlanP<W>::plan_levels() {
  u64 base = digit_words_;
  for (levels_ = 0; base >= kBaseDigits; ++levels_) base = (base + 1) >> 1;
  if (levels_ > kMaxLevels)
    throw LimitExceededException("ConvertPlanP::make()", u64{15} << kMaxLevels, digit_words_);
  for (u64 i = 0; i < levels_; ++i) {
    ConvertLevel& level = level_[i];
    level.digits = base << i;
    level.max_digits = i + 1 == levels_ ? digit_words_ : 2 * level.digits + 1;
    const u64 zeros = level.digits * shift_;
    level.power_exp = zeros / kWordBits<W>;
    // One word more when the bits of zeros that are no whole word push odd^e over a word's end.
    level.power_words = odd_power_words(level.digits) + 1;
    level.low_words = fraction_words(level.max_digits - level.digits);
    const u64 fraction = fraction_words(level.max_digits) - level.power_exp;
    level.transform = (fraction + level.power_words) * kWordBits<W> > kBasecaseBits<W>;
    const bool top = i + 1 == levels_;
    // In two pieces the top product needs less memory, for two transforms more. Pieces of a wrapped one share
    // a word.
    level.piece_words = level.transform && top ? (fraction + 1) / 2 : fraction;
    level.product_words = level.piece_words + level.power_words;
    if (!level.transform) continue;
    const u64 window = top ? level.low_words / 2 + 1 : level.low_words;
    // What the upper levels keep, and the top product, is most of the memory.
    if (i + kLeanLevels >= levels_) level.choice = ShapeChoice::kLean;
    const MiddleProduct<W> middle(level.power_words, window, level.choice);
    if (middle.form() == ProductForm::whole) continue;
    level.form = middle.form();
    level.piece_words = window;
    level.product_words = middle.words();
  }
}

template <class W>
u64 ConvertPlanP<W>::product_bytes(u64 level, u64 tds, bool kept) const {
  const u64 words = level_[level].product_words;
  if (!level_[level].transform)
    return LinearHeapBuffer::cut_bytes<u8>(
        mul_window_scratch<W>(0, words, words - level_[level].power_words, level_[level].power_words));
  ParametersBox box;
  const Parameters& sized = shape(level, box, nullptr, tds);
  return layout_bytes([&](auto& arena) { cut_product(arena, level, sized, kept); });
}

template <class W>
u64 ConvertPlanP<W>::node_bytes(u64 count, u64 tds) const {
  if (count == 0) return 0;
  if (tds == 1 && serial_bytes_[count] != 0) return serial_bytes_[count];
  const u64 level = count - 1;
  const u64 half = tds >> 1;
  const bool forked = forks(level, tds);
  const u64 below = node_bytes(level, forked ? tds - half : tds);
  return layout_bytes([&](auto& arena) {
    arena.leave(below);  // of a node that is too short for this level
    arena.template cut<W>(level_[level].low_words);
    arena.leave(product_bytes(level, tds, true));
    arena.leave(forked ? below + node_bytes(level, half) : below);
  });
}

template <class W>
void ConvertPlanP<W>::plan_need() {
  need_ = {};
  need_.out_words = digit_words_;
  if (levels_ == 0) return;
  for (u64 count = 1; count <= levels_; ++count) serial_bytes_[count] = node_bytes(count, 1);
  for (u64 i = 0; i < levels_; ++i)
    need_.table_bits = std::max(need_.table_bits, level_[i].product_words * kWordBits<W>);
  const u64 top = levels_ - 1, half = tds_ >> 1;
  need_.ram_bytes = layout_bytes([&](auto& arena) {
    auto first = arena;
    cut_powers(arena, first);
    first.leave(product_bytes(top, tds_, false));
    cut_kept(arena);
    arena.leave(forks(top, tds_) ? node_bytes(top, tds_ - half) + node_bytes(top, half)
                                 : node_bytes(top, tds_));
  });
}

template class ConvertPlanP<u32>;
template class ConvertPlanP<u64>;

}  // namespace orl
