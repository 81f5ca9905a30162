// Sums of frac(2^(c k + d) / (a k + b)): every kernel against GMP, limb for limb.
#include "bbp/bbp_sum.h"

#include <gtest/gtest.h>

#include "core/exceptions.h"
#include "support/gmp_oracle.h"
#include "support/random_words.h"
#include "support/targets.h"

namespace {

using namespace orl;
using test::Mpz;
using Limbs = std::vector<u64>;

Mpz fraction(const BbpTerm& term, u64 k, u64 bits) {
  const u64 m = term.a * k + term.b;
  const s64 exponent = term.c * static_cast<s64>(k) + term.d;
  Mpz x;
  if (exponent >= 0) {
    mpz_powm(x, Mpz(2), Mpz(static_cast<u64>(exponent)), Mpz(m));
    return (x << bits) / Mpz(m);
  }
  return static_cast<u64>(-exponent) > bits ? Mpz(0)
                                            : (Mpz(1) << (bits - static_cast<u64>(-exponent))) / Mpz(m);
}

Limbs oracle(const BbpTerm& term, u64 first, u64 last, u64 limb_count) {
  const u64 bits = kBbpLimbBits * limb_count;
  Mpz sum;
  for (u64 k = first; k < last; k++) sum = sum + fraction(term, k, bits);
  if (!term.positive) sum = -sum;
  Limbs limbs(limb_count);
  for (u64& limb : limbs) {
    limb = (sum % (Mpz(1) << kBbpLimbBits)).low_u64();
    sum = sum >> kBbpLimbBits;
  }
  return limbs;
}

std::string show(const BbpTerm& term, u64 first, u64 last) {
  return "a " + std::to_string(term.a) + " b " + std::to_string(term.b) + " c " + std::to_string(term.c) +
         " d " + std::to_string(term.d) + " k " + std::to_string(first) + " to " + std::to_string(last);
}

class BbpSum : public test::OnTarget {
 protected:
  Limbs sum(const BbpTerm& term, u64 first, u64 last, Limbs limbs) const {
    bbp_sum(GetParam(), term, first, last, limbs.data(), limbs.size());
    return limbs;
  }
  void expect_oracle(const BbpTerm& term, u64 first, u64 last, u64 limb_count) const {
    EXPECT_EQ(sum(term, first, last, Limbs(limb_count)), oracle(term, first, last, limb_count))
        << show(term, first, last) << ", limbs " << limb_count;
  }
};

INSTANTIATE_TEST_SUITE_P(Targets, BbpSum, test::every_target(), test::target_label);

// Denominators around every bound of the kernels' windows and of their kinds of arithmetic; both ends of the
// range are anywhere in a batch.
TEST_P(BbpSum, AgreesWithGmpAtEverySizeOfDenominator) {
  test::Random random;
  for (const u64 bits : {1, 8, 25, 30, 34, 38, 42, 44, 46, 47, 48, 49, 52, 57, 63}) {
    for (int i = 0; i < 40; i++) {
      const u64 a = 2 * random.between(1, 32), b = 2 * random.below(500) + 1, count = random.between(1, 130);
      const u64 bound = u64{1} << bits, top = bound > b ? (bound - b) / a : 0;  // the last index below 2^bits
      const u64 first = bits == 63 ? top - count - random.below(3) : top - std::min(top, random.below(count));
      const u64 fall = random.between(1, std::min<u64>(20, a / 2));
      const u64 spare = random.coin() ? random.next() >> random.between(3, 60) : random.below(5000);
      const u64 exponent = std::min((first + count) * fall + spare, u64{1} << 62);
      const BbpTerm term{a, b, -static_cast<s64>(fall), static_cast<s64>(exponent), random.coin()};
      expect_oracle(term, first, first + count, random.between(1, 4));
    }
  }
}

TEST_P(BbpSum, ContinuesBelowExponentZero) {
  test::Random random;
  for (int i = 0; i < 40; i++) {
    const BbpTerm term{2 * random.between(1, 10), 2 * random.below(i % 2 ? 20 : u64{1} << 50) + 1,
                       -static_cast<s64>(random.between(1, 20)), static_cast<s64>(random.below(600)) - 100,
                       true};
    const u64 first = random.below(40);
    expect_oracle(term, first, first + random.between(1, 250), random.between(1, 24));
  }
}

// 2^-e with the denominator 1, at every place of a limb and on both sides of the last one.
TEST_P(BbpSum, PlacesPowersOfTwo) {
  for (s64 exponent = -1; exponent >= -100; exponent--)
    expect_oracle({2, 1, -1, exponent, exponent % 3 == 0}, 0, 1, 2);
}

// Enough indices for inverses that follow from those before, and for sums that are folded in between.
TEST_P(BbpSum, DoesNotDependOnTheCuts) {
  test::Random random;
  const BbpTerm term{20, 7, -20, s64{1} << 30, false};
  const u64 first = random.between(1000000, 2000000), last = first + 150000, limbs = 2;
  Limbs parts(limbs), other(limbs);
  const u64 cut = random.between(first, last);
  parts = sum(term, first, cut, parts);
  other = sum(term, cut, last, other);
  bbp_add(parts.data(), other.data(), limbs);
  const Limbs whole = sum(term, first, last, Limbs(limbs));
  EXPECT_EQ(whole, parts);
  Limbs reference(limbs);
  bbp_sum(simd::Target::kScalar, term, first, last, reference.data(), limbs);
  EXPECT_EQ(whole, reference);
}

TEST_P(BbpSum, SubtractsWhatItAdds) {
  const Limbs before = {5, 0, (u64{1} << kBbpLimbBits) - 1};
  BbpTerm term{8, 1, -4, 4000, true};
  const Limbs between = sum(term, 3, 500, before);
  EXPECT_NE(between, before);
  term.positive = false;
  EXPECT_EQ(sum(term, 3, 500, between), before);
}

TEST(BbpSumLimits, RefusesWhatItCannotSum) {
  u64 limbs[2] = {3, 4};
  const auto refused = [&](const BbpTerm& term, u64 last) {
    EXPECT_THROW(bbp_sum(term, 0, last, limbs, 2), InvalidParametersException) << show(term, 0, last);
  };
  refused({8, 2, -4, 0, true}, 1);
  refused({3, 1, -4, 0, true}, 1);
  refused({u64{1} << 16, 1, -4, 0, true}, 1);
  refused({8, 1, 0, 0, true}, 1);
  refused({8, 1, -21, 0, true}, 1);
  refused({8, 1, -4, (s64{1} << 62) + 1, true}, 1);
  refused({8, 1, -4, 0, true}, u64{1} << 60);
  refused({2, u64{1} << 63 | 1, -1, 0, true}, 1);
  EXPECT_EQ(limbs[0], 3u);
  EXPECT_EQ(limbs[1], 4u);
}

}  // namespace
