// A flipped bit in an operand or a result of a merge or a fold ends in the modular check's exception.
#include <gtest/gtest.h>

#include <cstring>

#include "constants/series_runner.h"
#include "core/exceptions.h"
#include "core/fault_point.h"
#include "support/random_words.h"

namespace orl {
namespace {

/// Which call of which site flips which bit; counts calls when it names none.
struct {
  const char* site = "";
  u64 countdown = ~u64{0};
  u64 bit = 0;
  u64 seen = 0;
} fault;

}  // namespace

void fault_point(const char* site, void* data, u64 bytes) {
  if (std::strcmp(site, fault.site) != 0) return;
  ++fault.seen;
  if (fault.countdown-- != 0) return;
  const u64 bit = fault.bit % (8 * bytes);
  static_cast<u8*>(data)[bit / 8] ^= static_cast<u8>(1u << bit % 8);
}

namespace {

template <class W>
class MergeFaults : public testing::Test {
 protected:
  /// Sums the series; true when the check caught something.
  bool caught(const PSR_SeriesB<W>& plan, test::Runner<W>& runner) {
    test::AlignedBytes heap(plan.need().ram_bytes);
    SeriesFraction<W> fraction;
    try {
      plan.run_fraction(runner.context(1), fraction, {heap.data(), plan.need().ram_bytes});
    } catch (const BSRModularCheckFailedException& e) {
      EXPECT_EQ(e.function(), "orc_Verify_BSR()");
      EXPECT_EQ(e.message(), "Modular Redundancy Check Failed");
      EXPECT_LT(e.a(), e.b());
      EXPECT_EQ(e.hashes().size(), 2u);
      return true;
    }
    return false;
  }
};
using WordTypes = testing::Types<u32, u64>;
TYPED_TEST_SUITE(MergeFaults, WordTypes);

TYPED_TEST(MergeFaults, AreCaughtWhereverTheyHappen) {
  using W = TypeParam;
  test::Random random;
  SCOPED_TRACE(random.replay());
  for (const bool pi : {true, false}) {
    const u64 p = 1200000 / (8 * sizeof(W));
    const PSR_SeriesB<W> plan(pi ? make_pi_series<W>(PiSeries::kChudnovsky, p) : make_e_series<W>(true, p),
                              {1, 1, 1}, 1, p, 1);
    ASSERT_GT(plan.blocks().size(), 2u);
    test::Runner<W> runner(plan.need().table_bits);
    for (const char* site : {"merge operand", "merge result"}) {
      fault = {site, ~u64{0}, 0, 0};
      ASSERT_FALSE(this->caught(plan, runner));
      const u64 calls = fault.seen;
      ASSERT_GT(calls, 1000u);
      for (int i = 0; i < 40; ++i) {
        // The last calls are those of the folds and of the largest merges.
        const u64 at = i % 2 == 0 ? calls - 1 - random.below(60) : random.below(calls);
        fault = {site, at, random.next() >> 8, 0};
        EXPECT_TRUE(this->caught(plan, runner)) << site << " " << at << " of " << calls;
      }
    }
  }
  fault = {"", ~u64{0}, 0, 0};
}

}  // namespace
}  // namespace orl
