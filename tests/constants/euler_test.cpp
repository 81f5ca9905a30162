// Euler's constant: nodes of its series against GMP, the sums of terms against their exact values, and how n is chosen.
#include <gtest/gtest.h>

#include <cmath>

#include "constants/euler.h"
#include "core/exceptions.h"
#include "splitting/block_list.body.h"
#include "splitting/brent_mcmillan_block.h"
#include "splitting/merge.h"
#include "splitting/series_runner.h"
#include "support/counting_algorithm.h"
#include "support/random_words.h"
#include "support/test_parallelizers.h"

namespace orl {
namespace {

using test::Mpz;

/// D, C, T, V of (a, b], T and V less N^a, one term after the other.
struct ABNode {
  Mpz D{1}, C{0}, T{0}, V{0};
};
ABNode exact_AB(u32 e, u64 a, u64 b) {
  ABNode x;
  for (u64 k = a + 1; k <= b; ++k) {
    const Mpz m(k), power = Mpz(1) << 2 * e * (k - 1 - a);
    x.C = x.C * m + x.D;
    x.D = x.D * m;
    x.T = x.T * m * m + power;
    x.V = x.V * m * m * m + power * x.C;
  }
  return x;
}

template <class W>
class EulerNodes : public testing::Test {};
using WordTypes = testing::Types<u32, u64>;
TYPED_TEST_SUITE(EulerNodes, WordTypes);

/// Runs (a, b] with exactly the plan's memory and compares everything that is known about it.
template <class W>
void check_range(const Series<W>& series, u32 e, test::Runner<W>& runner, u64 a, u64 b, u64 tds = 1) {
  SCOPED_TRACE("e " + std::to_string(e) + " (" + std::to_string(a) + ", " + std::to_string(b) + "] tds " +
               std::to_string(tds));
  const BSR_BlockT<W> block(series, {a, b}, tds, 0);
  test::NodeBuffers<W> out(series.kind(), block.out_words());
  runner.run(
      {block.heap_bytes(), 0, 0, 0}, tds,
      [&](const RunContext& ctx, LinearHeapBuffer heap) { block.run(ctx, out.node, heap); }, ~u64{0});
  EXPECT_TRUE(out.intact());
  const ABNode exact = exact_AB(e, a, b);
  const Mpz* const expected[] = {&exact.D, &exact.C, &exact.T, &exact.V};
  const u64 shift = 2 * u64{e} * a, bits = 8 * sizeof(W);
  for (u32 i = 0; i < 4; ++i) {
    ExactFloat<W> x = out.node[i];
    EXPECT_TRUE(x.is_consistent(runner.context(1).parallel)) << i;
    x.check_normalization();
    EXPECT_EQ(x.exp, i < 2 ? 0 : static_cast<s64>(shift / bits));
    x.exp = 0;
    ASSERT_TRUE(test::mpz_of(x) == (i < 2 ? *expected[i] : *expected[i] << shift % bits)) << i;
    EXPECT_LE(x.L, series.bound_words(i, a, b)) << i;
    // The bound is an estimate with few words to spare, not a guess.
    if (i == 3) {
      EXPECT_LE(10 * series.bound_words(i, a, b), 12 * x.L + 80);
    }
  }
}

TYPED_TEST(EulerNodes, EqualGmpEverywhere) {
  using W = TypeParam;
  test::Random random;
  SCOPED_TRACE(random.replay());
  test::Runner<W> runner(1 << 24, "pushpool");
  for (const u32 e : {1, 5, 16, 31, 32, 50}) {
    // For more terms than the ranges reach: their number follows from n and from the precision.
    const auto series = make_euler_AB<W>(e, u64{1} << 52);
    ASSERT_GT(series->terms(), u64{1100000000000000});
    for (const u64 centre : {u64{20}, u64{1} << e, u64{1} << 32, u64{1000000000000000}})
      for (int i = 0; i < 6; ++i) {
        const u64 a = std::max<u64>(centre, 20) - 20 + random.below(40);
        check_range(*series, e, runner, a, a + 1 + random.below(i < 3 ? 40 : 400));
      }
    for (u64 b = 1; b <= 20; ++b) check_range(*series, e, runner, 0, b);
    for (const u64 tds : {1, 2, 7}) check_range(*series, e, runner, random.below(300), 1900, tds);
  }
}

TYPED_TEST(EulerNodes, OfAnySizeFitTheirPlanAtEveryThreshold) {
  using W = TypeParam;
  for (const u64 threshold : {u64{64 * 80}, u64{64 * 700}}) {
    const ScopedBasicTable<W> table{{"BKT", threshold}, {"FFT", 0x6000000}};
    test::Runner<W> runner(1 << 22);
    for (const u32 e : {6, 20}) {
      const auto series = make_euler_AB<W>(e, 1 << 20);
      for (const u64 length : {17, 20, 30, 50, 90, 120, 200, 333, 700, 1100})
        check_range(*series, e, runner, 5, 5 + length);
    }
  }
}

// R(k) = P(k) = (2k - 1)^3, Q(k) = 32 n^2 k, where n is the least that serves, so that there are nearly 2 n terms.
TYPED_TEST(EulerNodes, OfTheThirdSeriesEqualGmpEverywhere) {
  using W = TypeParam;
  test::Random random;
  SCOPED_TRACE(random.replay());
  test::Runner<W> runner(1 << 22);
  for (const u32 e : {10, 21, 49}) {
    const u64 p =
        static_cast<u64>((std::ldexp(8.0, static_cast<int>(e)) - 8) / std::log(2.0) - 64) / (8 * sizeof(W));
    ASSERT_EQ(euler_exponent(EulerVariant::kRefined, p, 8 * sizeof(W)), e);
    const auto series = make_euler_C<W>(e, p);
    EXPECT_LT(series->terms(), u64{2} << e);
    EXPECT_GT(series->terms(), u64{14} << e >> 3);
    const test::MpzSeries oracle{true, [e](u64 k) {
                                   const Mpz odd(2 * k - 1), R = odd * odd * odd;
                                   return test::MpzNode{R, Mpz(k) << (2 * e + 5), R};
                                 }};
    for (int i = 0; i < 12; ++i) {
      const u64 terms = 1 + random.below(i < 6 ? 40 : 600);
      const u64 a = i % 3 == 0 ? 0 : random.below(series->terms() - terms);
      SCOPED_TRACE("e " + std::to_string(e) + " (" + std::to_string(a) + ", " + std::to_string(a + terms) +
                   "]");
      const BSR_BlockT<W> block(*series, {a, a + terms}, 1, 0);
      test::NodeBuffers<W> out(series->kind(), block.out_words());
      runner.run(
          {block.heap_bytes(), 0, 0, 0}, 1,
          [&](const RunContext& ctx, LinearHeapBuffer heap) { block.run(ctx, out.node, heap); }, ~u64{0});
      EXPECT_TRUE(out.intact());
      const test::MpzNode exact = oracle.range(a, a + terms);
      const Mpz* const expected[] = {&exact.P, &exact.Q, &exact.R};
      for (u32 n = 0; n < 3; ++n) {
        ASSERT_TRUE(test::mpz_of(out.node[n]) == *expected[n]) << n;
        EXPECT_LE(out.node[n].L, series->bound_words(n, a, a + terms)) << n;
      }
    }
  }
}

// Of two neighbouring n the smaller one serves up to some precision and not beyond it, and so does what is taken of it.
TEST(EulerExponents, ThatDoNotServeAreRefusedWithOneThatDoes) {
  using Store = RamStore<u64>;
  for (const EulerVariant variant : {EulerVariant::kRefined, EulerVariant::kOriginal})
    for (const u64 p : {u64{1}, u64{100}, u64{5193}, u64{51905127000000}}) {
      const u32 e = euler_exponent(variant, p, 64);
      const auto refusal = [&](u32 k) { return refused_euler_exponent(variant, k, p, 64); };
      EXPECT_EQ(refusal(e), "");
      EXPECT_EQ(refusal(e + 4), "");
      EXPECT_EQ(refusal(e - 1), "k = " + std::to_string(e - 1) +
                                    " is too small for this precision. It must be at least " +
                                    std::to_string(e) + ".");
      const u32 largest = std::max(e + 4, 22u);
      EXPECT_EQ(refusal(63), "k = 63 is too large for this precision. It must be at most " +
                                 std::to_string(largest) + ".");
      EXPECT_THROW(make_euler<Store>({variant, e - 1}, p, 1), InvalidParametersException);
      // What the formula leaves of e^-8n, or of e^-4n, is below the precision, and with half of n it is not.
      const double nats = static_cast<double>(p) * 64 * std::log(2.0);
      const double per_n = variant == EulerVariant::kRefined ? 8 : 4;
      EXPECT_GE(std::ldexp(per_n, static_cast<int>(e)), nats);
      EXPECT_LE(std::ldexp(per_n, static_cast<int>(e)), 2 * nats + 100);
    }
}

}  // namespace
}  // namespace orl
