// Nodes of the recursion against GMP integers: every end case, both merges, all ways to split.
#include <gtest/gtest.h>

#include "constants/arccoth.h"
#include "constants/arcsinlemn.h"
#include "constants/lemniscate.h"
#include "constants/one_series.h"
#include "constants/series_oracles.h"
#include "core/exceptions.h"
#include "splitting/leaf.h"
#include "splitting/merge.h"
#include "support/counting_algorithm.h"
#include "support/random_words.h"
#include "support/sanitized.h"
#include "support/test_parallelizers.h"

namespace orl {
namespace {

using test::Mpz;
using test::MpzNode;
using test::MpzSeries;

template <class W>
struct Pair {
  std::string name;
  std::unique_ptr<const Series<W>> series;
  MpzSeries oracle;
};

/// Series of so many terms that any range of the tests lies inside.
template <class W>
std::vector<Pair<W>> all_series() {
  const u64 p = u64{1} << 51;
  std::vector<Pair<W>> pairs;
  pairs.push_back({"e", make_e_series<W>(ETaylor::kPlain, p), test::mpz_e(ETaylor::kPlain)});
  pairs.push_back(
      {"e, alternating", make_e_series<W>(ETaylor::kAlternating, p), test::mpz_e(ETaylor::kAlternating)});
  for (const u64 x : {u64{2}, u64{65536}, u64{4294967295}})
    pairs.push_back({"ArcCoth", make_arccoth_series<W>(x, p), test::mpz_arccoth(x)});
  const auto add = [&](const TermSeries& terms) {
    pairs.push_back({terms.name, make_term_series<W>(terms, p), test::mpz_terms(terms)});
  };
  for (const PiSeries series : {PiSeries::kChudnovsky, PiSeries::kRamanujan}) add(pi_terms(series));
  for (u32 i = 0; i < kOneSeriesCount; ++i) add(one_series_row(static_cast<OneSeries>(i)).terms);
  add(arcsinlemn_terms<W>(4, 7, 23));
  const u64 y = sizeof(W) == 8 ? 65535 : 255;
  add(arcsinlemn_terms<W>(1, y / 2, y));
  add(lemniscate_terms());
  return pairs;
}

/// Runs (a, b] with exactly the plan's memory and compares everything that is known about it.
template <class W>
void check_range(const Pair<W>& pair, test::Runner<W>& runner, u64 a, u64 b, u64 tds = 1, u64 halving = 0) {
  const Series<W>& series = *pair.series;
  SCOPED_TRACE(pair.name + " (" + std::to_string(a) + ", " + std::to_string(b) + "] tds " +
               std::to_string(tds) + " halving " + std::to_string(halving));
  const BSR_BlockT<W> block(series, {a, b}, tds, halving);
  test::NodeBuffers<W> out(series.kind(), block.out_words());
  const RunContext ctx = runner.context(tds);
  runner.run(
      {block.heap_bytes(), 0, 0, 0}, tds,
      [&](const RunContext&, LinearHeapBuffer heap) { block.run(ctx, out.node, heap); }, ~u64{0});
  EXPECT_TRUE(out.intact());
  const MpzNode expected = pair.oracle.range(a, b);
  ASSERT_TRUE(test::mpz_of(out.node.P()) == expected.P);
  ASSERT_TRUE(test::mpz_of(out.node.Q()) == expected.Q);
  // An alternating series keeps R positive; its sign is that of the number of terms.
  if (pair.oracle.has_R) {
    ASSERT_EQ(mpz_cmpabs(Mpz(out.node.R().T, out.node.R().L), expected.R), 0);
    EXPECT_EQ(out.node.R().sign, 1);
  }
  for (u32 i = 0; i < out.node.count; ++i) {
    const ExactFloat<W>& x = out.node[i];
    x.check_normalization();
    EXPECT_TRUE(x.is_consistent(ctx.parallel));
    EXPECT_LE(x.L, series.bound_words(i, a, b)) << i;
    EXPECT_LE(x.L, block.number_words());
  }
  // The bound is an estimate with a word or two to spare, not a guess.
  EXPECT_LE(longest_of(series.bound_words(a, b)), std::max(out.node.P().L, out.node.Q().L) + 6);
}

template <class W>
class Nodes : public testing::Test {};
using WordTypes = testing::Types<u32, u64>;
TYPED_TEST_SUITE(Nodes, WordTypes);

TYPED_TEST(Nodes, EqualGmpForShortRangesEverywhere) {
  test::Random random;
  SCOPED_TRACE(random.replay());
  test::Runner<TypeParam> runner(1 << 20);
  for (const auto& pair : all_series<TypeParam>()) {
    // Around the first terms, the last narrow and first wide ones, the linear factor of two words, and far
    // out.
    for (const u64 centre :
         {u64{20}, u64{715827882}, u64{1073741824}, u64{33838570000}, u64{1000000000000000}})
      for (int i = 0; i < 12; ++i) {
        const u64 a = centre - 20 + random.below(40);
        check_range(pair, runner, a, a + 1 + random.below(i < 6 ? 40 : 200));
      }
    for (u64 b = 1; b <= 36; ++b) check_range(pair, runner, 0, b);
  }
}

TYPED_TEST(Nodes, EqualGmpForLongRangesInEveryWayToSplit) {
  test::Random random;
  SCOPED_TRACE(random.replay());
  test::Runner<TypeParam> runner(1 << 25);
  test::Runner<TypeParam> pool(1 << 25, "pushpool");
  // Each series in every fourth way, or some of them.
  u64 turn = 0;
  for (const auto& pair : all_series<TypeParam>()) {
    const auto check = [&](auto& with, u64 start, u64 terms, u64 tds, u64 halving) {
      if (++turn % (test::kSanitized ? 20 : 4) == 0)
        check_range(pair, with, start, start + terms, tds, halving);
    };
    for (const u64 start : {u64{0}, u64{715820000}}) {
      check(runner, start, 1000, 1, 0);
      check(runner, start, 8000 + random.below(1000), 1, 0);
      for (const u64 tds : {2, 3, 7, 64}) check(pool, start, 5000 + random.below(3000), tds, 0);
      check(pool, start, 9001, 4, 1);
      check(pool, start, 9001, 5, 3);
      check(pool, start, 7000, 2, 1);
    }
  }
}

TYPED_TEST(Nodes, OfAnySizeFitTheirPlanAtEveryThreshold) {
  // A table that sends everything beyond a few words to the transform, and one that keeps to the basecase for
  // long, move every change of path in a merge.
  using W = TypeParam;
  for (const u64 threshold : {u64{64 * 80}, u64{64 * 700}}) {
    const ScopedBasicTable<W> table{{"BKT", threshold}, {"FFT", 0x6000000}};
    test::Runner<W> runner(1 << 22);
    for (const auto& pair : all_series<W>())
      for (const u64 length : {50, 60, 70, 90, 120, 150, 200, 333, 700, 1100})
        check_range(pair, runner, 5, 5 + length);
  }
}

// P_L Q_R, Q_L Q_R, R_L P_R and R_L R_R: Q_R and R_L once each, and four others. Where R is so much shorter than P that
// R_L R_R has a shape of its own, one more. Without R three.
TYPED_TEST(Nodes, MergesTransformAnOperandOnce) {
  using W = TypeParam;
  test::CountedProducts<W> counts;
  test::Runner<W> runner(1 << 22);
  const RunContext ctx = runner.context(1);
  for (const auto& pair : all_series<W>())
    for (const u64 a : {u64{0}, u64{715820000}}) {
      SCOPED_TRACE(pair.name + " " + std::to_string(a));
      const u64 m = a + 1500, b = m + 1500;
      const BSR_BlockT<W> whole(*pair.series, {a, b}, 1, 0), first(*pair.series, {a, m}, 1, 0),
          second(*pair.series, {m, b}, 1, 0);
      test::AlignedBytes heap(2 * whole.heap_bytes());
      NodeWords twice = whole.out_words();
      for (u64& words : twice) words *= 2;
      test::NodeBuffers<W> left(pair.series->kind(), twice), right(pair.series->kind(), whole.out_words());
      first.run(ctx, left.node, heap.buffer());
      second.run(ctx, right.node, heap.buffer());
      counts->reset();
      merge_nodes(*pair.series, {a, b}, m, ctx, left.node, right.node, heap.buffer());
      EXPECT_LE(counts->forward, pair.oracle.has_R ? 7u : 3u);
      EXPECT_LE(counts->inverse, pair.oracle.has_R ? 4u : 2u);
    }
}

TYPED_TEST(Nodes, NoForkWithOneThreadOrAShortRange) {
  using W = TypeParam;
  test::ReverseOrder framework;
  struct Count final : test::ReverseOrder {
    void run_pair(ParallelTask& first, ParallelTask& second) override {
      ++pairs;
      test::ReverseOrder::run_pair(first, second);
    }
    u64 pairs = 0;
  } count;
  test::Runner<W> runner(1 << 22);
  const auto series = make_pi_series<W>(PiSeries::kChudnovsky, 100000);
  const auto forks = [&](u64 terms, u64 tds) {
    const BSR_BlockT<W> block(*series, {0, terms}, tds, 0);
    test::NodeBuffers<W> out(series->kind(), block.out_words());
    test::AlignedBytes heap(block.heap_bytes());
    const RunContext ctx = runner.context(tds);
    const u64 before = count.pairs;
    block.run({{count, tds}, ctx.tables, ctx.status}, out.node, {heap.data(), block.heap_bytes()});
    return count.pairs - before;
  };
  EXPECT_EQ(forks(5000, 1), 0u);
  EXPECT_EQ(forks(999, 64), 0u);
  EXPECT_EQ(forks(1000, 64), 1u);
  EXPECT_EQ(forks(5000, 2), 1u);
  EXPECT_EQ(forks(5000, 3), 2u);
}

TYPED_TEST(Nodes, RefuseBuffersBelowThePlan) {
  using W = TypeParam;
  test::Runner<W> runner(1 << 22);
  const auto series = make_pi_series<W>(PiSeries::kRamanujan, 100000);
  const BSR_BlockT<W> block(*series, {0, 3000}, 1, 0);
  test::AlignedBytes heap(block.heap_bytes());
  const RunContext ctx = runner.context(1);
  NodeWords short_P = block.out_words();
  --short_P[SeriesNode<W>::kP];
  test::NodeBuffers<W> small(series->kind(), short_P), enough(series->kind(), block.out_words());
  EXPECT_THROW(block.run(ctx, small.node, {heap.data(), block.heap_bytes()}), BufferTooSmallException);
  EXPECT_THROW(block.run(ctx, enough.node, {heap.data(), block.heap_bytes() - 64}), BufferTooSmallException);
  // An end case names itself.
  W words[4];
  LeafNode<W> narrow, wide;
  narrow.R = {words, 2};
  wide.R = {words, 4};
  wide.P = {words, 3};
  try {
    TermLeaf<W>(pi_terms(PiSeries::kChudnovsky), u64{1} << 45).term(5, narrow);
    FAIL();
  } catch (const BufferTooSmallException& e) {
    EXPECT_EQ(e.function(), "Pi_Chudnovsky_BSR_End_R1()");
  }
  EXPECT_THROW(TermLeaf<W>(pi_terms(PiSeries::kRamanujan), u64{1} << 45).term(5, wide),
               BufferTooSmallException);
}

}  // namespace
}  // namespace orl
