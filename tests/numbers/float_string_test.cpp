#include "numbers/float_string.h"

#include <gtest/gtest.h>
#include <mpfr.h>

#include "core/exceptions.h"
#include "numbers/number_samples.h"
#include "threads/simple_frameworks.h"

namespace orl::test {
namespace {

template <class W>
class FloatStringTest : public testing::Test {
 protected:
  static std::string text(const BigFloat<W>& x, u64 digits, u32 radix = 10) {
    FloatString<W> s;
    s.set_float(x, digits, radix);
    return std::string(s.text());
  }
  std::string text(double x, u64 digits, u32 radix = 10) {
    Sample<W> number(4);
    number->set_double(x);
    return text(number, digits, radix);
  }
};
TYPED_TEST_SUITE(FloatStringTest, BothWords);

TYPED_TEST(FloatStringTest, PlainAndScientificForms) {
  EXPECT_EQ(this->text(0.5, 5), "0.5");
  EXPECT_EQ(this->text(-0.5, 5), "-0.5");
  EXPECT_EQ(this->text(5, 5), "5");
  EXPECT_EQ(this->text(100, 5), "100");
  EXPECT_EQ(this->text(0.0, 5), "0");
  EXPECT_EQ(this->text(-12.5, 5), "-12.5");
  EXPECT_EQ(this->text(12345, 5), "12345");
  EXPECT_EQ(this->text(123456, 5), "1.2345 *10^ 5");
  EXPECT_EQ(this->text(1e7, 5), "1 *10^ 7");
  EXPECT_EQ(this->text(0.046875, 5), "4.6875 *10^ -2");
  EXPECT_EQ(this->text(-1.5e28, 5), "-1.5 *10^ 28");
  EXPECT_EQ(this->text(255.5, 5, 16), "ff.8");
  EXPECT_EQ(this->text(0x1p64, 5, 16), "1 *16^ 16");
  EXPECT_EQ(this->text(0.3, 5), "0.29999") << "digits are truncated";
}

TYPED_TEST(FloatStringTest, DigitsAreThoseOfAnIndependentLibrary) {
  using W = TypeParam;
  Random random;
  mpfr_t m;
  mpfr_init2(m, 64 * 64);
  for (int i = 0; i < 100; ++i) {
    const Sample<W> x(random, 1 + random.below(12), static_cast<s64>(random.below(60)) - 30);
    const u64 digits = 1 + random.below(90);
    const u32 radix = random.coin() ? 10 : 16;
    mpfr_set_z(m, Mpz(x.number.T, x.number.L), MPFR_RNDZ);
    mpfr_mul_2si(m, m, x.number.exp * BigFloat<W>::word_bits, MPFR_RNDZ);
    mpfr_exp_t exponent;
    char* const expected =
        mpfr_get_str(nullptr, &exponent, static_cast<int>(radix), std::max<u64>(digits, 2), m, MPFR_RNDZ);
    FloatString<W> s;
    s.set_digits(x, digits, radix);
    ASSERT_EQ(std::string(s.text()), std::string(expected, digits)) << "radix " << radix;
    ASSERT_EQ(s.exponent() + static_cast<s64>(digits), exponent);
    mpfr_free_str(expected);
  }
  mpfr_clear(m);
}

TYPED_TEST(FloatStringTest, IntegersInBothRadixes) {
  using W = TypeParam;
  Random random;
  for (int i = 0; i < 60; ++i) {
    const u64 L = random.below(30);
    std::vector<W> words = random.number<W>(L);
    BigInt<W> integer(words.data(), L);
    integer.L = L;
    integer.sign = L == 0 || random.coin();
    for (const u32 radix : {10, 16}) {
      char* const digits = mpz_get_str(nullptr, static_cast<int>(radix), Mpz(words));
      FloatString<W> s;
      s.set_integer(integer, radix);
      EXPECT_EQ(std::string(s.text()), (integer.sign ? "" : "-") + std::string(digits));
      std::free(digits);
    }
  }
}

TYPED_TEST(FloatStringTest, RoundsAndRefuses) {
  using W = TypeParam;
  W word = 999959;
  BigInt<W> integer(&word, 1);
  integer.L = 1;
  FloatString<W> s;
  s.set_digits(integer);
  s.round(5);
  EXPECT_EQ(s.text(), "99996");
  EXPECT_EQ(s.exponent(), 1);
  s.round(4);
  EXPECT_EQ(s.text(), "1000");
  EXPECT_EQ(s.exponent(), 3);
  EXPECT_THROW(s.set_digits(integer), StringException);
  EXPECT_THROW(s.apply_dot(5), StringException);
  s.apply_dot(1);
  EXPECT_EQ(s.text(), "1.000");
  EXPECT_THROW(s.truncate(2), StringException);
  s.apply_exp();
  EXPECT_EQ(s.text(), "1.000 *10^ 6");
  FloatString<W> room;
  room.set_digits(integer);
  EXPECT_THROW(
      {
        for (int i = 0; i < 20; ++i) room.apply_dot(0);
      },
      StringException);
}

}  // namespace
}  // namespace orl::test
