#include "session/ram_plan.h"

#include <algorithm>

#include "core/exceptions.h"
#include "multiply/algorithm_table.h"
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
  const orl::Need compute = constant_->need();
  const orl::Need convert = conversion_.need();
  const orl::Need prove = verification_ ? verification_->need() : orl::Need{};

  using orl::LinearHeapBuffer;
  // After the computation the number is set to a fixed layout: the integer word above precision_words - 1
  // words of fraction.
  number_words_ = std::max(compute.out_words, precision_words_);
  const u64 number_bytes = LinearHeapBuffer::cut_bytes<Word>(number_words_);
  const u64 decimal_bytes = LinearHeapBuffer::cut_bytes<Word>(decimal_words());
  const u64 output_bytes = std::max({convert.ram_bytes, prove.ram_bytes, output_buffer_bytes()});
  working_bytes_ = number_bytes + std::max(compute.ram_bytes, decimal_bytes + output_bytes);
  table_bits_ = std::max({compute.table_bits, convert.table_bits, prove.table_bits});
  // Asked now, so that a product that no row holds is refused before anything is allocated.
  orl::basic_table<Word>().get_algorithm((table_bits_ + 63) / 64);
}

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
