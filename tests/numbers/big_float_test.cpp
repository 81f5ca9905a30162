#include "numbers/big_float.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "core/exceptions.h"
#include "multiply/algorithm_table.h"
#include "multiply/basic_int.h"
#include "numbers/number_samples.h"
#include "support/multiplication.h"

namespace orl::test {
namespace {

template <class W>
class BigFloatTest : public NumberTest<W> {};
TYPED_TEST_SUITE(BigFloatTest, BothWords);

// `result` is what truncation of the exact value leaves: never above it, less than `ulps` units of its lowest
// word below, and at least `words` words long unless it is exact.
template <class W>
testing::AssertionResult truncates(const BigFloat<W>& result, const Mpz& exact, u64 words, u64 ulps) {
  if (result.L > 0 && result.T[result.L - 1] == 0)
    return testing::AssertionFailure() << "the top word is zero";
  const Mpz error = exact - magnitude_value(result);
  if (error.sign() == 0) return testing::AssertionSuccess();
  if (error.sign() < 0) return testing::AssertionFailure() << "the result is too large";
  if (result.L < words) return testing::AssertionFailure() << "only " << result.L << " words";
  if (mpz_cmp(error, word_power<W>(result.exp) * Mpz(ulps)) < 0) return testing::AssertionSuccess();
  return testing::AssertionFailure() << "the result is too small";
}

TYPED_TEST(BigFloatTest, DoublesAreTakenExactlyAndGivenBackTruncated) {
  using W = TypeParam;
  Sample<W> x(3);
  const double samples[] = {1.0,   -1.0,    0.5,    3.0,       0x1.fffffffffffffp-1,
                            1e300, -1e-300, 5e-324, 0x1p-1022, 4294967296.0};
  for (int i = 0; i < 200; ++i) {
    const double d = i < 10 ? samples[i]
                            : std::ldexp(static_cast<double>(this->random.next() >> 11) + 1,
                                         static_cast<int>(this->random.below(1800)) - 900);
    const s64 shift = this->exponent();
    x->set_double(d, shift);
    EXPECT_NE(x->T[0], W{0});
    EXPECT_EQ(x->signum(), d < 0 ? -1 : 1);
    s64 e;
    const double mantissa = x->to_double(&e);
    EXPECT_LT(std::abs(mantissa), 1.0);
    // The words of a power of two in the middle of a word: exact, since the words hold the double's bits
    // alone.
    EXPECT_EQ(mantissa, std::ldexp(d, static_cast<int>((shift - e) * BigFloat<W>::word_bits))) << d;
  }
  x->set_double(0.0);
  EXPECT_EQ(x->signum(), 0);
  s64 e;
  EXPECT_EQ(x->to_double(&e), 0.0);
  // All ones below 1: the nearest double is 1, the truncated one is not.
  Sample<W> ones(5);
  std::fill_n(ones->T, 5, static_cast<W>(~W{0}));
  ones->L = 5;
  ones->sign = 1;
  EXPECT_EQ(ones->to_double(&e), 1.0 - 0x1p-53);
  EXPECT_EQ(e, 5);
  BigFloat<W> small(ones->base, 8 / sizeof(W) - 1);
  EXPECT_THROW(small.set_double(2.0), BufferTooSmallException);
}

TYPED_TEST(BigFloatTest, ComparesAndMeasures) {
  using W = TypeParam;
  for (int i = 0; i < 300; ++i) {
    Sample<W> a(this->random, this->random.below(5), static_cast<s64>(this->random.below(5)));
    Sample<W> b(this->random, this->random.below(5), static_cast<s64>(this->random.below(5)));
    if (this->random.below(4) == 0 && a->L <= b.words.size()) b.number = a.number;
    EXPECT_EQ(BigFloat<W>::cmp(a, b), (magnitude_value(a.number) - magnitude_value(b.number)).sign());
    EXPECT_EQ(BigFloat<W>::cmp_signed(a, b), (value(a.number) - value(b.number)).sign());
    for (s64 e = -1; e < 12; ++e)
      EXPECT_EQ(a->word_at(e),
                ((magnitude_value(a.number) >> (static_cast<u64>(e - kLowest) * BigFloat<W>::word_bits))
                     .template words<W>(1)[0]));
    if (a->L == 0) continue;
    EXPECT_EQ(a->bit_length() - kLowest * BigFloat<W>::word_bits,
              static_cast<s64>(mpz_sizeinbase(magnitude_value(a.number), 2)));
  }
}

TYPED_TEST(BigFloatTest, CutsAndStrips) {
  using W = TypeParam;
  using Number = BigFloat<W>;
  using Words = std::vector<W>;
  const W ones = static_cast<W>(~W{0});
  Words far(40, 0);
  far[39] = 1;
  const struct {
    Words words;
    void (*cut)(Number&);
    Words left;
    s64 exp;
  } rows[] = {{{0, 0, 5, 6, 7}, [](Number& x) { x.truncate(3); }, {0, 0, 5, 6, 7}, 0},
              {{0, 0, 5, 6, 7}, [](Number& x) { x.truncate(0); }, {6, 7}, 3},
              {{0, 0, 5, 6, 7}, [](Number& x) { x.strip_tzs(); }, {5, 6, 7}, 2},
              {{0, 0, 5, 6, 7}, [](Number& x) { x.strip_tzs_aligned(); }, {0, 0, 5, 6, 7}, 0},
              {far, [](Number& x) { x.strip_tzs_aligned(); }, {0, 0, 0, 0, 0, 0, 0, 1}, 32},
              {{4, 0, 5, 6, 7}, [](Number& x) { x.truncate_above(2); }, {4}, 0},
              {{4}, [](Number& x) { x.truncate_above(-3); }, {}, 0},
              {{1, 0, ones, ones}, [](Number& x) { x.strip_top_ones(); }, {1}, 0},
              {{ones, ones}, [](Number& x) { x.strip_top_ones(); }, {}, 0},
              {{0, 1, 0, 0}, [](Number& x) { x.strip_top_zeros(); }, {0, 1}, 0}};
  for (const auto& row : rows) {
    Sample<W> x(40);
    std::copy(row.words.begin(), row.words.end(), x->base);
    x->L = row.words.size();
    x->sign = 0;
    row.cut(x.number);
    EXPECT_EQ(Words(x->T, x->T + x->L), row.left);
    EXPECT_EQ(x->exp, row.exp);
    EXPECT_EQ(x->sign, row.left.empty());
  }
}

TYPED_TEST(BigFloatTest, PurturbUpAddsOneUnitBelowTheTop) {
  using W = TypeParam;
  for (int i = 0; i < 400; ++i) {
    const u64 n = this->random.below(8);
    Sample<W> x(this->random, 1 + this->random.below(6), this->exponent(), this->random.below(3), 9);
    if (this->random.coin()) std::fill_n(x->T, x->L, static_cast<W>(~W{0}));
    const Mpz expected = magnitude_value(x.number) + word_power<W>(x->magnitude() - 1 - static_cast<s64>(n));
    x->purturb_up(n);
    EXPECT_EQ(magnitude_value(x.number), expected);
    EXPECT_NE(x->T[x->L - 1], W{0});
    EXPECT_TRUE(x.intact());
  }
  // All ones grow by a word, and there is none.
  Sample<W> full(2);
  std::fill_n(full->base, 2, static_cast<W>(~W{0}));
  full->L = 2;
  EXPECT_THROW(full->purturb_up(1), BufferTooSmallException);
  EXPECT_THROW(full->purturb_up(2), BufferTooSmallException);
  EXPECT_EQ(full->T[0], static_cast<W>(~W{0}));
}

TYPED_TEST(BigFloatTest, WordOperationsInPlace) {
  using W = TypeParam;
  for (int i = 0; i < 300; ++i) {
    Sample<W> x(this->random, 1 + this->random.below(6), this->exponent(), 0, 2);
    const Mpz before = value(x.number);
    const s64 bits = static_cast<s64>(this->random.below(300)) - 150;
    x->mp2(bits, this->serial);
    const Mpz after = value(x.number);
    EXPECT_EQ(bits < 0 ? after << static_cast<u64>(-bits) : after,
              bits < 0 ? before : before << static_cast<u64>(bits));

    const W w = this->random.template edge_word<W>();
    x->L = x->L > 6 ? 6 : x->L;
    if (x->T[x->L - 1] == 0) continue;
    const Mpz factor_before = value(x.number);
    x->mul_uW(w, this->serial);
    EXPECT_EQ(value(x.number), factor_before * Mpz(w));
    EXPECT_EQ(x->L == 0, w == 0);
    EXPECT_TRUE(x.intact());

    Sample<W> y(this->random, 1 + this->random.below(4), 0, 0, 1);
    const s64 e = static_cast<s64>(this->random.below(y->L + 3)) - 1;
    const Mpz sum = magnitude_value(y.number) + Mpz(w) * word_power<W>(e);
    if (w != 0 && (e < 0 || e > y->magnitude())) {
      EXPECT_THROW(y->add_ip(w, e), InvalidParametersException);
    } else {
      y->add_ip(w, e);
      EXPECT_EQ(magnitude_value(y.number), sum);
    }
    EXPECT_TRUE(y.intact());
  }
  Sample<W> full(this->random, 3, 0);
  EXPECT_THROW(full->mul_uW(2, this->serial), BufferTooSmallException);
  EXPECT_THROW(full->mp2(1, this->serial), BufferTooSmallException);
  full->mul_uW(1, this->serial);
  full->mp2(BigFloat<W>::word_bits, this->serial);
  EXPECT_EQ(full->exp, 1);
}

TYPED_TEST(BigFloatTest, WordFactorsAndDivisorsAtAPrecision) {
  using W = TypeParam;
  for (int i = 0; i < 400; ++i) {
    const u64 p = 1 + this->random.below(8);
    const Sample<W> a(this->random, this->random.below(12), this->exponent());
    Sample<W> t(p + 3);
    const W w = this->random.template edge_word<W>();
    t->set_mul_uW(p, a, w, this->serial);
    EXPECT_TRUE(truncates(t.number, magnitude_value(a.number) * Mpz(w), p + 1, w == 0 ? 1 : w));
    EXPECT_EQ(t->signum(), w == 0 ? 0 : a.number.signum());

    const s64 factor = static_cast<s64>(this->random.template edge_word<u64>());
    const Mpz exact = value(a.number) * Mpz(factor);
    t->set_mul_sL(p, a, factor, this->serial);
    const Mpz error = abs(exact - value(t.number));
    EXPECT_TRUE(error <= magnitude_value(a.number) << 64 >> p * BigFloat<W>::word_bits);
    EXPECT_EQ(t->signum(), exact.sign());
    EXPECT_LE(t->L, p + 2);
    EXPECT_TRUE(t.intact());

    auto d =
        static_cast<std::make_signed_t<W>>(this->random.template word<W>() >> (1 + this->random.below(20)));
    if ((d & (d - 1)) == 0) d = 3;
    if (this->random.coin()) d = -d;
    t->set_div_sW(p, a, d, this->serial);
    const Mpz divisor(static_cast<u64>(d < 0 ? -d : d));
    // The quotient loses less than a word of the operand's last place and less than one of its own.
    EXPECT_TRUE(truncates(t.number, magnitude_value(a.number) / divisor, p + 1, 2));
    EXPECT_EQ(t->signum(), d < 0 ? -a.number.signum() : a.number.signum());
    EXPECT_TRUE(t.intact());
  }
  Sample<W> t(8);
  const Sample<W> a(this->random, 3, 0);
  EXPECT_THROW(t->set_div_sW(3, a, 0, this->serial), ArithmeticException);
  EXPECT_THROW(t->set_div_sW(3, a, 8, this->serial), InvalidParametersException);
  EXPECT_THROW(t->set_div_sW(3, a, -1, this->serial), InvalidParametersException);
  t->set_div_sW(3, a, 1, this->serial);
  EXPECT_EQ(BigFloat<W>::cmp_signed(t, a), 0);
  BigFloat<W> small(t->base, 4);
  EXPECT_THROW(small.set_div_sW(3, a, 7, this->serial), BufferTooSmallException);
}

// Sums and differences in every relative position, with and without forks.
TYPED_TEST(BigFloatTest, SumsOfNumbersThatDoNotLineUp) {
  using W = TypeParam;
  const u64 tds_values[] = {1, 2, 7, 64};
  for (int i = 0; i < 600; ++i) {
    const bool large = i % 30 == 29;
    const u64 longest = large ? 15000 : i % 3 == 0 ? 400 : 6;
    const u64 p = this->random.below(4) == 0 ? 2 * longest : 1 + this->random.below(longest);
    const ParallelContext parallel{this->reverse, tds_values[this->random.below(4)]};
    const Sample<W> a(this->random, this->random.below(longest + 1),
                      static_cast<s64>(this->random.below(longest + 3)));
    const Sample<W> b(this->random, this->random.below(longest + 1),
                      static_cast<s64>(this->random.below(longest + 3)));
    const Mpz x = magnitude_value(a.number), y = magnitude_value(b.number);
    Sample<W> t(p + 2, this->random.below(16));

    t->set_uadd(p, a, b, parallel);
    ASSERT_TRUE(truncates(t.number, x + y, p + 1, 2)) << i;
    const bool a_larger = mpz_cmp(x, y) >= 0;
    t->set_usub(p, a_larger ? a : b, a_larger ? b : a, parallel);
    const Mpz error = abs(abs(x - y) - magnitude_value(t.number));
    const s64 top = std::max(a.number.magnitude(), b.number.magnitude());
    const s64 unit = std::max(top - static_cast<s64>(p) - 1, s64{0});  // below it the numbers have no words
    ASSERT_TRUE(error <= word_power<W>(unit)) << i;
    ASSERT_TRUE(t->L == 0 || t->T[t->L - 1] != 0);

    for (const bool subtract : {false, true}) {
      if (subtract)
        t->set_sub(p, a, b, parallel);
      else
        t->set_add(p, a, b, parallel);
      const Mpz right = subtract ? value(a.number) - value(b.number) : value(a.number) + value(b.number);
      ASSERT_TRUE(abs(right - value(t.number)) <= word_power<W>(unit) * Mpz(2)) << i;
    }
    ASSERT_TRUE(t.intact());
  }
}

TYPED_TEST(BigFloatTest, DifferencesBelowZeroAndShortBuffersAreRefused) {
  using W = TypeParam;
  Sample<W> one(1), two(1), t(20);
  one->set_uW(1);
  two->set_uW(2);
  EXPECT_THROW(t->set_usub(4, one, two, this->serial), UnsupportedNegativeException);
  BigFloat<W> zero;
  EXPECT_THROW(t->set_usub(4, zero, two, this->serial), UnsupportedNegativeException);
  t->set_sub(4, one, one, this->serial);
  EXPECT_EQ(t->signum(), 0);
  t->set_sub(4, one, two, this->serial);
  EXPECT_EQ(t->signum(), -1);
  const Sample<W> a(this->random, 9, 0), b(this->random, 9, 2);
  BigFloat<W> small(t->base, 7);
  EXPECT_THROW(small.set_uadd(6, a, b, this->serial), BufferTooSmallException);
  EXPECT_THROW(BigFloat<W>(t->base, 6).set_usub(6, b, a, this->serial), BufferTooSmallException);
}

// Two numbers that agree above `top`, or differ there by the borrow alone.
TYPED_TEST(BigFloatTest, SubtractionUnderATopForgetsTheWordsAboveIt) {
  using W = TypeParam;
  for (int i = 0; i < 200; ++i) {
    const u64 p = 2 + this->random.below(10);
    Sample<W> a(this->random, 12, 0);
    const u64 kept = 1 + this->random.below(10);
    Sample<W> difference(this->random, 1 + this->random.below(kept), 0);
    Sample<W> b(14), t(p + 1);
    if (BigFloat<W>::cmp(a, difference) < 0) continue;
    if (difference->word_at(static_cast<s64>(kept) - 1) == static_cast<W>(~W{0})) continue;
    b->set_usub(12, a, difference, this->serial);
    t->set_rsub(p, a, b, static_cast<s64>(kept), 0, this->serial);
    const Mpz error = abs(magnitude_value(difference.number) - magnitude_value(t.number));
    EXPECT_TRUE(error <= word_power<W>(static_cast<s64>(kept) - static_cast<s64>(p) - 1));
    if (kept <= p + 1) {
      EXPECT_EQ(error.sign(), 0);
    }
    EXPECT_EQ(t->signum(), t->L == 0 ? 0 : -1);
    EXPECT_TRUE(t.intact());
  }
}

TYPED_TEST(BigFloatTest, ProductsKeepTheTopWords) {
  using W = TypeParam;
  const TestTables tables(0x50000);
  // Precisions around the direct loops, the window of few words and the first rows of the table.
  const u64 bits = BigFloat<W>::word_bits;
  std::vector<u64> precisions;
  for (u64 p = 0; p <= 24; ++p) precisions.push_back(p);
  for (const u64 row : {u64{5120}, u64{20000}, u64{100000}})
    for (const u64 p : {row / bits / 2 - 3, row / bits / 2 - 2, row / bits / 2 - 1, row / bits})
      precisions.push_back(p);
  for (const u64 p : precisions) {
    for (const u64 tds : {u64{1}, u64{7}}) {
      const GuardedBlock mul_block(BigFloat<W>::mul_scratch(p, tds));
      const GuardedBlock sqr_block(BigFloat<W>::sqr_scratch(p, tds));
      const ParallelContext parallel{this->reverse, tds};
      for (int i = 0; i < 12; ++i) {
        const u64 longest = 2 * p + 6;
        const auto length = [&] { return i < 3 ? p + 2 : this->random.below(longest); };
        const Sample<W> a(this->random, length(), this->exponent());
        const Sample<W> b(this->random, length(), this->exponent());
        const u64 capacity = std::min(p + 2, std::min(a.number.L, p + 2) + std::min(b.number.L, p + 2));
        Sample<W> t(capacity, this->random.below(16));
        t->set_mul(p, a, b, {parallel, tables, mul_block.buffer()});
        const Mpz exact = product_magnitude(a.number, b.number);
        ASSERT_TRUE(truncates(t.number, exact, std::min(p + 1, a.number.L + b.number.L - 1), 4)) << "p " << p;
        if (a.number.L + b.number.L <= p + 2) {
          ASSERT_EQ(magnitude_value(t.number), exact);
        }
        ASSERT_EQ(t->signum(), a.number.signum() * b.number.signum());
        ASSERT_TRUE(t.intact() && mul_block.intact());

        Sample<W> s(std::min(p + 2, 2 * std::min(a.number.L, p + 2)), this->random.below(16));
        s->set_sqr(p, a, {parallel, tables, sqr_block.buffer()});
        const Mpz square = product_magnitude(a.number, a.number);
        ASSERT_TRUE(truncates(s.number, square, std::min(p + 1, 2 * a.number.L - 1), 4)) << "p " << p;
        ASSERT_EQ(s->signum(), a.number.L > 0 ? 1 : 0);
        ASSERT_TRUE(s.intact() && sqr_block.intact());
        if (capacity > 0 && a.number.L > 0 && b.number.L > 0) {
          BigFloat<W> small(t->base, capacity - 1);
          ASSERT_THROW(small.set_mul(p, a, b, {parallel, tables, mul_block.buffer()}),
                       BufferTooSmallException);
        }
      }
    }
  }
}

TYPED_TEST(BigFloatTest, CopiesFromOtherKinds) {
  using W = TypeParam;
  Sample<W> t(6);
  BasicIntO<W> small(u64{0x1234567890abcdef});
  t->set_BasicInt(small);
  EXPECT_EQ(magnitude_value(t.number), Mpz(0x1234567890abcdef) * word_power<W>(0));
  const Sample<W> a(this->random, 9, -3);
  t->set_BigFloat(4, a, this->serial);
  EXPECT_TRUE(truncates(t.number, magnitude_value(a.number), 6, 1));
  EXPECT_EQ(t->sign, a.number.sign);
  EXPECT_THROW(t->set_BigFloat(5, a, this->serial), BufferTooSmallException);
  ExactSample<W> exact(this->random, 5, 7);
  t->set_ExactFloat(exact, this->serial);
  EXPECT_EQ(value(t.number), value(exact.number));
  t->set_sW(std::numeric_limits<std::make_signed_t<W>>::min());
  EXPECT_EQ(value(t.number), Mpz(0) - Mpz(u64{1} << (BigFloat<W>::word_bits - 1)) * word_power<W>(0));
}

}  // namespace
}  // namespace orl::test
