#include "functions/newton.h"

#include <gtest/gtest.h>

#include "functions/function_runner.h"
#include "functions/newton_steps.h"
#include "support/counting_algorithm.h"
#include "support/random_words.h"
#include "support/thrown.h"

namespace orl::test {
namespace {

// n words and some more must be right; n = 0 is a double and n = 1 one step from it.
template <class W>
void expect_close(const BigFloat<W>& got, const Mpz& want, u64 words, u64 n) {
  constexpr u64 bits = 8 * sizeof(W);
  ASSERT_NE(got.L, 0u);
  EXPECT_LE(got.L, n + 3);
  const Mpz error = abs(scaled(got, words) - want);
  const u64 good_bits = n == 0 ? 50 : n == 1 ? std::min<u64>(2 * bits - 4, 100) : (n + 1) * bits - 6;
  const Mpz bound = (want >> good_bits) + Mpz(2);
  EXPECT_TRUE(error <= bound) << "n = " << n
                              << ", right bits: " << mpz_sizeinbase(want, 2) - mpz_sizeinbase(error, 2)
                              << " of " << good_bits;
}

// floor(W^words / sqrt(a * W^exp))
template <class W>
Mpz inverse_root(const Mpz& a, s64 exp, u64 words) {
  constexpr s64 bits = 8 * sizeof(W);
  const s64 shift = (2 * static_cast<s64>(words) - exp) * bits;
  Mpz r = (Mpz(1) << static_cast<u64>(shift)) / a;
  mpz_sqrt(r, r);
  return r;
}

const u64 kLargeSizes[] = {41, 64, 65, 127, 128, 129, 500, 1000, 1001};

std::vector<u64> all_sizes() {
  std::vector<u64> sizes;
  for (u64 n = 0; n <= 40; ++n) sizes.push_back(n);
  sizes.insert(sizes.end(), std::begin(kLargeSizes), std::end(kLargeSizes));
  return sizes;
}

template <class W>
class Newton : public ::testing::Test {
 protected:
  Random random;

  void check_word(u64 n, W w, u64 tds, const char* framework = "none") {
    const OwnedFloat<W> y = made_by<W>(InvsqrtWord_BigFloatR<W>(n, tds), tds, framework, 4096, w);
    expect_close(y.x, inverse_root<W>(Mpz(w), 0, n + 4), n + 4, n);
  }

  void check_root(u64 n, const BigFloat<W>& a, u64 tds) {
    const OwnedFloat<W> y = made_by<W>(InvsqrtFloat_BigFloatR<W>(n, tds), tds, "none", 4096, a);
    const u64 words = n + 6 + static_cast<u64>(std::abs(a.magnitude()));
    expect_close(y.x, inverse_root<W>(Mpz(a.T, a.L), a.exp, words), words, n);
  }

  void check_reciprocal(u64 n, const BigFloat<W>& a, u64 tds) {
    const OwnedFloat<W> y = made_by<W>(Reciprocal_BigFloatR<W>(n, tds), tds, "none", 4096, a);
    const s64 words = static_cast<s64>(n) + 6 + std::abs(a.magnitude());
    const Mpz want = word_power<W>(static_cast<u64>(words - a.exp)) / Mpz(a.T, a.L);
    EXPECT_EQ(y.x.sign, a.sign);
    expect_close(y.x, want, static_cast<u64>(words), n);
  }

  void check_division(u64 n, const BigFloat<W>& a, const BigFloat<W>& b, u64 tds,
                      const char* framework = "none", DivisionMemory division = DivisionMemory::kKeep) {
    const u64 tight_bytes = a.L == 0 || division == DivisionMemory::kLeast ? ~u64{0} : 4096;
    const OwnedFloat<W> q =
        made_by<W>(Division_BigFloatR<W>(n, tds, division), tds, framework, tight_bytes, a, b);
    if (a.L == 0) {
      EXPECT_EQ(q.x.L, 0u);
      return;
    }
    const s64 words = static_cast<s64>(n) + 6 + std::abs(a.magnitude()) + std::abs(b.magnitude());
    const Mpz want =
        (Mpz(a.T, a.L) << static_cast<u64>((words + a.exp - b.exp)) * 8 * sizeof(W)) / Mpz(b.T, b.L);
    EXPECT_EQ(q.x.sign, a.sign == b.sign);
    expect_close(q.x, want, static_cast<u64>(words), n);
  }

