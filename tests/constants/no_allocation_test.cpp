// Sums and constants allocate nothing, however many digits they have.
#include <gtest/gtest.h>

#include "constants/e.h"
#include "constants/euler.h"
#include "constants/lemniscate.h"
#include "constants/log.h"
#include "constants/one_series.h"
#include "constants/pi.h"
#include "constants/roots.h"
#include "functions/function_runner.h"
#include "support/allocation_counter.h"

namespace orl {
namespace {

u64 allocations(const ConstantPlan<u64>& plan, u64 tds, const char* framework) {
  const Need need = plan.need();
  test::Runner<u64> runner(need.table_bits, framework);
  test::AlignedBytes heap(need.ram_bytes);
  std::vector<u64> words(need.out_words);
  BigFloat<u64> out(words.data(), need.out_words);
  const RunContext ctx = runner.context(tds);
  const test::AllocationWatch watch;
  NullStackFrame frame;
  plan.run(ctx, frame, out, {heap.data(), need.ram_bytes});
  return watch.calls();
}

TEST(SeriesAllocations, AreNone) {
  using Store = RamStore<u64>;
  for (const u64 digits : {10000, 1000000}) {
    const u64 p = digits * 3322 / 64000 + 2;
    for (const u64 tds : {1, 4}) {
      const PiFormula reduced{PiSeries::kRamanujan, 1, SeriesMemory::kReduced};
      EXPECT_EQ(allocations(*make_pi<Store>({}, p, tds), tds, "none"), 0u);
      EXPECT_EQ(allocations(*make_pi<Store>(reduced, p, tds), tds, "none"), 0u);
      EXPECT_EQ(allocations(*make_e<Store>({ETaylor::kAlternating, 1}, p, tds), tds, "none"), 0u);
      EXPECT_EQ(allocations(*make_one_series<Store>(OneSeries::kZeta3Zuniga, 1, p, tds), tds, "none"), 0u);
      EXPECT_EQ(allocations(*make_euler<Store>({}, p / 2, tds), tds, "none"), 0u);
      EXPECT_EQ(allocations(*make_golden_ratio<Store>(1, p, tds), tds, "none"), 0u);
      EXPECT_EQ(allocations(*make_lemniscate<Store>({LemniscateAlgorithm::kAgmPi}, p, tds), tds, "none"), 0u);
      EXPECT_EQ(allocations(*make_log_machin<Store>(2, {{4, 6}, {2, 99}}, p, tds), tds, "none"), 0u);
    }
  }
}

}  // namespace
}  // namespace orl
