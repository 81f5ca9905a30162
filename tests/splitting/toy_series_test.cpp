// Series that no constant has: signs of its own, a zero term, outer coefficients of 64 bits, kinds of another shape.
#include <gtest/gtest.h>

#include <cmath>

#include "core/exceptions.h"
#include "splitting/exact_steps.h"
#include "splitting/leaf.h"
#include "splitting/series_runner.h"

namespace orl {
namespace {

using test::Mpz;
using test::MpzNode;
using test::MpzSeries;

Mpz signed_mpz(s64 x) { return x < 0 ? Mpz(0) - Mpz(static_cast<u64>(-x)) : Mpz(static_cast<u64>(x)); }

// P(k) = c (k - 3), which is zero at 3 and changes its sign there; R(k) = (2k - 1) with a minus at every third k;
// Q(k) = 32 (2k + 1).
constexpr u64 kC = 0x9e3779b9;
s64 toy_P(u64 k) { return static_cast<s64>(kC) * (static_cast<s64>(k) - 3); }
s64 toy_R(u64 k) { return (k % 3 == 0 ? -1 : 1) * static_cast<s64>(2 * k - 1); }
u64 toy_Q(u64 k) { return 32 * (2 * k + 1); }

template <class W>
void set_signed(LeafNumber<W>& x, s64 value) {
  x.set(static_cast<u64>(value < 0 ? -value : value));
  if (value < 0) x.negate();
}

const FactorialModel::Parameters kToyModel{.A = DoubleDouble(4.1589), .B = 1, .s = 0.5, .e = 0, .ln_C = 18.5};

template <class W>
class ToySeries final : public GeometricSeries<W> {
 public:
  ToySeries(u64 p, bool alternating)
      : GeometricSeries<W>(common_P2B3<W>(), std::make_unique<FactorialModel>(kToyModel), 3, p,
                           DoubleDouble(3.46), alternating) {}
  void end(u64 a, u64 b, SeriesNode<W>& out) const override {
    const auto term = [](u64 k, LeafNode<W>& node) {
      set_signed(node.P, toy_P(k));
      set_signed(node.R, toy_R(k));
      node.Q.set(toy_Q(k));
    };
    LeafNode<W> node{leaf_number(out.P()), leaf_number(out.Q()), leaf_number(out.R())};
    LeafSplitter("ToySeries::end()", *this, 4, term).run(a, b, node);
    finish_leaf(out.P(), node.P);
    finish_leaf(out.Q(), node.Q);
    finish_leaf(out.R(), node.R);
  }
};

MpzSeries toy_oracle(bool alternating) {
  return {
      true, [alternating](u64 k) {
        return MpzNode{signed_mpz(toy_P(k)), Mpz(toy_Q(k)), signed_mpz(alternating ? -toy_R(k) : toy_R(k))};
      }};
}

template <class W>
class ToyFractions : public testing::Test {};
using WordTypes = testing::Types<u32, u64>;
TYPED_TEST_SUITE(ToyFractions, WordTypes);

TYPED_TEST(ToyFractions, AreTheExactSumToTheirPrecision) {
  using W = TypeParam;
  for (const bool alternating : {false, true})
    for (const u64 p : {1, 2, 3, 4, 5, 8, 13, 21, 60, 400, 6000})
      for (const u64 tds : {1, 3}) {
        SCOPED_TRACE("p = " + std::to_string(p) + ", tds = " + std::to_string(tds) +
                     (alternating ? ", alternating" : ""));
        const PSR_SeriesB<W> plan(std::make_unique<ToySeries<W>>(p, alternating), {}, p, tds);
        test::Runner<W> runner(plan.need().table_bits, "pushpool");
        test::AlignedBytes heap(plan.need().ram_bytes);
        SeriesFraction<RamStore<W>> f;
        test::run_fraction(plan, runner.context(tds), f, heap.buffer());
        EXPECT_TRUE(f.T.is_consistent(runner.context(1).parallel));
        EXPECT_TRUE(f.U.is_consistent(runner.context(1).parallel));
        const MpzNode exact = toy_oracle(alternating).range(0, plan.series().terms());
        const s64 lowest = std::min(f.T.exp, f.U.exp);
        f.T.exp -= lowest;
        f.U.exp -= lowest;
        const Mpz T = test::mpz_of(f.T), U = test::mpz_of(f.U);
        // The sum is about kC / 100, which takes one word of the precision of u32.
        const Mpz error = (T * exact.Q - exact.P * U) << (p - 1) * 8 * sizeof(W);
        EXPECT_LE(mpz_cmpabs(error, U * exact.Q * Mpz(kC)), 0);
      }
}

/// floor(|x| W^words) of what a plan of the toy series gives.
template <class W>
Mpz value_of(const typename PSR_SeriesB<W>::Value& value, u64 p, u64 words, u8& sign) {
  const PSR_SeriesB<W> plan(std::make_unique<ToySeries<W>>(p, false), value, p, 1);
  test::Runner<W> runner(plan.need().table_bits);
  test::AlignedBytes heap(plan.need().ram_bytes);
  test::OwnedFloat<W> out(plan.need().out_words);
  NullStackFrame frame;
  const RunContext ctx = runner.context(1);
  const u64 hash = plan.run(ctx, frame, out.x, heap.buffer());
  EXPECT_EQ(hash_canon(hash), hash_canon(out.x.computed_hash(ctx.parallel)));
  sign = out.x.sign;
  return test::scaled(out.x, words);
}

TYPED_TEST(ToyFractions, TakeOuterCoefficientsOf64Bits) {
  using W = TypeParam;
  const u64 p = 500, bits = 8 * sizeof(W);
  const SeriesCoefficients rows[] = {
      {1, 0, 1},
      {-1, 0x7fedcba987654321, 3},
      {0x123456789abcdef, -0x7edcba9876543210, 0x7123456789abcdef},
      {INT64_MIN, 1, u64{1} << 62},
      {77, INT64_MIN, 0x80000001},
  };
  const MpzNode sum = toy_oracle(false).range(0, 4 * p * bits / 3);
  for (const SeriesCoefficients& row : rows)
    for (const s32 power : {1, -1}) {
      SCOPED_TRACE(std::to_string(row.P) + " " + std::to_string(row.Q) + " " + std::to_string(power));
      const auto wide = [](s64 x) { return x == INT64_MIN ? Mpz(0) - (Mpz(1) << 63) : signed_mpz(x); };
      Mpz n = wide(row.P) * sum.P + wide(row.Q) * sum.Q, d = Mpz(row.D) * sum.Q;
      if (power < 0) std::swap(n, d);
      u8 sign = 1;
      // Both sides lie within 2^130, so two words of u64 or four of u32 are enough for the figures before the point.
      const u64 words = p - 160 / bits - 2;
      const Mpz found = value_of<W>({row, power}, p, words, sign);
      const bool negative = mpz_sgn(static_cast<mpz_srcptr>(n)) * mpz_sgn(static_cast<mpz_srcptr>(d)) < 0;
      EXPECT_EQ(sign, negative ? 0 : 1);
      Mpz expected = (n << words * bits) / d;
      if (negative) expected = Mpz(0) - expected;
      EXPECT_LE(mpz_cmpabs_ui(found - expected, 2), 0);
    }
}

TYPED_TEST(ToyFractions, OfASumOfZeroAreZeroAndHaveNoInverse) {
  using W = TypeParam;
  // Terms 6/3, 0, 0, ... and the coefficient that takes the first off.
  class OneTerm final : public GeometricSeries<W> {
   public:
    OneTerm()
        : GeometricSeries<W>(common_P2B3<W>(), std::make_unique<FactorialModel>(kToyModel), 1, 5,
                             DoubleDouble(3.46), false) {}
    void end(u64, u64 b, SeriesNode<W>& out) const override {
      for (const auto& [x, value] : {std::pair{0u, b == 1 ? 6u : 0u}, {1u, 3u}, {2u, 1u}}) {
        LeafNumber<W> number = leaf_number(out[x]);
        number.set(value);
        finish_leaf(out[x], number);
      }
    }
  };
  for (const s32 power : {1, -1}) {
    const PSR_SeriesB<W> plan(std::make_unique<OneTerm>(), {{1, -2, 1}, power}, 5, 1);
    test::Runner<W> runner(plan.need().table_bits);
    test::AlignedBytes heap(plan.need().ram_bytes);
    test::OwnedFloat<W> out(plan.need().out_words);
    NullStackFrame frame;
    const auto run = [&] { return plan.run(runner.context(1), frame, out.x, heap.buffer()); };
    if (power == 1) {
      EXPECT_EQ(run(), 0u);
      EXPECT_EQ(out.x.signum(), 0);
    } else {
      EXPECT_THROW(run(), ArithmeticException);
    }
  }
}

// A kind of another shape: D = prod k, C = D sum 1/k, S = D^2 sum 1/k^2, V = C D. The recursion and the merge are those
// of all kinds; D and C have half of the size of S and V, and half of their room.
template <class W>
class SquaresKind final : public SeriesKind<W> {
 public:
  const char* name() const override { return "Squares"; }
  u32 numbers() const override { return 4; }
  bool subtracts(bool, u64) const override { return false; }
  u64 merge_scratch(const NodeWords& product, const NodeWords&, u64 tds) const override {
    return 8 * LinearHeapBuffer::cut_bytes<W>(longest_of(product) + 8) +
           ExactFloat<W>::mul_scratch(longest_of(product), tds);
  }
  void merge(const RunContext& ctx, bool, SeriesNode<W>& l, const SeriesNode<W>& r,
             LinearHeapBuffer scratch) const override {
    const u64 words = l.longest() + r.longest() + 8;
    ExactFloat<W> x[8];
    for (ExactFloat<W>& t : x) t = ExactFloat<W>(scratch.cut<W>(words), words);
    const MultiplyContext multiply = ctx.multiply(scratch);
    x[0].set_mul(l[0], r[0], multiply);                                      // D
    x[1].set_mul(l[1], r[0], multiply), x[2].set_mul(l[0], r[1], multiply);  // C
    add_exact(x[1], x[2], false, ctx.parallel);
    x[3].set_mul(r[0], r[0], multiply), x[4].set_mul(l[2], x[3], multiply);  // S
    x[5].set_mul(l[0], l[0], multiply), x[6].set_mul(x[5], r[2], multiply);
    add_exact(x[4], x[6], false, ctx.parallel);
    x[7].set_mul(x[0], x[1], multiply);  // V
    const ExactFloat<W>* const results[] = {&x[0], &x[1], &x[4], &x[7]};
    for (u32 i = 0; i < 4; ++i) l[i].set_ExactFloat(*results[i], ctx.parallel);
  }
};

/// ln of the largest number, and its half.
class SquaresModel final : public SizeModel {
 public:
  DoubleDouble size(u64 a, u64 b) const override { return of_.size(a, b); }
  DoubleDouble part(u32 number, DoubleDouble nats) const override {
    return number < 2 ? nats * DoubleDouble(0.5) : nats;
  }
  DoubleDouble excess(u64, u64 b) const override {
    return DoubleDouble(2 * std::log(1 + std::log(static_cast<double>(b) + 1)) + 2);
  }
  u64 midpoint(u64 a, u64 b) const override { return of_.midpoint(a, b); }
  DoubleDouble imbalance(u64 b) const override { return of_.imbalance(b); }

