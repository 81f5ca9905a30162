#include "session/ram_plan.h"

#include <algorithm>

#include "core/exceptions.h"
#include "memory/sizing_arena.h"
#include "multiply/algorithm_table.h"
#include "numbers/ram_store.h"
#include "session/digit_output.h"

namespace orvane {

u64 decimal_words_for(u64 decimal_digits) {
  return (decimal_digits + kGuardDigits + orl::kDecimalDigitsPerWord<Word> - 1) /
         orl::kDecimalDigitsPerWord<Word>;
}

RamPlan::RamPlan(const Constant& constant, u64 precision_words, u64 decimal_digits, u64 tds, bool verify)
    : precision_words_(precision_words),
      constant_(constant.make_ram(precision_words, tds)),
      conversion_(
          orl::ConvertPlanP<Word>::make(orl::kDecimalRadix<Word>, decimal_words_for(decimal_digits), tds)) {
  if (verify)
    verification_ = std::make_unique<orl::VerifyConversion<Word>>(orl::kDecimalRadix<Word>,
                                                                  decimal_words_for(decimal_digits), tds);
  // After the computation the number is set to a fixed layout: the integer word above precision_words - 1
  // words of fraction.
  number_words_ = std::max(constant_->need().out_words, precision_words_);
  working_bytes_ = orl::layout_bytes([&](orl::SizingArena& arena) { lay_out(arena); });
  table_bits_ = std::max(constant_->need().table_bits, conversion_.need().table_bits);
  if (verification_) table_bits_ = std::max(table_bits_, verification_->need().table_bits);
  // Asked now, so that a product that no row holds is refused before anything is allocated.
  orl::basic_table<Word>().get_algorithm((table_bits_ + 63) / 64);
}

template <class Arena>
RamPlan::BuffersOf<Arena> RamPlan::lay_out(Arena arena) const {
  BuffersOf<Arena> buffers{orl::RamStore<Word>::number(arena, number_words_, "number"), arena, nullptr,
                           arena};
  arena.leave(constant_->need().ram_bytes);
  arena.leave(output_buffer_bytes());
  buffers.digits = arena.template cut<Word>(decimal_words());
  arena.leave(conversion_.need().ram_bytes);
  if (verification_) arena.leave(verification_->need().ram_bytes);
  arena.leave(output_buffer_bytes());
  buffers.above_digits = arena;
  return buffers;
}

RamPlan::Buffers RamPlan::cut(orl::LinearHeapBuffer heap) const { return lay_out(heap); }

u64 RamPlan::table_bytes() const { return orl::basic_table<Word>().table_bytes(table_bits_); }

u64 largest_possible_digits(const Constant& constant, u64 tds, bool verify, u64 limit) {
  const auto possible = [&](u64 digits) {
    try {
      const Precision precision{digits + kGuardDigits};
      RamPlan(constant, precision.words(), digits, tds, verify);
      return true;
    } catch (const orl::LimitExceededException&) {
      return false;
    }
  };
  u64 low = 0, high = limit + 1;  // low is possible (or none is), high is not, or is past the limit
  for (u64 step = kMinDecimalDigits; step < high && possible(step); step *= 2) low = step;
  if (low == 0) return 0;
  high = std::min(high, 2 * low);
  while (high - low > 1) {
    const u64 middle = low + (high - low) / 2;
    (possible(middle) ? low : high) = middle;
  }
  return low;
}

}  // namespace orvane