  // Words without runs of zeros.
  std::vector<W> dense(u64 L) {
    std::vector<W> words = random.plain_words<W>(L);
    for (W& word : words) word |= 1;
    return words;
  }

  // Top words at their extremes, long runs, and lengths below and above the precision.
  OwnedFloat<W> operand(u64 n) {
    const u64 L = std::max<u64>(1, random.coin() ? n + random.below(6) : 1 + random.below(n + 3));
    std::vector<W> words = random.number<W>(L);
    if (random.below(4) == 0) words.back() = 1;
    return OwnedFloat<W>(words, static_cast<s64>(random.below(9)) - static_cast<s64>(L) - 4, random.coin());
  }
};

TYPED_TEST_SUITE(Newton, BothWords);

TYPED_TEST(Newton, InverseRootOfAWordIsRight) {
  using W = TypeParam;
  const W top = static_cast<W>(~W{0});
  const W large = static_cast<W>(W{1} << (8 * sizeof(W) - 2));
  const W words[] = {1, 2, 3, 4, 8, 10005, static_cast<W>(2000000011u), large, static_cast<W>(top - 1), top};
  for (const u64 n : all_sizes())
    for (const W w : words) this->check_word(n, w, 1);
}

TYPED_TEST(Newton, InverseRootOfANumberIsRight) {
  for (const u64 n : all_sizes()) {
    for (int repeat = 0; repeat < 6; ++repeat) {
      OwnedFloat<TypeParam> a = this->operand(n);
      a.x.sign = 1;
      this->check_root(n, a.x, 1);
    }
  }
}

TYPED_TEST(Newton, ReciprocalIsRight) {
  for (const u64 n : all_sizes()) {
    for (int repeat = 0; repeat < 6; ++repeat) this->check_reciprocal(n, this->operand(n).x, 1);
  }
}

TYPED_TEST(Newton, QuotientIsRight) {
  using W = TypeParam;
  for (const u64 n : all_sizes()) {
    if (n == 0) continue;
    for (int repeat = 0; repeat < 6; ++repeat)
      this->check_division(n, this->operand(n).x, this->operand(n).x, 1, "none",
                           static_cast<DivisionMemory>(repeat % 3));
    const OwnedFloat<W> b = this->operand(n);
    this->check_division(n, b.x, b.x, 1);
    this->check_division(n, BigFloat<W>(), b.x, 1);
    // A dividend one unit under and over a divisor that is a power of W: the tops differ by one.
    std::vector<W> ones(n + 2, static_cast<W>(~W{0}));
    std::vector<W> power(n + 3, 0);
    power.back() = 1;
    const OwnedFloat<W> under(ones, -3), over(power, -3);
    this->check_division(n, under.x, over.x, 1);
    this->check_division(n, over.x, under.x, 1);
  }
}

TYPED_TEST(Newton, LargeSizesAreRightWithEveryDecomposition) {
  using W = TypeParam;
  for (const u64 n : {3000, 20000}) {
    const OwnedFloat<W> a(this->random.template number<W>(n + 3), -2);
    const OwnedFloat<W> b(this->random.template number<W>(n), 5);
    for (const u64 tds : {1, 2, 7}) {
      const char* framework = tds == 1 ? "none" : "pushpool";
      this->check_word(n, static_cast<W>(10005), tds, framework);
      this->check_division(n, a.x, b.x, tds, framework);
      this->check_division(n, a.x, b.x, tds, framework, DivisionMemory::kLeast);
      this->check_reciprocal(n, b.x, tds);
    }
    this->check_root(n, b.x, 1);
  }
}

// Newton iterations with wrapped products, of shapes that are just long enough and of longer ones, beside
// levels for which the table has none.
TYPED_TEST(Newton, WrappedProductsGiveTheSame) {
  using W = TypeParam;
  for (const u64 step : {u64{2}, u64{64}}) {
    const CountedProducts<W> wrapped(step);
    for (u64 n = 10; n <= 60; ++n) {
      for (int repeat = 0; repeat < 3; ++repeat) {
        OwnedFloat<W> a = this->operand(n);
        this->check_reciprocal(n, a.x, 1);
        this->check_division(n, this->operand(n).x, a.x, 1, "none", static_cast<DivisionMemory>(repeat % 3));
        a.x.sign = 1;
        this->check_root(n, a.x, 1);
      }
      const OwnedFloat<W> b = this->operand(n);
      this->check_division(n, b.x, b.x, 1);
      std::vector<W> ones(n + 2, static_cast<W>(~W{0}));
      std::vector<W> power(n + 3, 0);
      power.back() = 1;
      const OwnedFloat<W> under(ones, -3), over(power, -3), one({1}, 2);
      this->check_division(n, under.x, over.x, 1);
      this->check_division(n, over.x, under.x, 1);
      this->check_division(n, one.x, under.x, 1);
      this->check_division(n, under.x, one.x, 1);
      for (const BigFloat<W>* x : {&under.x, &over.x, &one.x}) {
        this->check_reciprocal(n, *x, 1);
        this->check_root(n, *x, 1);
      }
    }
  }
}

// Forward and inverse transforms of a level, which are those of a plan less those of the plan below. Plain:
// the estimate once, two halves of the operand, the error. A root takes two operands in halves, a quotient
// has one product more and may transform the reciprocal again. Wrapped: what is in part known is taken whole.
TYPED_TEST(Newton, LevelsTransformAnOperandOnce) {
  using W = TypeParam;
  using Counts = std::pair<u64, u64>;
  const u64 n = 64;
  const OwnedFloat<W> a(this->dense(n + 3), -2), b(this->dense(n + 3), 5);
  for (const bool wrap : {false, true}) {
    CountedProducts<W> counts(wrap ? 2 : 0);
    const auto level = [&](auto&& plan, auto&& below) {
      counts->reset();
      plan();
      const Counts made(counts->forward + counts->forward_cyclic, counts->inverse + counts->inverse_cyclic);
      counts->reset();
      below();
      return Counts(made.first - counts->forward - counts->forward_cyclic,
                    made.second - counts->inverse - counts->inverse_cyclic);
    };
    const auto reciprocal = [&] { this->check_reciprocal(n / 2, b.x, 1); };
    EXPECT_EQ(level([&] { this->check_word(n, 10005, 1); }, [&] { this->check_word(n / 2, 10005, 1); }),
              Counts(2, 2));
    EXPECT_EQ(level([&] { this->check_reciprocal(n, b.x, 1); }, reciprocal),
              wrap ? Counts(3, 2) : Counts(4, 3));
    EXPECT_EQ(level([&] { this->check_root(n, b.x, 1); }, [&] { this->check_root(n / 2, b.x, 1); }),
              wrap ? Counts(5, 4) : Counts(6, 5));
    EXPECT_EQ(level([&] { this->check_division(n, a.x, b.x, 1); }, reciprocal),
              wrap ? Counts(5, 3) : Counts(6, 4));
    EXPECT_EQ(level([&] { this->check_division(n, a.x, b.x, 1, "none", DivisionMemory::kLess); }, reciprocal),
              wrap ? Counts(6, 3) : Counts(7, 4));
    EXPECT_EQ(counts->forward_cyclic > 0, wrap);
  }
}

TYPED_TEST(Newton, RefusesWhatItCannotDo) {
  using W = TypeParam;
  const u64 n = 20;
  OwnedFloat<W> out(n + 4), one({1}, 0), zero({0}, 0);
  Runner<W> runner(1 << 16);
  AlignedBytes memory(1 << 20);
  const InvsqrtWord_BigFloatR<W> root(n, 2);
  const Reciprocal_BigFloatR<W> reciprocal(n, 2);
  const Division_BigFloatR<W> division(n, 2);
  EXPECT_THROW(root.run(runner.context(2), frame, out.x, 0, memory.buffer()), ArithmeticException);
  EXPECT_THROW(reciprocal.run(runner.context(2), frame, out.x, zero.x, memory.buffer()), ArithmeticException);
  EXPECT_THROW(division.run(runner.context(2), frame, out.x, one.x, zero.x, memory.buffer()),
               ArithmeticException);
  EXPECT_THROW(root.run(runner.context(3), frame, out.x, 5, memory.buffer()), InvalidParametersException);
  EXPECT_THROW(division.run(runner.context(1), frame, out.x, one.x, one.x, memory.buffer()),
               InvalidParametersException);
  const LinearHeapBuffer small(memory.data(), root.need().ram_bytes - 64);
  EXPECT_THROW(root.run(runner.context(1), frame, out.x, 5, small), BufferTooSmallException);
}

// What a miscomputed product looks like to an iteration.
TYPED_TEST(Newton, ErrorOutsideItsBoundIsAFailure) {
  using W = TypeParam;
  const W ones = static_cast<W>(~W{0});
  Runner<W> runner(1 << 12);
  const ParallelContext parallel = runner.context(1).parallel;
  const auto side = [&](std::vector<W> words, s64 exp, u64 below) {
    OwnedFloat<W> e(words, exp);
    return take_error(e.x, below, "test()", parallel);
  };
  const auto message = [&](std::vector<W> words, s64 exp, u64 below) {
    return message_of<AlgorithmFailedException>([&] { side(words, exp, below); });
  };
  EXPECT_EQ(side({7, 0, 0, 1}, -3, 4), Estimate::kOver);
  EXPECT_EQ(side({0, 0, 0, 1}, -3, 4), Estimate::kExact);
  EXPECT_EQ(side({7, ones, ones}, -3, 4), Estimate::kUnder);
  EXPECT_EQ(message({7, 1, 1}, -2, 4),
            "Over-Estimate -> Convergence Failure:\n    Maximum Error = -4\n    Actual Error  = 0");
  EXPECT_EQ(message({7, ones - 1, ones, ones}, -4, 5),
            "Under-Estimate -> Convergence Failure:\n    Maximum Error = -5\n    Actual Error  = -2");
  EXPECT_EQ(message({7, 0, 2}, -2, 1), "Convergence Failure:\n    top = 2");
}

// The top words of a dividend and of what was made of it differ by one at most.
TYPED_TEST(Newton, TopsThatDisagreeAreAFailure) {
  using W = TypeParam;
  Runner<W> runner(64);
  const ParallelContext serial = runner.context(1).parallel;
  const auto side = [&](W a, W b) {
    OwnedFloat<W> x({5, a}, 0), y({5, b}, 0), out(6);
    return subtract_product(out.x, 2, x.x, y.x, "test()", serial);
  };
  EXPECT_EQ(side(7, 7), Estimate::kExact);
  EXPECT_EQ(side(8, 7), Estimate::kUnder);
  EXPECT_EQ(side(7, 8), Estimate::kOver);
  EXPECT_THROW(side(9, 7), AlgorithmFailedException);
  EXPECT_THROW(side(7, 9), AlgorithmFailedException);
}

// A wrapped product does not show the words that must be those of 1 or of the dividend; an estimate that is
// off is found all the same.
TYPED_TEST(Newton, WrappedErrorOutsideItsBoundIsAFailure) {
  using W = TypeParam;
  const u64 n = 40;
  const CountedProducts<W> wrapped(2);
  const OwnedFloat<W> a(this->dense(n + 3), -7);
  OwnedFloat<W> t = made_by<W>(Reciprocal_BigFloatR<W>(n / 2, 1), 1, "none", 4096, a.x);
  Runner<W> runner(1 << 16);
  const LevelShape shape = LevelShape::wrapped<W>(n, 1);
  ASSERT_GE(shape.wrap, n);
  AlignedBytes memory(layout_bytes([&](auto& arena) { RamLevelProducts<W>::lay_out(shape, 1, arena); }));
  RamLevelProducts<W> products(runner.context(1), shape, memory.buffer());
  OwnedFloat<W> none(1), one({1}, 0);
  const auto fails = [&](u64 word, W flip, s64 exp) {
    t.x.T[word] ^= flip;
    t.x.exp += exp;
    products.keep(t.x);
    bool failed = false;
    try {
      products.error(none.x, a.x, "test()");
    } catch (const AlgorithmFailedException&) {
      EXPECT_THROW(products.difference(none.x, one.x, a.x, "test()"), AlgorithmFailedException);
      failed = true;
    }
    t.x.T[word] ^= flip;
    t.x.exp -= exp;
    return failed;
  };
  EXPECT_FALSE(fails(0, 1, 0));
  for (u64 word = 6; word < t.x.L; ++word) {
    const W flip = t.x.T[word] == 1 ? 2 : 1;  // leaves the top word a top word
    EXPECT_TRUE(fails(word, flip, 0)) << word;
  }
  for (const s64 exp : {-30, -2, -1, 1, 2, 30}) EXPECT_TRUE(fails(0, 0, exp)) << exp;
}

TYPED_TEST(Newton, SmallQuotientNeedsNoTransform) {
  using W = TypeParam;
  const Division_BigFloatR<W> plan(9, 1);
  const ScopedBasicTable<W> basecase_only({{"BKT", 5120}});
  EXPECT_LE(plan.need().table_bits, 5120u);
  this->check_division(9, this->operand(9).x, this->operand(9).x, 1);
}

}  // namespace
}  // namespace orl::test
