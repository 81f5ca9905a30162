#include <gtest/gtest.h>

#include "support/gmp_oracle.h"
#include "support/thrown.h"
#include "words/word_division.h"
#include "words/word_shapes.h"
#include "words/words.h"

namespace orl::test {
namespace {

template <class W>
constexpr u64 kBits = sizeof(W) * 8;

// Any divisor that ShoupDivider takes, from 3 to the largest.
template <class W>
W any_divisor(Random& random) {
  for (;;) {
    const W d = static_cast<W>((random.coin() ? random.edge_word<W>() : random.word<W>()) >>
                               random.between(1, kBits<W> - 2));
    if (d >= 3 && (d & (d - 1))) return d;
    const W largest = static_cast<W>(~W{0}) >> 1;
    if (random.coin()) return static_cast<W>(random.coin() ? largest : largest - 1 - (largest >> 1));
  }
}
template <class W>
W any_top(Random& random, W d) {
  return static_cast<W>(random.coin() ? random.below(3) % d : random.coin() ? d - 1 : random.word<W>() % d);
}

template <class E, class F>
void expect_throw(const char* text, F&& call) {
  EXPECT_EQ(refusal<E>(call), text);
}

template <class W>
class ShoupDividers : public testing::Test {};
TYPED_TEST_SUITE(ShoupDividers, BothWords);

TYPED_TEST(ShoupDividers, RefusePowersOfTwoAndATopBit) {
  using W = TypeParam;
  using Refused = InvalidParametersException;
  for (int bit = 0; bit < int(kBits<W>) - 1; ++bit)
    expect_throw<Refused>("ShoupDivider() Untested with power-of-two.",
                          [bit] { ShoupDivider<W>(static_cast<W>(W{1} << bit)); });
  const W top = static_cast<W>(W{1} << (kBits<W> - 1));
  for (const W d : {top, static_cast<W>(top + 1), static_cast<W>(~W{0})})
    expect_throw<Refused>("ShoupDivider() Divisor is too large.", [d] { ShoupDivider<W>{d}; });
  const ShoupDivider<W> three(3);
  W word = 5;
  for (const W t : {W{3}, static_cast<W>(~W{0})}) {
    expect_throw<Refused>("mod() Top word is too large.", [&] { three.mod(&word, 1, t); });
    expect_throw<Refused>("divmod() Top word is too large.", [&] { three.divmod(&word, 1, t); });
    expect_throw<Refused>("divmod(A) Top word is too large.", [&] { three.divmod(&word, &word, 1, t); });
  }
}

TYPED_TEST(ShoupDividers, ReciprocalProductsAndPowersAreExact) {
  using W = TypeParam;
  Random random;
  const Mpz base = Mpz(1) << kBits<W>;
  for (int round = 0; round < 2000; ++round) {
    const W d = any_divisor<W>(random);
    SCOPED_TRACE("divisor " + std::to_string(d));
    const ShoupDivider<W> divider(d);
    EXPECT_EQ(divider.divisor, d);
    EXPECT_EQ(static_cast<W>(divider.negative + d), 0);
    const Mpz inverse = (base * base - Mpz(1)) / Mpz(d);
    EXPECT_TRUE(Mpz(divider.inverse_hi) * base + Mpz(divider.inverse_lo) == inverse);
    const W a = any_top<W>(random, d), b = any_top<W>(random, d);
    EXPECT_EQ(divider.add(a, b), ((Mpz(a) + Mpz(b)) % Mpz(d)).low_u64());
    EXPECT_EQ(divider.mul(a, b), (Mpz(a) * Mpz(b) % Mpz(d)).low_u64());
    const u64 n = random.coin() ? random.below(20) : random.next();
    Mpz power;
    mpz_powm(power, base, Mpz(n), Mpz(d));
    EXPECT_EQ(divider.pow_base(n), power.low_u64());
  }
}

// Quotient and remainder by both forms, serial and parallel, below and above the lengths that fork.
template <class W>
void expect_exact_division(Random& random, u64 L, ParallelContext parallel) {
  const W d = any_divisor<W>(random);
  const ShoupDivider<W> divider(d);
  const W top = any_top<W>(random, d);
  SCOPED_TRACE("length " + std::to_string(L) + ", divisor " + std::to_string(d) + ", top " +
               std::to_string(top));
  std::vector<W> a = random.words<W>(L);
  const bool exact = random.below(4) == 0;
  if (exact) {  // a multiple of d
    const Mpz value = (Mpz(top) << (L * kBits<W>)) + Mpz(a);
    Mpz above;
    a = (value - value % Mpz(d)).template words<W>(L, &above);
    if (!(above == Mpz(top))) return;
  }
  const auto expect_division = [&](const GuardedWords<W>& T, W remainder, const Mpz& dividend) {
    EXPECT_TRUE(T.intact());
    EXPECT_LT(remainder, d);
    EXPECT_TRUE(Mpz(T.data(), L) * Mpz(d) + Mpz(remainder) == dividend);
  };
  const Mpz shifted_top = Mpz(top) << (L * kBits<W>);
  for (const bool in_place : {false, true}) {
    const GuardedWords<W> A(a, random.below(16));
    GuardedWords<W> T(a, random.below(16));
    const W remainder = bp_div_np(divider, T.data(), in_place ? T.data() : A.data(), L, top, parallel);
    expect_division(T, remainder, shifted_top + Mpz(a));
    EXPECT_TRUE(!exact || remainder == 0);
  }
  EXPECT_EQ(divider.mod(a.data(), L, top), ((shifted_top + Mpz(a)) % Mpz(d)).low_u64());
  GuardedWords<W> T(L, random.below(16));
  const W remainder = bp_div_ex(divider, T.data(), L, top, parallel);
  expect_division(T, remainder, shifted_top);
}

TEST(WordDivision, IsExactForEveryLengthAndTaskCount) {
  Random random;
  for_each_context([&](ParallelContext parallel) {
    for (u64 L : {0,   1,   2,   3,    4,    5,    17,   63,   64,   65,   130,   255,  256,
                  257, 998, 999, 1000, 1001, 1999, 2000, 2001, 3007, 8191, 20000, 64001}) {
      expect_exact_division<u32>(random, L, parallel);
      expect_exact_division<u64>(random, L, parallel);
    }
  });
}

TEST(WordDivision, IsExactForManyShortDividends) {
  Random random;
  ReverseOrder reverse;
  for (int round = 0; round < 3000; ++round) {
    const u64 L = random.below(200);
    expect_exact_division<u32>(random, L, {reverse, 1});
    expect_exact_division<u64>(random, L, {reverse, 1});
  }
}

// A word of the dividend changes between the two passes.
TEST(WordDivision, AChangedWordIsCaughtByTheBlockResiduals) {
  std::vector<u64> a(5000, 7), T(5000);
  const ShoupDivider<u64> divider(1000000007);
  ReverseOrder machine;
  machine.before_range = [&](u64 n) { a[2500] ^= n == 1 ? 16 : 0; };
  expect_throw<AlgorithmFailedException>("bp_div_np(A) Mismatching block residuals.", [&] {
    bp_div_np(divider, T.data(), a.data(), a.size(), 5, ParallelContext{machine, 5});
  });
  machine.before_range = nullptr;
  const u64 remainder = bp_div_np(divider, T.data(), a.data(), a.size(), 5, ParallelContext{machine, 5});
  EXPECT_EQ(remainder, divider.mod(a.data(), a.size(), 5));
}

// The remainder that enters a stretch must come out of its quotient. One that is no remainder, the divisor
// itself being the least, is found by the serial division too.
TEST(WordDivision, StretchesThatDoNotMeetAreFound) {
  const u64 d = 1000000007, L = 4096;
  const WordDivision division{ShoupDivider<u64>(d)};
  const std::vector<u64> a(L, 7);
  std::vector<u64> T(L);
  EXPECT_LT(division.divide(T.data(), a.data(), L, d - 1, "serial"), d);
  EXPECT_LT(division.extend(T.data(), L, d - 1, "serial"), d);
  const auto expect_found = [](auto&& call) {
    expect_throw<AlgorithmFailedException>("serial Mismatching block residuals.", call);
  };
  expect_found([&] { division.divide(T.data(), a.data(), L, d, "serial"); });
  expect_found([&] { division.extend(T.data(), L, d, "serial"); });
}

}  // namespace
}  // namespace orl::test
