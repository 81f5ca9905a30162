#include "session/ram_plan.h"

#include <gtest/gtest.h>

#include "core/exceptions.h"
#include "multiply/algorithm_table.h"
#include "session/digit_output.h"

namespace orvane {
namespace {

RamPlan plan_for(const Constant& constant, u64 digits, u64 tds, bool verify) {
  return {constant, Precision{digits + kGuardDigits}.words(), digits, tds, verify};
}

TEST(RamPlan, HoldsEveryStage) {
  using orl::LinearHeapBuffer;
  for (const u64 index : {u64{0}, u64{1}, u64{2}, u64{3}}) {
    for (const u64 digits : {u64{100}, u64{12345}, u64{1000000}}) {
      for (const u64 tds : {u64{1}, u64{4}}) {
        const auto constant = make_constant(index);
        const RamPlan plan = plan_for(*constant, digits, tds, true);
        const u64 number = LinearHeapBuffer::cut_bytes<Word>(plan.number_words());
        const u64 decimal = LinearHeapBuffer::cut_bytes<Word>(plan.decimal_words());
        EXPECT_GE(plan.working_bytes(), number + plan.constant().need().ram_bytes);
        EXPECT_GE(plan.working_bytes(), number + decimal + plan.conversion().need().ram_bytes);
        EXPECT_GE(plan.working_bytes(), number + decimal + plan.verification()->need().ram_bytes);
        EXPECT_GE(plan.working_bytes(), number + decimal + output_buffer_bytes());
        EXPECT_GE(plan.number_words(), plan.precision_words());
        EXPECT_GE(plan.number_words(), plan.constant().need().out_words);
        EXPECT_GE(19 * plan.decimal_words(), digits + kGuardDigits);
        for (const u64 bits : {plan.constant().need().table_bits, plan.conversion().need().table_bits,
                               plan.verification()->need().table_bits})
          EXPECT_GE(plan.table_bits(), bits);
        EXPECT_EQ(plan_for(*constant, digits, tds, false).verification(), nullptr);
      }
    }
  }
}

TEST(RamPlan, RefusesOneDigitMoreThanTheLargestPossible) {
  const orl::ScopedBasicTable<Word> table{{"BKT", 5120}, {"FFT", 0x1000000}};
  for (const u64 index : {u64{0}, u64{3}}) {
    const auto constant = make_constant(index);
    const u64 largest = largest_possible_digits(*constant, 2, true, 1000000000);
    EXPECT_GT(largest, 1000000u);
    EXPECT_LT(largest, 1000000000u) << "no limit was met";
    EXPECT_NO_THROW(plan_for(*constant, largest, 2, true));
    EXPECT_THROW(plan_for(*constant, largest + 1, 2, true), orl::LimitExceededException);
  }
  EXPECT_EQ(largest_possible_digits(*make_constant(3), 2, true, 5000), 5000u);
}

}  // namespace
}  // namespace orvane
