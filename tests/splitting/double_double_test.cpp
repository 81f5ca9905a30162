// Double-double arithmetic and the Stirling sums made of it, against MPFR.
#include "splitting/double_double.h"

#include <gtest/gtest.h>
#include <mpfr.h>

#include "splitting/series.h"
#include "support/random_words.h"

namespace orl {
namespace {

/// An mpfr number of 300 bits that frees itself.
struct Real {
  Real() { mpfr_init2(x, 300); }
  Real(const Real&) = delete;
  ~Real() { mpfr_clear(x); }
  Real& operator=(DoubleDouble d) {
    mpfr_set_d(x, d.hi, MPFR_RNDN);
    mpfr_add_d(x, x, d.lo, MPFR_RNDN);
    return *this;
  }
  mpfr_t x;
};

/// log2 |found - expected|, relative to max(|expected|, floor).
double error_bits(DoubleDouble found, const Real& expected, double floor) {
  Real f;
  f = found;
  mpfr_sub(f.x, f.x, expected.x, MPFR_RNDN);
  if (mpfr_zero_p(f.x)) return -1000;
  const double scale = std::max(std::fabs(mpfr_get_d(expected.x, MPFR_RNDN)), floor);
  long e = 0;
  const double m = mpfr_get_d_2exp(&e, f.x, MPFR_RNDN);
  return std::log2(std::fabs(m)) + static_cast<double>(e) - std::log2(scale);
}

DoubleDouble random_value(test::Random& random) {
  const double hi =
      std::ldexp(static_cast<double>(random.next() >> 11) + 1, static_cast<int>(random.below(80)) - 90);
  const double lo = hi * std::ldexp(static_cast<double>(random.next() >> 11), -108);
  return DoubleDouble(random.coin() ? hi : -hi) + DoubleDouble(random.coin() ? lo : -lo);
}

TEST(DoubleDouble, ArithmeticIsGoodTo100Bits) {
  test::Random random;
  SCOPED_TRACE(random.replay());
  for (int i = 0; i < 2000; ++i) {
    const DoubleDouble a = random_value(random), b = random_value(random);
    Real x, y, z;
    x = a, y = b;
    const double larger = std::max(std::fabs(a.hi), std::fabs(b.hi));
    mpfr_add(z.x, x.x, y.x, MPFR_RNDN);
    ASSERT_LT(error_bits(a + b, z, larger), -102);
    mpfr_sub(z.x, x.x, y.x, MPFR_RNDN);
    ASSERT_LT(error_bits(a - b, z, larger), -102);
    mpfr_mul(z.x, x.x, y.x, MPFR_RNDN);
    ASSERT_LT(error_bits(a * b, z, 0), -100);
    mpfr_div(z.x, x.x, y.x, MPFR_RNDN);
    ASSERT_LT(error_bits(a / b, z, 0), -100);
  }
}

TEST(DoubleDouble, ExponentialAndLogarithmAreGoodTo98Bits) {
  test::Random random;
  SCOPED_TRACE(random.replay());
  for (int i = 0; i < 500; ++i) {
    const DoubleDouble wide = DoubleDouble(static_cast<double>(random.below(1200)) - 600) +
                              random_value(random) * DoubleDouble(1e-12);
    Real x, z;
    x = wide;
    mpfr_exp(z.x, x.x, MPFR_RNDN);
    ASSERT_LT(error_bits(exp(wide), z, 0), -94) << wide.hi;
    const DoubleDouble n = DoubleDouble::from_u64(random.next() >> random.below(64));
    x = n;
    mpfr_log1p(z.x, x.x, MPFR_RNDN);
    ASSERT_LT(error_bits(log1p(n), z, 1), -98) << n.hi;
  }
  EXPECT_EQ(log1p(DoubleDouble(0)), DoubleDouble(0));
}

TEST(DoubleDouble, StirlingSumsDifferFromLogFactorialByLessThanTheirFirstTerm) {
  Real x, f;
  for (const u64 n : {u64{0}, u64{1}, u64{2}, u64{10}, u64{1000}, u64{1} << 40, u64{1} << 56, ~u64{0} >> 1}) {
    mpfr_set_ui(x.x, n, MPFR_RNDN);
    mpfr_add_ui(x.x, x.x, 1, MPFR_RNDN);
    mpfr_lngamma(x.x, x.x, MPFR_RNDN);
    f = stirling(n);
    mpfr_sub(x.x, x.x, f.x, MPFR_RNDN);
    const double missing = mpfr_get_d(x.x, MPFR_RNDN);
    // F lies below ln n! by at most 1 / (12 (n + 1)); its own rounding is 2^-100 of n ln n.
    const double rounding = std::ldexp(static_cast<double>(n) * 44 + 1, -96);
    EXPECT_GE(missing, -rounding) << n;
    EXPECT_LE(missing, 1 / (12 * (static_cast<double>(n) + 1)) + rounding) << n;
  }
}

TEST(DoubleDouble, WholeNumbersPassThroughUnchanged) {
  for (const u64 n : {u64{0}, u64{1}, (u64{1} << 53) + 1, (u64{1} << 60) - 1, ~u64{0}, ~u64{0} - 1023}) {
    EXPECT_EQ(DoubleDouble::from_u64(n).rint_u64(), n);
    EXPECT_EQ(DoubleDouble::from_u64(n).floor_u64(), n);
  }
  const DoubleDouble above = DoubleDouble::from_u64((u64{1} << 55) + 1);
  EXPECT_EQ((above - DoubleDouble(0.25)).floor_u64(), u64{1} << 55);
  EXPECT_EQ((above + DoubleDouble(0.25)).floor_u64(), (u64{1} << 55) + 1);
  EXPECT_EQ(DoubleDouble(2.75).floor_u64(), 2u);
}

TEST(DoubleDouble, ParsesDecimalStringsToFullPrecision) {
  for (const char* text : {"0.6931471805599453094172321214581765680755", "10939058860032000",
                           "-44.361419555836", "0.081061466795327258219670263594382360138602526362217"}) {
    Real z;
    mpfr_set_str(z.x, text, 10, MPFR_RNDN);
    EXPECT_LT(error_bits(DoubleDouble::parse(text), z, 0), -100) << text;
  }
  EXPECT_LT(DoubleDouble::parse("1.5"), DoubleDouble(1.5, 1e-20));
  EXPECT_GT(DoubleDouble(1.5, 1e-20), DoubleDouble(1.5));
}

}  // namespace
}  // namespace orl
