// Block plans: what they cover, how large blocks become, what truncation may cost, what run() refuses.
#include <gtest/gtest.h>

#include <cmath>
#include <ctime>

#include "constants/lemniscate.h"
#include "constants/log.h"
#include "constants/roots.h"
#include "constants/series_oracles.h"
#include "core/exceptions.h"
#include "support/counting_algorithm.h"
#include "support/processor_time.h"

namespace orl {
namespace {

using test::Mpz;

template <class W>
class Plans : public testing::Test {};
using WordTypes = testing::Types<u32, u64>;
TYPED_TEST_SUITE(Plans, WordTypes);

template <class W>
std::unique_ptr<const Series<W>> make_series(int which, u64 p) {
  if (which < 2) return make_pi_series<W>(which == 0 ? PiSeries::kChudnovsky : PiSeries::kRamanujan, p);
  return make_e_series<W>(which == 3 ? ETaylor::kAlternating : ETaylor::kPlain, p);
}

template <class W>
PSR_SeriesB<W> make_plan(int which, u64 p, u64 tds = 1, SeriesMemory memory = SeriesMemory::kFast) {
  return PSR_SeriesB<W>(make_series<W>(which, p), {{1, 1, 1}, 1, memory}, p, tds);
}

TYPED_TEST(Plans, CoverAllTermsWithBlocksThatFitThePrecision) {
  using W = TypeParam;
  for (int which = 0; which < 4; ++which)
    for (const u64 p : {u64{1}, u64{2}, u64{10}, u64{300}, u64{20000}, 400000 / (8 / sizeof(W))})
      for (const u64 tds : {1, 2, 64}) {
        SCOPED_TRACE(std::to_string(which) + ": p = " + std::to_string(p) + ", tds = " + std::to_string(tds));
        const auto plan = make_plan<W>(which, p, tds);
        const Series<W>& series = plan.series();
        u64 end = 0;
        for (const auto& block : plan.blocks()) {
          ASSERT_EQ(block->a(), end);
          ASSERT_GT(block->b(), end);
          end = block->b();
          // Nothing is multiplied that the precision cannot use; one term and two guards of slack.
          EXPECT_LE(block->product_words(), 2 * p + 64 + 5 * 64 / (8 * sizeof(W)));
          EXPECT_LE(block->total_bytes(), plan.need().ram_bytes);
        }
        EXPECT_EQ(end, series.terms());
        if (tds == 1 && p >= 20000) {
          EXPECT_GT(plan.blocks().size(), 2u);
          const PSR_BlockB<W>& first = *plan.blocks()[0];
          // The crossover: the first block is as long as what remains behind it.
          const double remaining = static_cast<double>(series.remaining_words(first.b()));
          EXPECT_NEAR(static_cast<double>(first.recursion().number_words()), remaining, 8);
        }
      }
}

TYPED_TEST(Plans, OfTheReducedKindHaveBlocksOfHalfThePrecision) {
  using W = TypeParam;
  const u64 p = 50000;
  const auto whole = make_plan<W>(0, p), reduced = make_plan<W>(0, p, 1, SeriesMemory::kReduced);
  EXPECT_EQ(whole.series().terms(), reduced.series().terms());
  EXPECT_GT(whole.blocks()[0]->recursion().number_words(), p * 6 / 10);
  EXPECT_GT(reduced.blocks().size(), whole.blocks().size());
  for (const auto& block : reduced.blocks()) EXPECT_LE(block->recursion().number_words(), p / 2 + 8);
  // Smaller blocks pay where they decide the memory.
  EXPECT_LE(reduced.need().ram_bytes, whole.need().ram_bytes);
  const u64 large = (u64{1} << 25) / sizeof(W);
  EXPECT_LT(make_plan<W>(0, large, 1, SeriesMemory::kReduced).need().ram_bytes,
            make_plan<W>(0, large).need().ram_bytes);
}

// With R a fold is P U, Q U and R T: U once, and P, Q, R, T. Without R it is P U and Q U. In two parts each
// of the products has its own operand once and both parts of U or T.
TYPED_TEST(Plans, FoldsTransformAnOperandOnce) {
  using W = TypeParam;
  test::CountedProducts<W> counts;
  test::Runner<W> runner(1 << 22);
  struct Case {
    int which;
    bool reduced;
    u64 forward, inverse;
  };
  for (const Case& c : {Case{0, false, 5, 3}, {0, true, 5, 3}, {2, false, 3, 2}}) {
    SCOPED_TRACE(std::to_string(c.which) + (c.reduced ? " reduced" : ""));
    const auto plan =
        make_plan<W>(c.which, 8000, 1, c.reduced ? SeriesMemory::kReduced : SeriesMemory::kFast);
    test::AlignedBytes memory(plan.need().ram_bytes);
    counts->reset();
    SeriesFraction<RamStore<W>> fraction;
    test::run_fraction(plan, runner.context(1), fraction, memory.buffer());
    u64 forward = counts->forward, inverse = counts->inverse;
    for (const auto& block : plan.blocks()) {
      counts->reset();
      const BSR_BlockB<W>& recursion = block->recursion();
      test::NodeBuffers<W> out(plan.series().kind(), recursion.out_words());
      recursion.run(runner.context(1), out.node, memory.buffer());
      forward -= counts->forward;
      inverse -= counts->inverse;
    }
    u64 expected_forward = 0, expected_inverse = 0;
    for (u64 i = 0; i + 1 < plan.blocks().size(); ++i) {
      const u64 pieces = plan.blocks()[i]->pieces();
      expected_forward += pieces == 1 ? c.forward : 2 * pieces * c.inverse;
      expected_inverse += pieces * c.inverse;
      EXPECT_TRUE(pieces == 1 || i == 0);  // only the largest block does without
    }
    EXPECT_GT(expected_inverse, 0u);
    EXPECT_LE(forward, expected_forward);
    EXPECT_LE(inverse, expected_inverse);
  }
}

TYPED_TEST(Plans, GiveEveryThreadEnoughToDo) {
  using W = TypeParam;
  const u64 bits = 8 * sizeof(W);
  for (const u64 tds : {1, 2, 5, 64})
    for (const u64 p : {100000 / bits, 2000000 / bits, 30000000 / bits}) {
      // No block but the last is smaller than 221185 bits per thread, or than the precision.
      const auto plan = make_plan<W>(0, p, tds);
      const u64 threads = tds == 5 ? 8 : tds;
      for (u64 i = 0; i + 1 < plan.blocks().size(); ++i) {
        const auto& block = *plan.blocks()[i];
        const double words = (plan.series().size(block.a(), block.b()) / words_to_nats<W>(1)).to_double();
        EXPECT_GE(words + 1e-6,
                  std::min(static_cast<double>(p), static_cast<double>(221185 * threads) / bits));
      }
    }
  // Then blocks outgrow what remains, and their numbers are cut.
  const auto wide = make_plan<W>(0, 2000000 / bits, 64);
  ASSERT_GT(wide.blocks().size(), 1u);
  EXPECT_FALSE(wide.blocks()[1]->recursion().exact());
  EXPECT_LE(wide.blocks()[1]->recursion().number_words(), wide.blocks()[1]->kept_words());
}

/// |T/U - exact| < W^-p, by cross multiplication: |T Q - P U| W^p < |U Q|.
template <class W>
void check_fraction(int which, u64 p, u64 tds, const char* framework,
                    SeriesMemory memory = SeriesMemory::kFast) {
  SCOPED_TRACE(std::to_string(which) + ": p = " + std::to_string(p) + ", tds = " + std::to_string(tds));
  const auto plan = make_plan<W>(which, p, tds, memory);
  test::Runner<W> runner(plan.need().table_bits, framework);
  test::AlignedBytes heap(plan.need().ram_bytes);
  SeriesFraction<RamStore<W>> f;
  test::run_fraction(plan, runner.context(tds), f, {heap.data(), plan.need().ram_bytes});
  EXPECT_TRUE(f.T.is_consistent(runner.context(1).parallel));
  EXPECT_TRUE(f.U.is_consistent(runner.context(1).parallel));
  EXPECT_LE(f.U.L, p + 3);
  const test::MpzSeries series = which < 2
                                     ? test::mpz_terms(pi_terms(static_cast<PiSeries>(which)))
                                     : test::mpz_e(which == 3 ? ETaylor::kAlternating : ETaylor::kPlain);
  const test::MpzNode exact = series.range(0, plan.series().terms());
  const s64 lowest = std::min(f.T.exp, f.U.exp);
  f.T.exp -= lowest;
  f.U.exp -= lowest;
  const Mpz T = test::mpz_of(f.T), U = test::mpz_of(f.U);
  const Mpz error = (T * exact.Q - exact.P * U) << p * 8 * sizeof(W);
  EXPECT_LT(mpz_cmpabs(error, U * exact.Q), 0);
}

TYPED_TEST(Plans, TruncationStaysBelowThePrecision) {
  using W = TypeParam;
  for (int which = 0; which < 4; ++which)
    for (const u64 p : {u64{1}, u64{5}, u64{50}, 64000 / (8 * sizeof(W)), 700000 / (8 * sizeof(W))})
      check_fraction<W>(which, p, 1, "none");
  check_fraction<W>(0, 1000000 / (8 * sizeof(W)), 1, "none", SeriesMemory::kReduced);
}

TYPED_TEST(Plans, TruncationInsideABlockStaysBelowThePrecision) {
  using W = TypeParam;
  for (int which = 0; which < 4; ++which)
    for (const u64 tds : {2, 5, 64}) check_fraction<W>(which, 384000 / (8 * sizeof(W)), tds, "pushpool");
}

TYPED_TEST(Plans, RefuseWhatTheyWereNotBuiltFor) {
  using W = TypeParam;
  const auto series = make_series<W>(0, 1000);
  test::Runner<W> runner(1 << 20, "none");
  const BSR_BlockB<W> block(*series, {0, 100}, 2, 0);
  test::NodeBuffers<W> out(series->kind(), block.out_words());
  test::AlignedBytes heap(block.heap_bytes());
  try {
    block.run(runner.context(3), out.node, {heap.data(), block.heap_bytes()});
    FAIL();
  } catch (const InvalidParametersException& e) {
    EXPECT_EQ(e.function(), "BSR_BlockB::run()");
    EXPECT_EQ(e.message(), "Attempted to run with a larger tds than the plan supports.");
  }
  const auto plan = make_plan<W>(0, 500);
  test::AlignedBytes memory(plan.need().ram_bytes);
  BigFloat<W> number;
  NullStackFrame frame;
  EXPECT_THROW(plan.run(runner.context(1), frame, number, {memory.data(), plan.need().ram_bytes - 64}),
               BufferTooSmallException);
  EXPECT_THROW(PSR_SeriesB<W>(make_series<W>(0, 10), {{1, 1, 1}, 0}, 10, 1), InvalidParametersException);
}

TYPED_TEST(Plans, BeyondTheLastRowOfTheTableAreRefused) {
  // 0x6000000 bits hold the products of Pi to more than 20 million digits and not to 40 million.
  using W = TypeParam;
  const u64 bits = 8 * sizeof(W);
  const ScopedBasicTable<W> table{{"BKT", 5120}, {"FFT", 0x6000000}};
  EXPECT_NO_THROW(make_pi<RamStore<W>>({}, 66438562 / bits, 1));
  EXPECT_THROW(make_pi<RamStore<W>>({}, 132877124 / bits, 1), LimitExceededException);
}

TYPED_TEST(Plans, HoldForTrillionsOfDigitsInSizesAndTime) {
  // Sizes alone, without products: terms beyond 2^32 and their midpoints.
  using W = TypeParam;
  const auto series = make_series<W>(0, u64{500000000000});
  EXPECT_GT(series->terms(), u64{1} << 38);
  const u64 T = series->terms();
  EXPECT_EQ(series->remaining_words(T), 1u);
  for (const auto& [a, b] : {std::pair<u64, u64>{0, T}, {T / 2, T}, {T - 5000, T}, {0, 2}, {T - 2, T}}) {
    const u64 m = series->sizes().midpoint(a, b);
    ASSERT_GT(m, a);
    ASSERT_LT(m, b);
    const double left = series->size(a, m).to_double(), right = series->size(m, b).to_double();
    EXPECT_LE(std::fabs(left - right), 2 * series->sizes().imbalance(b).to_double());
  }
}

}  // namespace
}  // namespace orl
