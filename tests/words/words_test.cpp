#include "words/words.h"

#include <gtest/gtest.h>

#include "support/gmp_oracle.h"
#include "words/block_carry.h"
#include "words/hash.h"
#include "words/word_kernels.h"
#include "words/word_shapes.h"

namespace orl::test {
namespace {

// Both sides of the kernels' lengths and of the thresholds of the parallel forms; block multiples and what
// leaves a last block of one, two or three words.
constexpr u64 kLengths[] = {0,     1,     2,     7,     8,     9,     17,    31,    64,
                            65,    1000,  8191,  8192,  8193,  8199,  16384, 16385, 16386,
                            16387, 20000, 20001, 24577, 24578, 24579, 40001, 65538};
constexpr u64 kBlock = 8192;

template <class W>
constexpr u64 kBits = sizeof(W) * 8;

template <class W>
std::vector<W> any_words(Random& random, u64 L) {
  return random.coin() ? random.words<W>(L) : boundary_runs<W>(random, L, kBlock);
}

// What the word operations are compared with: the low L words and what is above them.
template <class W>
void expect_words(const Mpz& expected, const GuardedWords<W>& T, const Mpz& above) {
  EXPECT_TRUE(T.intact());
  EXPECT_TRUE(expected == Mpz(T.data(), T.size()) + (above << (T.size() * kBits<W>)));
}

// Calls body<W>(L, context, random) for both word types.
template <class Body>
void for_each_shape(Body&& body) {
  Random random;
  for_each_context([&](ParallelContext parallel) {
    for (u64 L : kLengths) {
      SCOPED_TRACE("length " + std::to_string(L));
      body(u32{}, L, parallel, random);
      body(u64{}, L, parallel, random);
    }
  });
}

class WordArrays : public OnTarget {};
INSTANTIATE_TEST_SUITE_P(Targets, WordArrays, every_target(), target_label);

TEST_P(WordArrays, SumsAndDifferencesAreExactInPlaceToo) {
  for_each_shape([]<class W>(W, u64 L, ParallelContext parallel, Random& random) {
    const std::vector<W> a = any_words<W>(random, L);
    const std::vector<W> b = any_words<W>(random, L);
    const W carry = static_cast<W>(random.below(2));
    for (const int alias : {0, 1, 2}) {  // T apart, T = A, T = B
      SCOPED_TRACE("alias " + std::to_string(alias));
      const bool subtract = random.coin();
      const GuardedWords<W> A(a, random.below(16)), B(b, random.below(16));
      GuardedWords<W> T(alias == 2 ? b : a, random.below(16));
      const W* const pa = alias == 1 ? T.data() : A.data();
      const W* const pb = alias == 2 ? T.data() : B.data();
      const W out = subtract ? bp_sub(T.data(), pa, pb, L, carry, parallel)
                             : bp_add(T.data(), pa, pb, L, carry, parallel);
      EXPECT_LE(out, 1);
      if (subtract)
        expect_words(Mpz(a) - Mpz(b) - Mpz(carry), T, -Mpz(out));
      else
        expect_words(Mpz(a) + Mpz(b) + Mpz(carry), T, Mpz(out));
    }
  });
}

// Every carry between blocks goes further than the words that absorb one.
TEST_P(WordArrays, CarryRunsThroughAllOnes) {
  for_each_shape([]<class W>(W, u64 L, ParallelContext parallel, Random&) {
    const std::vector<W> ones(L, static_cast<W>(~W{0})), zeros(L, 0);
    std::vector<W> T(L);
    EXPECT_EQ(bp_add(T.data(), ones.data(), zeros.data(), L, 1, parallel), 1);
    EXPECT_EQ(T, zeros);
    EXPECT_EQ(bp_sub(T.data(), zeros.data(), zeros.data(), L, 1, parallel), 1);
    EXPECT_EQ(T, ones);
    EXPECT_EQ(bp_mul_uW(T.data(), ones.data(), L, 1, 1, parallel), 1);
    EXPECT_EQ(T, zeros);
    if (L == 0) return;
    EXPECT_EQ(bp_carry<W>(-1, T.data(), L, parallel), -1);
    EXPECT_EQ(T, ones);
    EXPECT_EQ(bp_carry<W>(1, T.data(), L, parallel), 1);
    EXPECT_EQ(T, zeros);
    // All ones times all ones leaves 1, zeros... and all ones below the top: no run, every carry is wide.
    EXPECT_EQ(bp_mul_uW(T.data(), ones.data(), L, static_cast<W>(~W{0}), static_cast<W>(~W{0}), parallel),
              static_cast<W>(~W{0}));
    EXPECT_EQ(T, zeros);
  });
}

TEST_P(WordArrays, AnySignedWordIsCarriedIn) {
  for_each_shape([]<class W>(W, u64 L, ParallelContext parallel, Random& random) {
    for (int round = 0; round < 3; ++round) {
      const std::vector<W> a = any_words<W>(random, L);
      const auto c = static_cast<std::make_signed_t<W>>(random.edge_word<W>());
      GuardedWords<W> T(a, random.below(16));
      const s64 out = bp_carry<W>(c, T.data(), L, parallel);
      expect_words(Mpz(a) + Mpz(c), T, Mpz(out));
    }
  });
}

TEST_P(WordArrays, ProductsByAWordAreExactInPlaceToo) {
  for_each_shape([]<class W>(W, u64 L, ParallelContext parallel, Random& random) {
    for (const bool in_place : {false, true}) {
      const std::vector<W> a = any_words<W>(random, L);
      const W w = random.edge_word<W>(), carry = random.edge_word<W>();
      const GuardedWords<W> A(a, random.below(16));
      GuardedWords<W> T(a, random.below(16));
      const W out = bp_mul_uW(T.data(), in_place ? T.data() : A.data(), L, w, carry, parallel);
      expect_words(Mpz(a) * Mpz(w) + Mpz(carry), T, Mpz(out));
    }
  });
}

// The words that absorb a carry may be all that the last block has: what leaves them is the sum's carry, and
// stays below when the top word is one less.
TEST_P(WordArrays, CarryRunsOutOfALastBlockOfAnyLength) {
  ReverseOrder reverse;
  const auto check = [&]<class W>(W, u64 last, W top) {
    constexpr u64 kBlockWords = 8192, kLine = 64 / sizeof(W);
    const W ones = static_cast<W>(~W{0});
    std::vector<W> memory(kBlockWords + last + kLine), words(kBlockWords + last, ones);
    W* const T =
        memory.data() + (u64{0} - reinterpret_cast<std::uintptr_t>(memory.data())) / sizeof(W) % kLine;
    words.back() = top;
    const std::vector<W> zeros(words.size(), 0);
    const W carry = top == ones;
    const ParallelContext parallel{reverse, 64};
    EXPECT_EQ(bp_add(T, words.data(), zeros.data(), words.size(), 1, parallel), carry) << last;
    EXPECT_EQ(T[words.size() - 1], static_cast<W>(top + 1)) << last;
    for (W& w : words) w = static_cast<W>(~w);
    EXPECT_EQ(bp_sub(T, words.data(), zeros.data(), words.size(), 1, parallel), carry) << last;
    EXPECT_EQ(T[words.size() - 1], static_cast<W>(~top - 1)) << last;
  };
  for (u64 last = 1; last <= 4; ++last)
    for (const u64 below : {0, 1}) {
      check(u32{}, last, static_cast<u32>(~u32{0} - below));
      check(u64{}, last, ~u64{0} - below);
    }
}

// Carries of both signs into blocks that pass them on, stop them, or do so only for one sign.
TEST(BlockCarries, AreThoseOfTheWholeNumber) {
  Random random;
  ReverseOrder reverse;
  const auto check = [&]<class W>(W) {
    const u64 block = random.between(1, 4), count = random.between(1, 6);
    const u64 L = block * count - random.below(block);
    std::vector<W> words(L);
    std::vector<s8> pending(count);
    Mpz sum;
    for (u64 k = count; k-- > 0;) {
      const W value = random.coin() ? W{0} : static_cast<W>(~W{0});
      for (u64 i = k * block; i < std::min(L, (k + 1) * block); ++i)
        words[i] = random.below(8) ? value : random.edge_word<W>();
      pending[k] = static_cast<s8>(random.between(0, 2)) - 1;
      sum = (sum << (block * kBits<W>)) + Mpz(pending[k]);
    }
    GuardedWords<W> T(words, 0);
    const int out = bp_ksr_carry(T.data(), L, block, pending.data(), ParallelContext{reverse, 64});
    expect_words(Mpz(words) + sum, T, Mpz(out));
  };
  for (int round = 0; round < 3000; ++round) check(u32{}), check(u64{});
}

// A product whose block is all ones below a carry: 3 * 0x5555... + 1 wraps every word of every block.
TEST_P(WordArrays, ProductCarriesRunOverBlocks) {
  for_each_shape([]<class W>(W, u64 L, ParallelContext parallel, Random& random) {
    std::vector<W> a(L, static_cast<W>(~W{0} / 3));
    if (L && random.coin()) a[random.below(L)] += 1;
    GuardedWords<W> T(a, 0);
    const W out = bp_mul_uW(T.data(), T.data(), L, 3, 1, parallel);
    expect_words(Mpz(a) * Mpz(3) + Mpz(1), T, Mpz(out));
  });
}

TEST(WordMoves, FillCopyComplementAndStripAgreeWithPlainLoops) {
  for_each_shape([]<class W>(W, u64 L, ParallelContext parallel, Random& random) {
    const std::vector<W> a = random.words<W>(L);
    const W value = random.edge_word<W>();
    GuardedWords<W> T(L, random.below(16));
    bp_fill(T.data(), L, value, parallel);
    EXPECT_EQ(T.words(), std::vector<W>(L, value));
    bp_copy(T.data(), a.data(), L, parallel);
    EXPECT_EQ(T.words(), a);
    bp_not(T.data(), T.data(), L, parallel);
    bp_not(T.data(), T.data(), L);
    EXPECT_EQ(T.words(), a);
    EXPECT_TRUE(T.intact());

    const u64 left = random.below(L + 1);
    bp_fill(T.data() + left, L - left, value);
    if (left) T.data()[left - 1] = static_cast<W>(value + 1);
    EXPECT_EQ(bp_strip<W>(value, T.data(), L, parallel), left);
    EXPECT_EQ(bp_strip<W>(value, T.data(), L), left);
  });
}

// Forks begin where a fork pays, and a call never makes more tasks than it has records for.
TEST(WordForks, BeginAtTheirLengths) {
  class Counting : public ReverseOrder {
   public:
    void run_range(ParallelTask& task, u64 start, u64 end) override {
      most = std::max(most, end - start);
      ReverseOrder::run_range(task, start, end);
    }
    u64 most = 0;
  };
  const u64 longest = 2'000'000;
  GuardedWords<u64> T(longest);  // on a 64-byte boundary, so that there is no head
  u64* const t = T.data();
  std::fill_n(t, longest, ~u64{0});
  const ShoupDivider<u64> d(10);
  const auto expect_forks_from = [&](const char* name, u64 least, u64 least_tds, auto&& operation) {
    SCOPED_TRACE(name);
    for (const u64 tds : {least_tds, u64{1000}}) {
      Counting machine;
      operation(least - 1, ParallelContext{machine, tds});
      operation(longest, ParallelContext{machine, least_tds - 1});
      EXPECT_EQ(machine.ranges, 0u);
      operation(least, ParallelContext{machine, tds});
      EXPECT_GT(machine.ranges, 0u);
      operation(longest, ParallelContext{machine, tds});
      EXPECT_GE(machine.most, std::min<u64>(tds, 64));
      EXPECT_LE(machine.most, std::max<u64>(64, longest / 16384 + 1));
    }
  };
  using Context = ParallelContext;
  expect_forks_from("bp_fill", 16384, 2, [&](u64 L, Context p) { bp_fill(t, L, 7, p); });
  expect_forks_from("bp_not", 16384, 2, [&](u64 L, Context p) { bp_not(t, t, L, p); });
  expect_forks_from("bp_strip", 16384, 2, [&](u64 L, Context p) { bp_strip<u64>(7, t, L, p); });
  expect_forks_from("bp_add", 8192, 2, [&](u64 L, Context p) { bp_add(t, t, t, L, 0, p); });
  expect_forks_from("bp_sub", 8192, 2, [&](u64 L, Context p) { bp_sub(t, t, t, L, 0, p); });
  expect_forks_from("bp_mul_uW", 20000, 2, [&](u64 L, Context p) { bp_mul_uW(t, t, L, 3, 0, p); });
  expect_forks_from("bp_carry", 8192 + 4, 2, [&](u64 L, Context p) {
    std::fill_n(t, L, ~u64{0});
    bp_carry<u64>(1, t, L, p);
  });
  expect_forks_from("bp_div_np", 1000, 3, [&](u64 L, Context p) { bp_div_np(d, t, t, L, 0, p); });
  expect_forks_from("bp_div_ex", 1000, 2, [&](u64 L, Context p) { bp_div_ex(d, t, L, 1, p); });
  expect_forks_from("bp_hash", 10000, 2, [&](u64 L, Context p) { bp_hash(0, t, L, p); });
  expect_forks_from("bp_hash_base", 10000, 2, [&](u64 L, Context p) { bp_hash_base(0, 10, t, L, p); });
}

// The kernels themselves, at every length that they treat differently and at starts that only a u32 array
// has.
class WordKernelTables : public OnTarget {};
INSTANTIATE_TEST_SUITE_P(Targets, WordKernelTables, every_target(), target_label);

TEST_P(WordKernelTables, AgreeWithTheScalarLoops) {
  Random random;
  const WordKernels& kernels = word_kernels(GetParam());
  const WordKernels& reference = scalar::word_kernel_table;
  for (u64 L = 0; L < 140; ++L) {
    SCOPED_TRACE("length " + std::to_string(L));
    for (int round = 0; round < 8; ++round) {
      const GuardedWords<u32> A(random.words<u32>(2 * L), random.below(16));
      const GuardedWords<u32> B(random.words<u32>(2 * L), random.below(16));
      GuardedWords<u32> T(2 * L, random.below(16)), expected(2 * L);
      const auto expect_equal = [&](u64 out, u64 expected_out) {
        EXPECT_EQ(out, expected_out);
        EXPECT_EQ(T.words(), expected.words());
        EXPECT_TRUE(T.intact());
      };
      const u64 carry = random.below(2), w = random.edge_word<u64>(), c = random.edge_word<u64>();
      expect_equal(kernels.add(T.data(), A.data(), B.data(), L, carry),
                   reference.add(expected.data(), A.data(), B.data(), L, carry));
      expect_equal(kernels.sub(T.data(), A.data(), B.data(), L, carry),
                   reference.sub(expected.data(), A.data(), B.data(), L, carry));
      expect_equal(kernels.mul(T.data(), A.data(), L, w, c),
                   reference.mul(expected.data(), A.data(), L, w, c));
      const u64 seed = random.edge_word<u64>();
      EXPECT_EQ(hash_canon(kernels.hash(seed, A.data(), L)), hash_canon(reference.hash(seed, A.data(), L)));
    }
  }
}

}  // namespace
}  // namespace orl::test
