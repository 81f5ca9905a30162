#include "words/hash.h"

#include <gtest/gtest.h>

#include <cstring>

#include "support/gmp_oracle.h"
#include "words/word_shapes.h"

namespace orl::test {
namespace {

constexpr u64 M = kHashModulus;
// The largest value that the operations hand out.
constexpr u64 kLargestStored = 2 * M + 70;

Mpz modulus() { return Mpz(M); }

u64 stored_hash(Random& random) {
  const u64 kind = random.below(4);
  return kind == 0   ? random.below(4)
         : kind == 1 ? M - 2 + random.below(5)
         : kind == 2 ? kLargestStored - random.below(200)
                     : random.below(kLargestStored + 1);
}

TEST(HashArithmetic, CanonicalFormIsTheResidueOfEveryLazyValue) {
  for (u64 x : {u64{0}, M, 2 * M}) EXPECT_EQ(hash_canon(x), 0u);
  EXPECT_EQ(hash_canon(~u64{0}), 7u);
  Random random;
  for (int round = 0; round < 10000; ++round) {
    const u64 x = random.coin() ? random.edge_word<u64>() : random.below(8) * M + random.below(9) - 4;
    EXPECT_EQ(hash_canon(x), x % M) << x;
  }
}

TEST(HashArithmetic, AgreesWithIntegersModuloTheModulusAndStaysStorable) {
  Random random;
  for (int round = 0; round < 20000; ++round) {
    const u64 a = stored_hash(random), b = stored_hash(random), x = random.edge_word<u64>();
    const u32 s = static_cast<u32>(random.below(32));
    SCOPED_TRACE(std::to_string(a) + ", " + std::to_string(b) + ", " + std::to_string(x));
    const auto expect_hash = [](u64 hash, const Mpz& value) {
      EXPECT_LE(hash, kLargestStored);
      EXPECT_EQ(hash_canon(hash), residue_m61(value));
    };
    expect_hash(hash_add(a, b), Mpz(a) + Mpz(b));
    expect_hash(hash_sub(a, b), Mpz(a) - Mpz(b));
    expect_hash(hash_neg(a), Mpz(0) - Mpz(a));
    expect_hash(hash_mul(a, b), Mpz(a) * Mpz(b));
    expect_hash(hash_mul_add(a, b, x), Mpz(a) * Mpz(b) + Mpz(x));
    expect_hash(hash_mul(x, a), Mpz(x) * Mpz(a));
    expect_hash(hash_shift_u32(a, s), Mpz(a) << s);
    EXPECT_EQ(hash_sub(a, a), M);
  }
}

TEST(HashArithmetic, PowersAndTheirInverses) {
  Random random;
  for (int round = 0; round < 3000; ++round) {
    const u64 b = stored_hash(random), n = random.coin() ? random.below(70) : random.next();
    Mpz power;
    mpz_powm(power, Mpz(b), Mpz(n), modulus());
    EXPECT_EQ(hash_canon(hash_pow(b, n)), power.low_u64()) << b << "^" << n;

    const s64 e = static_cast<s64>(random.edge_word<u64>() >> 1);  // not negative
    mpz_powm(power, Mpz(2), Mpz(32) * Mpz(static_cast<u64>(e)), modulus());
    const u64 up = hash_word_pow_u32(e), down = hash_word_pow_u32(-e);
    EXPECT_EQ(hash_canon(up), power.low_u64()) << e;
    EXPECT_EQ(hash_canon(hash_mul(up, down)), 1u) << e;
    EXPECT_EQ(hash_canon(hash_word_pow<u64>(-e)), hash_canon(hash_mul(down, down)));
    EXPECT_EQ(hash_canon(hash_word_pow<u64>(e)),
              hash_canon(hash_mul(hash_word_pow<u32>(e), hash_word_pow<u32>(e))));
  }
  EXPECT_EQ(hash_pow(0, 0), 1u);
}

class ArrayHash : public OnTarget {};
INSTANTIATE_TEST_SUITE_P(Targets, ArrayHash, every_target(), target_label);

constexpr u64 kLengths[] = {0,  1,  4,  5,   15,  16,  17,   31,    32,    33,    40,    63,    64,
                            65, 71, 97, 128, 129, 999, 9999, 10000, 10001, 20000, 20016, 20017, 100003};

// Both word types from the same bytes, serial and parallel, with a word above the top.
TEST_P(ArrayHash, IsTheResidueOfTheNumber) {
  Random random;
  for_each_context([&](ParallelContext parallel) {
    for (u64 L : kLengths) {
      SCOPED_TRACE("length " + std::to_string(L));
      const GuardedWords<u32> words(random.words<u32>(L), random.below(16));
      const u64 seed = random.coin() ? 0 : random.edge_word<u64>();
      const u64 expected = residue_m61((Mpz(seed) << (32 * L)) + Mpz(words.data(), L));
      EXPECT_EQ(hash_canon(bp_hash(seed, words.data(), L, parallel)), expected);
      EXPECT_LE(bp_hash(seed, words.data(), L, parallel), L ? kLargestStored : ~u64{0});
      if (L % 2) continue;
      std::vector<u64> wide(L / 2 + 1);
      u64* const misaligned = reinterpret_cast<u64*>(wide.data());
      std::memcpy(misaligned, words.data(), 4 * L);
      EXPECT_EQ(hash_canon(bp_hash(seed, misaligned, L / 2, parallel)), expected);
    }
  });
}

TEST_P(ArrayHash, OfZerosIsZeroAndOfOnesIsAPowerLessOne) {
  for (u64 L : kLengths) {
    const std::vector<u64> zeros(L, 0), ones(L, ~u64{0});
    EXPECT_EQ(hash_canon(bp_hash(0, zeros.data(), L)), 0u);
    const u64 expected = hash_sub(hash_word_pow_u64(static_cast<s64>(L)), 1);
    EXPECT_EQ(hash_canon(bp_hash(0, ones.data(), L)), hash_canon(expected)) << L;
  }
}

TEST(GeneralBaseHash, IsThePolynomialsValue) {
  Random random;
  const u64 decimal_word = 10'000'000'000'000'000'000u;
  for_each_context([&](ParallelContext parallel) {
    for (u64 L : kLengths) {
      const std::vector<u64> words = random.words<u64>(L);
      const std::vector<u32> half_words = random.words<u32>(L);
      const u64 seed = random.edge_word<u64>();
      for (u64 base : {decimal_word, random.edge_word<u64>()}) {
        SCOPED_TRACE("length " + std::to_string(L) + ", base " + std::to_string(base));
        const auto expect_polynomial = [&](const auto& A) {
          u64 expected = seed % M;
          for (u64 i = L; i-- > 0;) expected = static_cast<u64>((u128{expected} * (base % M) + A[i]) % M);
          EXPECT_EQ(hash_canon(bp_hash_base(seed, base, A.data(), L, parallel)), expected);
        };
        expect_polynomial(words);
        expect_polynomial(half_words);
      }
    }
  });
}

}  // namespace
}  // namespace orl::test