 private:
  FactorialModel of_{{.A = DoubleDouble(0), .B = 2}};
};

template <class W>
class SquaresSeries final : public Series<W> {
 public:
  explicit SquaresSeries(const SeriesKind<W>& kind)
      : Series<W>(kind, std::make_unique<SquaresModel>(), 1, 100000, false) {}
  DoubleDouble remaining(u64) const override { return DoubleDouble(1); }
  void end(u64, u64 b, SeriesNode<W>& out) const override {
    for (u32 i = 0; i < 4; ++i) {
      LeafNumber<W> number = leaf_number(out[i]);
      number.set(i % 3 == 0 ? b : 1);
      finish_leaf(out[i], number);
    }
  }
};

TYPED_TEST(ToyFractions, OfAnotherKindHaveNumbersOfTheirOwnSizes) {
  using W = TypeParam;
  const SquaresKind<W> kind;
  const SquaresSeries<W> series(kind);
  test::Runner<W> runner(1 << 22, "pushpool");
  for (const u64 tds : {1, 4})
    for (const auto& [a, b] : {std::pair{u64{0}, u64{1}}, {5, 90}, {0, 3000}, {70000, 73000}}) {
      const BSR_BlockT<W> block(series, {a, b}, tds, 0);
      EXPECT_LE(10 * block.out_words()[0], 6 * block.out_words()[2] + 10000 / sizeof(W));
      test::NodeBuffers<W> out(kind, block.out_words());
      runner.run(
          {block.heap_bytes(), 0, 0, 0}, tds,
          [&](const RunContext& ctx, LinearHeapBuffer heap) { block.run(ctx, out.node, heap); }, ~u64{0});
      EXPECT_TRUE(out.intact());
      Mpz D(1), C(0), S(0);
      for (u64 k = a + 1; k <= b; ++k) {
        C = C * Mpz(k) + D;
        S = S * Mpz(k) * Mpz(k) + D * D;
        D = D * Mpz(k);
      }
      const Mpz expected[] = {D, C, S, C * D};
      for (u32 i = 0; i < 4; ++i) {
        EXPECT_TRUE(test::mpz_of(out.node[i]) == expected[i]) << i;
        EXPECT_LE(out.node[i].L, series.bound_words(i, a, b));
      }
    }
}

// A row of the table of kinds: P = P_L Q_R + Q_L P_R, the sum of P(k)/Q(k) over a common denominator.
TYPED_TEST(ToyFractions, OfAKindThatIsARowAreItsSum) {
  using W = TypeParam;
  static constexpr FractionKind<W> kind("BinaryBBP", 2, SeriesNode<W>::kQ);
  class Sum final : public GeometricSeries<W> {
   public:
    explicit Sum(u64 p)
        : GeometricSeries<W>(kind, std::make_unique<FactorialModel>(kToyModel), 1, p, DoubleDouble(3.46),
                             false) {}
    void end(u64, u64 b, SeriesNode<W>& out) const override {
      LeafNumber<W> P = leaf_number(out.P()), Q = leaf_number(out.Q());
      set_signed(P, toy_P(b));
      Q.set(toy_Q(b));
      finish_leaf(out.P(), P);
      finish_leaf(out.Q(), Q);
    }
  };
  const Sum series(100);
  test::Runner<W> runner(1 << 22);
  for (const auto& [a, b] : {std::pair{u64{0}, u64{7}}, {2, 3}, {1, 400}}) {
    const BSR_BlockT<W> block(series, {a, b}, 1, 0);
    test::NodeBuffers<W> out(kind, block.out_words());
    runner.run(
        {block.heap_bytes(), 0, 0, 0}, 1,
        [&](const RunContext& ctx, LinearHeapBuffer heap) { block.run(ctx, out.node, heap); }, ~u64{0});
    Mpz P(0), Q(1);
    for (u64 k = a + 1; k <= b; ++k) {
      P = P * Mpz(toy_Q(k)) + Q * signed_mpz(toy_P(k));
      Q = Q * Mpz(toy_Q(k));
    }
    EXPECT_TRUE(test::mpz_of(out.node.P()) == P);
    EXPECT_TRUE(test::mpz_of(out.node.Q()) == Q);
  }
}

}  // namespace
}  // namespace orl
