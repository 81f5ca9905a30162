#include "formulas/simple_int.h"

#include <gtest/gtest.h>

#include "core/exceptions.h"
#include "support/gmp_oracle.h"
#include "support/random_words.h"

namespace orl::Polynomials {
namespace {

using test::Mpz;
using test::Random;

Mpz value(const SimpleInt& n) {
  Mpz z;
  for (u64 i = n.L(); i-- > 0;) z = (z << 64) + Mpz(n[i]);
  return n.sign() ? z : Mpz(0) - z;
}

TEST(SimpleInts, ArithmeticAgreesWithGmp) {
  Random random;
  for (int round = 0; round < 5000; ++round) {
    const SimpleInt a(random.coin(), random.words<u64>(random.below(9)));
    const SimpleInt b(random.coin(), random.words<u64>(random.below(6)));
    const Mpz x = value(a), y = value(b);
    EXPECT_TRUE(value(a + b) == x + y);
    EXPECT_TRUE(value(a - b) == x - y);
    EXPECT_TRUE(value(a * b) == x * y);
    EXPECT_TRUE((a - a).is_zero() && (a - a).sign());
    EXPECT_EQ((a <=> b) < 0, mpz_cmp(x, y) < 0);
    if (b.is_zero()) continue;
    const auto [quotient, rest] = a.divmod(b);
    Mpz q, r;
    mpz_tdiv_qr(q, r, x, y);
    EXPECT_TRUE(value(quotient) == q && value(rest) == r);
    const auto [whole, nothing] = (a * b).divmod(b);
    EXPECT_TRUE(whole == a && nothing.is_zero());
  }
  EXPECT_THROW(SimpleInt(1).divmod(SimpleInt()), ArithmeticException);
}

TEST(SimpleInts, ConvertOnlyWhatASignedWordHolds) {
  for (const s64 n : {s64{0}, s64{1}, s64{-1}, s64{INT64_MAX}, s64{INT64_MIN}})
    EXPECT_EQ(static_cast<s64>(SimpleInt(n)), n);
  const u64 half = u64{1} << 63;
  EXPECT_THROW(static_cast<void>(static_cast<s64>(SimpleInt(true, {half}))), ArithmeticException);
  EXPECT_THROW(static_cast<void>(static_cast<s64>(SimpleInt(false, {half + 1}))), ArithmeticException);
  EXPECT_THROW(static_cast<void>(static_cast<s64>(SimpleInt(true, {0, 1}))), ArithmeticException);
}

}  // namespace
}  // namespace orl::Polynomials
