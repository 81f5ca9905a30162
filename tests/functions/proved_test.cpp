// Proved operations give what GMP gives, with the hash of it, in the memory that they state; the check of
// wrapped products knows right ones from wrong ones.
#include <gtest/gtest.h>

#include "core/exceptions.h"
#include "functions/function_runner.h"
#include "functions/proved.h"
#include "multiply/ring_check.h"
#include "support/random_words.h"

namespace orl::test {
namespace {

template <class W>
class Proved : public ::testing::Test {
 protected:
  Random random;

  static u64 hash(const BigFloat<W>& x) { return canonical_hash(x); }

  // |got - want| at `words` words below the point is less than W^-bound of want.
  static void expect_close(const BigFloat<W>& got, const Mpz& want, u64 words, u64 bound) {
    EXPECT_TRUE(abs(scaled(got, words) - want) <= (want >> (bound * 8 * sizeof(W))) + Mpz(2));
  }

  OwnedFloat<W> operand(u64 L) { return OwnedFloat<W>(random.number<W>(L), -static_cast<s64>(L / 2)); }

  void check(u64 p, u64 tds) {
    SCOPED_TRACE(p);
    const OwnedFloat<W> a = operand(random.between(1, p + 2)), b = operand(random.between(1, p + 2));
    const Hashed<BigFloat<W>> x{a.x, hash(a.x)}, y{b.x, hash(b.x)};
    const u64 deep = 4 * p + 20;
    const ProvedProduct<RamStore<W>> product(p, tds);
    OwnedFloat<W> c(product.need().out_words);
    run_proved<W>(product, tds, c, x, y);
    expect_close(c.x, (Mpz(a.x.T, a.x.L) * Mpz(b.x.T, b.x.L)) << ((deep + a.x.exp + b.x.exp) * 8 * sizeof(W)),
                 deep, p);
    run_proved<W>(product, tds, c, x, x);
    expect_close(c.x, (Mpz(a.x.T, a.x.L) * Mpz(a.x.T, a.x.L)) << ((deep + 2 * a.x.exp) * 8 * sizeof(W)), deep,
                 p);
    const ProvedSqrtFloat<RamStore<W>> root(p, tds);
    OwnedFloat<W> s(root.need().out_words);
    run_proved<W>(root, tds, s, x);
    Mpz want = Mpz(a.x.T, a.x.L) << ((2 * deep + a.x.exp) * 8 * sizeof(W));
    mpz_sqrt(want, want);
    expect_close(s.x, want, deep, p);
    const ProvedInvsqrtFloat<RamStore<W>> inverse(p, tds);
    OwnedFloat<W> r(inverse.need().out_words);
    run_proved<W>(inverse, tds, r, x);
    expect_close(r.x, word_power<W>(2 * deep) / want, deep, p);
  }
};

TYPED_TEST_SUITE(Proved, BothWords);

TYPED_TEST(Proved, OperationsAreRight) {
  for (const u64 p : {2, 3, 9, 10, 11, 40, 130, 700}) this->check(p, 1);
  this->check(1500, 3);
  const ScopedBasicTable<TypeParam> rings{{"BKT", 640}, {"C17", 0x12C0000000000}};
  for (const u64 p : {11, 64, 900}) this->check(p, 1);
}

// Both rings at lengths with divisors of every size, by products of GMP; then with one bit changed.
TEST(RingCheck, KnowsRightProductsFromWrongOnes) {
  Random random;
  Runner<u32> runner(64, "spawn");
  for (const auto ring : {RingCheck::Ring::kMinusOne, RingCheck::Ring::kPlusOne}) {
    for (const u64 n : {1, 2, 3, 12, 16, 24, 48, 80, 96, 1000, 1 << 17, 3 << 16, 5 << 15}) {
      for (int repeat = 0; repeat < 4; ++repeat) {
        SCOPED_TRACE(n);
        const ParallelContext parallel = runner.context(random.between(1, 5)).parallel;
        const Mpz modulus = word_power<u32>(n) + Mpz(ring == RingCheck::Ring::kMinusOne ? -1 : 1);
        std::vector<u32> a = random.words<u32>(random.between(1, n)),
                         b = random.words<u32>(random.between(1, n));
        if (repeat == 0) std::fill(a.begin(), a.end(), ~u32{0});
        const bool square = repeat == 1;
        std::vector<u32> words = (Mpz(a) * Mpz(square ? a : b) % modulus).words<u32>(n + 1);
        RingCheck check(n, ring);
        check.take(a.data(), a.size(), parallel);
        if (square)
          check.square();
        else
          check.multiply(b.data(), b.size(), parallel);
        EXPECT_NO_THROW(check.compare(words.data(), words[n] != 0, "test()", parallel));
        if (check.words() == 0) continue;
        words[random.below(n)] ^= u32{1} << random.below(32);
        EXPECT_THROW(check.compare(words.data(), words[n] != 0, "test()", parallel),
                     AlgorithmFailedException);
      }
    }
  }
  // A product of -1 modulo W^n + 1: W^n itself.
  RingCheck check(48, RingCheck::Ring::kPlusOne);
  std::vector<u32> half(48), product(48);
  half[24] = 1;
  const ParallelContext serial = runner.context(1).parallel;
  check.take(half.data(), 25, serial);
  check.square();
  EXPECT_NO_THROW(check.compare(product.data(), true, "test()", serial));
  EXPECT_THROW(check.compare(product.data(), false, "test()", serial), AlgorithmFailedException);
}

}  // namespace
}  // namespace orl::test
