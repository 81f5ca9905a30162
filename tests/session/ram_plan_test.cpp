#include "session/ram_plan.h"

#include <gtest/gtest.h>

#include <ctime>

#include "core/exceptions.h"
#include "multiply/algorithm_table.h"
#include "support/processor_time.h"

namespace orvane {
namespace {

RamPlan plan_for(const Constant& constant, u64 digits, u64 tds, bool verify) {
  return {constant, Precision{digits + kGuardDigits}.words(), digits, tds, verify};
}

/// What this version computes.
std::vector<std::unique_ptr<Constant>> every_algorithm() {
  std::vector<std::unique_ptr<Constant>> all;
  for (u64 i = 0; i < kConstantCount; ++i)
    for (const AlgorithmRow& row : make_constant(i)->algorithms()) {
      auto constant = make_constant(i);
      constant->set_algorithm(row.key);
      if (constant->unavailable().empty()) all.push_back(std::move(constant));
    }
  return all;
}

// That the memory of a plan is enough, and little more than what is used, is shown by runs in exactly that much
// (tests/app/session_memory_test.cpp). Here: it stays in hand where no run can go.
TEST(RamPlan, GrowsLittleWithTasksAtTheLargestSizes) {
  for (const auto& constant : every_algorithm()) {
    for (const u64 digits : {u64{1000000000000}, u64{1000000000000000}}) {
      SCOPED_TRACE(constant->name() + " " + constant->algorithm_key() + " " + std::to_string(digits));
      u64 alone = 0;
      const bool fastest = constant->algorithm_index() == constant->default_algorithm();
      for (const u64 tds : {u64{1}, u64{2}, u64{7}, u64{128}, u64{65536}}) {
        if (!fastest && tds != 1 && tds != 128) continue;
        const std::clock_t start = std::clock();  // of this process, whatever else runs
        const RamPlan plan = plan_for(*constant, digits, tds, true);
        // Huvent's series, of 45 times the precision, takes two seconds at the most.
        EXPECT_LT(std::clock() - start, (fastest ? 1 : 3) * orl::test::kProcessorSecond) << tds;
        const u64 bytes = plan.working_bytes() + plan.table_bytes();
        if (tds == 1) alone = bytes;
        if (tds <= 128) {
          EXPECT_LE(bytes, alone + alone / 4) << tds;
        }
      }
    }
  }
}

// The last of the converted digits may be off by one: no more than the guard digits may pass it on.
TEST(RamPlan, ConvertsTheGuardDigits) {
  for (const u64 digits : {100, 1000, 1008, 1009, 1000000}) {
    const RamPlan plan = plan_for(*make_constant(0), digits, 1, true);
    EXPECT_GE(plan.decimal_words() * 19, digits + kGuardDigits);
    EXPECT_LE(plan.decimal_words() * 19, digits + kGuardDigits + 18);
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
