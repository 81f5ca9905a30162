// Schoolbook and Karatsuba products against GMP, on every kernel that the machine runs, with the cutoffs
// lowered so that small operands reach every path; scratch is exactly what the sizers say.
#include "multiply/basecase.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "core/exceptions.h"
#include "multiply/algorithm_table.h"
#include "multiply/basecase_algorithm.h"
#include "multiply/basecase_karatsuba.h"
#include "support/gmp_oracle.h"
#include "support/multiplication.h"
#include "support/random_words.h"
#include "threads/simple_frameworks.h"
#include "words/word_shapes.h"

namespace orl::test {
namespace {

class Basecase : public OnTarget {
 protected:
  Random random_;
};
INSTANTIATE_TEST_SUITE_P(Targets, Basecase, every_target(), target_label);

/// body.operator()<W>() for both word types.
template <class Body>
void for_each_word_type(Body&& body) {
  {
    SCOPED_TRACE("u32");
    body.template operator()<u32>();
  }
  SCOPED_TRACE("u64");
  body.template operator()<u64>();
}

/// Runs multiply(T, A, B, tmp) on arrays of exactly AL, BL, AL + BL and scratch_words words and compares.
template <class W, class Multiply>
void expect_product(Random& random, u64 AL, u64 BL, u64 scratch_words, Multiply&& multiply) {
  const GuardedWords<W> A(random.words<W>(AL), random.below(8)), B(random.words<W>(BL), random.below(8));
  GuardedWords<W> T(AL + BL, random.below(8)), tmp(scratch_words, random.below(8));
  multiply(T.data(), A.data(), B.data(), tmp.data());
  const Mpz expected = Mpz(A.words()) * Mpz(B.words());
  ASSERT_EQ(T.words(), expected.words<W>(AL + BL)) << AL << " by " << BL << " words";
  ASSERT_TRUE(T.intact() && tmp.intact()) << AL << " by " << BL << " words wrote outside";
}

template <class W, class Square>
void expect_square(Random& random, u64 L, u64 scratch_words, Square&& square) {
  const GuardedWords<W> A(random.words<W>(L), random.below(8));
  GuardedWords<W> T(2 * L, random.below(8)), tmp(scratch_words, random.below(8));
  square(T.data(), A.data(), tmp.data());
  const Mpz expected = Mpz(A.words()) * Mpz(A.words());
  ASSERT_EQ(T.words(), expected.words<W>(2 * L)) << L << " words";
  ASSERT_TRUE(T.intact() && tmp.intact()) << L << " words wrote outside";
}

TEST_P(Basecase, SchoolbookProductsOfAllSmallShapes) {
  for_each_word_type([&]<class W>() {
    for (u64 AL = 1; AL <= 130; ++AL)
      for (u64 BL = 1; BL <= AL; BL += AL <= 40 ? 1 : 1 + random_.below(8)) {
        const bool swapped = random_.coin();
        const u64 first = swapped ? BL : AL, second = swapped ? AL : BL;
        expect_product<W>(random_, first, second, 0,
                          [&](W* T, const W* A, const W* B, W*) { mulB(T, A, first, B, second); });
      }
  });
}

TEST_P(Basecase, SchoolbookSquaresAndEqualLengths) {
  for_each_word_type([&]<class W>() {
    for (u64 L = 1; L <= 130; ++L)
      for (int repeat = 0; repeat < 4; ++repeat) {
        expect_square<W>(random_, L, 0, [&](W* T, const W* A, W*) { sqrB(T, A, L); });
        expect_product<W>(random_, L, L, 0, [&](W* T, const W* A, const W* B, W*) { elmB(T, A, B, L); });
      }
  });
}

TEST_P(Basecase, KaratsubaWithCutoffsAtTheirLowest) {
  for_each_word_type([&]<class W>() {
    for (u64 cutoff : {2, 3, 4, 5, 7, 16}) {
      SCOPED_TRACE("cutoff " + std::to_string(cutoff));
      const Karatsuba<W> karatsuba{basecase_kernels<W>(), cutoff, cutoff};
      for (u64 L = 1; L <= 130; ++L) {
        const u64 words = karatsuba_words(L, cutoff);
        expect_square<W>(random_, L, words, [&](W* T, const W* A, W* tmp) { karatsuba.sqr(T, A, L, tmp); });
        expect_product<W>(random_, L, L, words,
                          [&](W* T, const W* A, const W* B, W* tmp) { karatsuba.elm(T, A, B, L, tmp); });
      }
    }
  });
}

// Slices, their number and their rest: l = 2s, 2s + 1 and 3s end differently, and a rest has a rest of its
// own.
TEST_P(Basecase, KaratsubaOfUnequalLengths) {
  for_each_word_type([&]<class W>() {
    for (u64 cutoff : {2, 3, 5, 8}) {
      SCOPED_TRACE("cutoff " + std::to_string(cutoff));
      const Karatsuba<W> karatsuba{basecase_kernels<W>(), cutoff, cutoff};
      for (u64 s = 1; s <= 34; ++s)
        for (u64 l = s; l <= 4 * s + 2; l += s <= 13 ? 1 : 1 + random_.below(s / 3)) {
          const u64 words = s < cutoff ? 0 : 2 * s + karatsuba_words(s, cutoff);
          expect_product<W>(random_, l, s, words,
                            [&](W* T, const W* A, const W* B, W* tmp) { karatsuba.mul(T, A, l, B, s, tmp); });
        }
    }
  });
}

TEST_P(Basecase, FrontOnBothSidesOfTheCutoffs) {
  for_each_word_type([&]<class W>() {
    const u64 mul_cutoff = kKaratsubaMulWords<W>, sqr_cutoff = kKaratsubaSqrWords<W>;
    for (u64 base : {u64{2}, mul_cutoff, sqr_cutoff, 2 * mul_cutoff, 4 * mul_cutoff})
      for (u64 L = base - 1; L <= base + 1; ++L) {
        expect_square<W>(random_, L, sqr_scratch<W>(L) / sizeof(W),
                         [&](W* T, const W* A, W* tmp) { sqr(T, A, L, tmp); });
        expect_product<W>(random_, L, L, elm_scratch<W>(L) / sizeof(W),
                          [&](W* T, const W* A, const W* B, W* tmp) { elm(T, A, B, L, tmp); });
        for (u64 l : {L, L + 1, 2 * L - 1, 2 * L, 2 * L + 1, 3 * L, 3 * L + 2})
          expect_product<W>(random_, L, l, mul_scratch<W>(L, l) / sizeof(W),
                            [&](W* T, const W* A, const W* B, W* tmp) { mul(T, A, L, B, l, tmp); });
      }
    const u64 L = mul_cutoff / 2 + 1;  // K forms work below the cutoffs as well
    expect_product<W>(random_, L, L, karatsuba_words(L, 2),
                      [&](W* T, const W* A, const W* B, W* tmp) { elmK(T, A, B, L, tmp); });
    expect_square<W>(random_, L, karatsuba_words(L, 2),
                     [&](W* T, const W* A, W* tmp) { sqrK(T, A, L, tmp); });
    expect_product<W>(random_, L, 2 * L + 1, 2 * L + karatsuba_words(L, 2),
                      [&](W* T, const W* A, const W* B, W* tmp) { mulK(T, A, L, B, 2 * L + 1, tmp); });
  });
}

// (W^n - 1)(W^m - 1) = W^(n+m) - W^n - W^m + 1 puts a carry into every place that can take one.
TEST_P(Basecase, CarryRunsThroughAllOnes) {
  for_each_word_type([&]<class W>() {
    constexpr W ones = static_cast<W>(~W{0});
    for (u64 n = 1; n <= 120; ++n)
      for (u64 m : {u64{1}, n / 2 + 1, n}) {
        const std::vector<W> A(n, ones), B(m, ones);
        std::vector<W> expected(n + m, ones);
        std::fill_n(expected.begin(), m, W{0});
        expected[0] = 1;
        expected[n] = static_cast<W>(ones - 1);
        if (n == m) std::fill(expected.begin() + 1, expected.begin() + static_cast<std::ptrdiff_t>(n), W{0});
        std::vector<W> T(n + m), tmp(mul_scratch<W>(n, m) / sizeof(W));
        mulB(T.data(), A.data(), n, B.data(), m);
        ASSERT_EQ(T, expected) << n << " by " << m;
        std::fill(T.begin(), T.end(), W{5});
        mul(T.data(), A.data(), n, B.data(), m, tmp.data());
        ASSERT_EQ(T, expected) << n << " by " << m << ", front";
        if (n != m) continue;
        std::fill(T.begin(), T.end(), W{5});
        sqrB(T.data(), A.data(), n);
        ASSERT_EQ(T, expected) << n << ", square";
      }
  });
}

/// A window may miss what was carried into it from below: at most 3 at its lowest word, and nothing when it
/// starts at word 0.
template <class W>
void expect_window(const std::vector<W>& got, const Mpz& product, u64 skip, u64 len) {
  const u64 bits = 8 * sizeof(W), words = len - skip;
  const Mpz modulus = Mpz(1) << words * bits;
  const Mpz missing = ((product >> skip * bits) - Mpz(got)) % modulus;
  ASSERT_LE(mpz_cmp(missing, Mpz(skip == 0 ? 0 : 3)), 0) << "words " << skip << " to " << len;
}

TEST_P(Basecase, WindowsOfProductsAndSquares) {
  for_each_word_type([&]<class W>() {
    for (int round = 0; round < 1500; ++round) {
      const u64 AL = random_.between(1, 110), BL = random_.coin() ? AL : random_.between(1, 110);
      const bool square = random_.coin();
      const u64 total = square ? 2 * AL : AL + BL;
      const u64 skip = random_.below(4) == 0 ? 0 : random_.below(total);
      const u64 len = random_.below(4) == 0 ? total : random_.between(skip + 1, total);
      const GuardedWords<W> A(random_.words<W>(AL), random_.below(8)),
          B(random_.words<W>(BL), random_.below(8));
      GuardedWords<W> T(len - skip, random_.below(8));
      const u64 bytes =
          square ? sqr_window_scratch<W>(skip, len, AL) : mul_window_scratch<W>(skip, len, AL, BL);
      GuardedWords<W> tmp(bytes / sizeof(W), random_.below(8));
      SCOPED_TRACE(std::to_string(AL) + (square ? " squared" : " by " + std::to_string(BL)));
      if (square)
        sqr_window(Window{T.data(), skip, len}, Words{A.data(), AL}, tmp.data());
      else
        mul_window(Window{T.data(), skip, len}, Words{A.data(), AL}, Words{B.data(), BL}, tmp.data());
      expect_window(T.words(), Mpz(A.words()) * Mpz((square ? A : B).words()), skip, len);
      ASSERT_TRUE(T.intact() && tmp.intact());
      if (HasFatalFailure()) return;
    }
  });
}

TEST(BasecaseScratch, IsTheSumOverTheHalvingSequence) {
  EXPECT_EQ(karatsuba_words(46, 47), 0u);
  EXPECT_EQ(karatsuba_words(47, 47), 48u);
  EXPECT_EQ(karatsuba_words(191, 47), 192u + 96u + 48u);
  EXPECT_EQ(karatsuba_words(24, 12), 24u + 12u);
  EXPECT_EQ(mul_scratch<u64>(46, 1000), 0u);
  EXPECT_EQ(mul_scratch<u64>(1000, 47), 16u * 47 + 8 * 48);
  EXPECT_EQ(mul_scratch<u32>(24, 30), (24u + 12 + 48) * 4);
  EXPECT_EQ(sqr_window_scratch<u64>(0, 92, 46), 16u * 46);
  EXPECT_EQ(sqr_window_scratch<u32>(0, 20, 10), (10u + 20) * 4);
  EXPECT_EQ(mul_window_scratch<u64>(0, 100, 50, 50), 16u * 50 + 8 * 50 + 8 * 100);
  EXPECT_EQ(transform_style_scratch<u64>(50), 16u * 50 + 8 * 50 + 24 * 50 + 8);
  EXPECT_EQ(transform_style_scratch<u32>(12), 16u * (12 + 24) + 12 * 12 + 4);
}

class BasecaseAlgorithm : public testing::Test {
 protected:
  BasecaseAlgorithm() : tables_(LinearHeapBuffer{}) {}

  MultiplyContext context(const GuardedBlock& block) { return {{none_, 1}, tables_, block.buffer()}; }

  Random random_;
  Parallelizer_None none_;
  TransformTables tables_;
};

TEST_F(BasecaseAlgorithm, SizesFollowTheProductLength) {
  EXPECT_STREQ(basecase_algorithm<u64>().id(), "BKT");
  EXPECT_EQ(basecase_algorithm<u64>().table_bytes(0x10000), 0u);
  for (u64 bits : {1, 64, 65, 5120, 5121, 0x10000}) {
    const u64 n = (bits + 63) >> 6;
    const MultiplySizes sizes = basecase_algorithm<u64>().sizes(bits, 1);
    EXPECT_EQ(sizes.transform_bytes, (8 * n + 71) & ~u64{63});
    EXPECT_GE(sizes.scratch_bytes, transform_style_scratch<u64>(n));
    EXPECT_LT(sizes.scratch_bytes, transform_style_scratch<u64>(n) + 64);
  }
  EXPECT_THROW(basecase_algorithm<u64>().sizes(0x10001, 1), LimitExceededException);
  EXPECT_THROW(basecase_algorithm<u32>().sizes(0x10001, 1), LimitExceededException);
}

/// One product by transforms of the given word types on blocks of exactly the stated sizes.
template <class W>
void expect_transforms_multiply(Random& random, Parallelizer& none, u64 AL, u64 BL) {
  SCOPED_TRACE(std::to_string(AL) + " by " + std::to_string(BL));
  const ParallelContext serial{none, 1};
  const u64 total = AL + BL;
  ParametersBox box;
  const Parameters& shape = basecase_algorithm<W>().parameters_for(box, nullptr, total * sizeof(W) * 8, 1);
  const ShapeAreas areas(shape);
  const std::vector<W> A = random.words<W>(AL), B = random.words<W>(BL);
  const auto forward = [&](void* F, const std::vector<W>& words) {
    shape.forward(F, Words{words.data(), words.size()}, areas.t, serial);
  };
  const u64 skip = random.below(total), len = random.between(skip + 1, total);
  for (const auto& [from, to] : {std::pair(u64{0}, total), std::pair(skip, len)}) {
    forward(areas.f, A);
    forward(areas.g, B);
    GuardedWords<W> T(to - from);
    shape.inverse_fmul(areas.f, areas.g, Window{T.data(), from, to}, areas.t, serial);
    expect_window(T.words(), Mpz(A) * Mpz(B), from, to);
    ASSERT_TRUE(T.intact());
  }
  if (2 * AL > total) return;
  forward(areas.f, A);
  GuardedWords<W> T(2 * AL);
  shape.inverse_fsqr(areas.f, Window{T.data(), 0, 2 * AL}, areas.t, serial);
  expect_window(T.words(), Mpz(A) * Mpz(A), 0, 2 * AL);
  ASSERT_TRUE(T.intact());
}

TEST_F(BasecaseAlgorithm, TransformsMultiply) {
  for (int round = 0; round < 300; ++round) {
    const u64 AL = random_.between(1, 512), BL = random_.coin() ? AL : random_.between(1, 512);
    expect_transforms_multiply<u64>(random_, none_, AL, BL);
    expect_transforms_multiply<u32>(random_, none_, 2 * AL - random_.below(2), BL);
    if (HasFatalFailure()) return;
  }
}

TEST_F(BasecaseAlgorithm, MultipliesInExactlyItsScratch) {
  for (int round = 0; round < 300; ++round) {
    const u64 AL = random_.between(1, 512), BL = random_.coin() ? AL : random_.between(1, 512);
    const u64 skip = random_.coin() ? 0 : random_.below(AL + BL), len = random_.coin() ? AL + BL : skip + 1;
    const Algorithm& algorithm = basecase_algorithm<u64>();
    const GuardedBlock block(algorithm.sizes((AL + BL) * 64, 1).total_bytes());
    const std::vector<u64> A = random_.words<u64>(AL), B = random_.words<u64>(BL);
    GuardedWords<u64> T(len - skip), S(2 * BL);
    algorithm.mul_window(context(block), Window{T.data(), skip, len}, Words{A.data(), AL},
                         Words{B.data(), BL});
    expect_window(T.words(), Mpz(A) * Mpz(B), skip, len);
    if (BL <= AL) {
      algorithm.sqr_window(context(block), Window{S.data(), 0, 2 * BL}, Words{B.data(), BL});
      expect_window(S.words(), Mpz(B) * Mpz(B), 0, 2 * BL);
    }
    ASSERT_TRUE(T.intact() && S.intact() && block.intact());
    if (HasFatalFailure()) return;
  }
}

TEST_F(BasecaseAlgorithm, RefusesWhatDoesNotFit) {
  const ParallelContext serial{none_, 1};
  const Algorithm& algorithm = basecase_algorithm<u64>();
  ParametersBox box, other_box;
  const Parameters& shape = algorithm.parameters_for(box, nullptr, 640, 1);
  const ShapeAreas areas(shape);
  void *const F = areas.f, *const G = areas.g, *const tmp = areas.t;
  const std::vector<u64> A(11, 1);
  std::vector<u64> T(12);
  EXPECT_THROW(shape.forward(F, Words{A.data(), 11}, nullptr, serial), ConvolutionTooSmallException);
  shape.forward(F, Words{A.data(), 6}, nullptr, serial);
  shape.forward(G, Words{A.data(), 5}, nullptr, serial);
  EXPECT_THROW(shape.inverse_fmul(F, G, Window{T.data(), 0, 11}, tmp, serial), ConvolutionTooSmallException);
  EXPECT_THROW(shape.inverse_fsqr(F, Window{T.data(), 0, 12}, tmp, serial), ConvolutionTooSmallException);
  EXPECT_TRUE(shape.compatible(algorithm.parameters_for(other_box, nullptr, 577, 1)));
  EXPECT_FALSE(shape.compatible(algorithm.parameters_for(other_box, nullptr, 576, 1)));

  const std::vector<u64> long_a(60, 3);
  std::vector<u64> product(120);
  const GuardedBlock block(mul_scratch<u64>(60, 60) - 8);
  EXPECT_THROW(algorithm.mul_window(context(block), Window{product.data(), 0, 120}, Words{long_a.data(), 60},
                                    Words{long_a.data(), 60}),
               BufferTooSmallException);
}

}  // namespace
}  // namespace orl::test
