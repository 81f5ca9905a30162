// Products by the floating-point FFT against GMP: every row, windows, kept transforms, tasks.
#include <algorithm>

#include "core/exceptions.h"
#include "support/gmp_oracle.h"
#include "support/random_words.h"
#include "support/test_parallelizers.h"
#include "threads/simple_frameworks.h"
#include "transforms/fft/fft_test_support.h"

namespace orl::test {
namespace {

using WordVector = std::vector<u32>;

WordVector product(const WordVector& a, const WordVector& b) {
  return (Mpz(a) * Mpz(b)).words<u32>(a.size() + b.size());
}

/// Runs products in scratch of exactly the stated size.
class Runner {
 public:
  Runner(const TransformTables& tables, Parallelizer& parallelizer, u64 tds)
      : tables_(tables), parallelizer_(parallelizer), tds_(tds) {}

  WordVector mul(const WordVector& a, const WordVector& b, u64 skip, u64 len) const {
    return window(32 * (a.size() + b.size()), skip, len, [&](const MultiplyContext& ctx, u32* T) {
      fft_algorithm().mul_window(ctx, Window{T, skip, len}, Words{a.data(), a.size()},
                                 Words{b.data(), b.size()});
    });
  }
  WordVector sqr(const WordVector& a, u64 skip, u64 len) const {
    return window(64 * a.size(), skip, len, [&](const MultiplyContext& ctx, u32* T) {
      fft_algorithm().sqr_window(ctx, Window{T, skip, len}, Words{a.data(), a.size()});
    });
  }
  /// By way of forward transforms in a shape for `bits`; b's is used twice, and must not change.
  WordVector mul_kept(u64 bits, const WordVector& a, const WordVector& b, u64 skip, u64 len) const {
    return window(bits, skip, len, [&](MultiplyContext ctx, u32* T) {
      ParametersBox box;
      const Parameters& p = fft_algorithm().parameters_for(box, &tables_, bits, tds_);
      void* F = ctx.scratch.cut<u8>(p.transform_size());
      void* G = ctx.scratch.cut<u8>(p.transform_size());
      void* tmp = ctx.scratch.cut<u8>(p.scratch_size());
      p.forward(G, Words{b.data(), b.size()}, tmp, ctx.parallel);
      for (int round = 0; round < 2; ++round) {
        p.forward(F, Words{a.data(), a.size()}, tmp, ctx.parallel);
        p.inverse_fmul(F, G, Window{T, skip, len}, tmp, ctx.parallel);
      }
    });
  }
  WordVector sqr_kept(u64 bits, const WordVector& a, u64 skip, u64 len) const {
    return window(bits, skip, len, [&](MultiplyContext ctx, u32* T) {
      ParametersBox box;
      const Parameters& p = fft_algorithm().parameters_for(box, &tables_, bits, tds_);
      void* F = ctx.scratch.cut<u8>(p.transform_size());
      void* tmp = ctx.scratch.cut<u8>(p.scratch_size());
      p.forward(F, Words{a.data(), a.size()}, tmp, ctx.parallel);
      p.inverse_fsqr(F, Window{T, skip, len}, tmp, ctx.parallel);
    });
  }

 private:
  template <class Body>
  WordVector window(u64 bits, u64 skip, u64 len, Body&& body) const {
    GuardedBytes scratch(fft_algorithm().sizes(bits, tds_).total_bytes());
    GuardedWords<u32> out(len - skip, skip % 16);
    body(MultiplyContext{{parallelizer_, tds_}, tables_, scratch.buffer()}, out.data());
    EXPECT_TRUE(scratch.intact()) << "wrote outside of the scratch";
    EXPECT_TRUE(out.intact()) << "wrote outside of the window";
    return out.words();
  }

  const TransformTables& tables_;
  Parallelizer& parallelizer_;
  u64 tds_;
};

WordVector slice(const WordVector& full, u64 skip, u64 len) {
  return {full.begin() + skip, full.begin() + len};
}

class FftProduct : public EachTarget {
 protected:
  Random random;
  Parallelizer_None none;
};

TEST_P(FftProduct, AgreesWithGmpAtEveryRow) {
  SCOPED_TRACE(random.replay());
  const u64 largest = GetParam() == simd::Target::kScalar ? 400000 : 3000000;
  const Tables tables(largest);
  const Runner run(*tables, none, 1);
  u64 smaller = 0;
  for (const FftRow& row : fft_rows()) {
    if (row.bits > largest) break;
    // The whole row, and just past the row before it; balanced or not.
    for (const u64 words : {row.bits / 32, smaller / 32 + 2}) {
      const u64 an = random.coin() ? words / 2 : random.between(1, words - 1);
      const WordVector a = random.words<u32>(an), b = random.words<u32>(words - an);
      ASSERT_EQ(run.mul(a, b, 0, words), product(a, b)) << text_of(row) << ", " << an << " of " << words;
    }
    const WordVector ones(row.bits / 64, ~u32{0});
    ASSERT_EQ(run.sqr(ones, 0, 2 * ones.size()), product(ones, ones)) << text_of(row);
    smaller = row.bits;
  }
}

TEST_P(FftProduct, AgreesOnWindowsKeptTransformsAndTasks) {
  SCOPED_TRACE(random.replay());
  const Tables tables(5000000);
  ReverseOrder reverse;
  // Small shapes, then blocked ones, of every odd factor and of narrow and wide points.
  for (const u64 bits :
       {2048, 6144, 9216, 24000, 139264, 348160, 1048576, 1228800, 2457600, 2949120, 4915200}) {
    if (GetParam() == simd::Target::kScalar && bits > 1300000) break;
    const u64 words = find_fft_row(bits).bits / 32;
    const u64 an = random.between(1, words - 1);
    const WordVector a = random.words<u32>(an), b = random.words<u32>(words - an), full = product(a, b);
    const WordVector c = random.words<u32>(words / 2), square = product(c, c);
    for (const u64 tds : {1, 2, 3, 8}) {
      SCOPED_TRACE(std::to_string(bits) + " bits, " + std::to_string(tds) + " tasks");
      const Runner run(*tables, reverse, tds);
      u64 skip = random.below(words), len = random.between(skip + 1, words);
      if (random.coin()) skip = words / 2, len = words;
      ASSERT_EQ(run.mul(a, b, skip, len), slice(full, skip, len));
      ASSERT_EQ(run.mul(a, b, 0, words), full);
      ASSERT_EQ(run.mul_kept(32 * words, a, b, skip, len), slice(full, skip, len));
      skip %= square.size();
      len = std::min(std::max(len, skip + 1), static_cast<u64>(square.size()));
      ASSERT_EQ(run.sqr(c, skip, len), slice(square, skip, len));
      ASSERT_EQ(run.sqr_kept(32 * words, c, skip, len), slice(square, skip, len));
    }
  }
}

TEST_P(FftProduct, CarriesRunThroughAllOnes) {
  // (2^m - 1) 2^j (2^n - 1) and neighbours: long runs of ones that a carry must cross, within runs that the
  // window keeps and runs that it drops.
  SCOPED_TRACE(random.replay());
  const Tables tables(2000000);
  ReverseOrder reverse;
  for (const u64 bits : {6000, 24000, 1040000, 1064960}) {
    const u64 words = find_fft_row(bits).bits / 32;
    for (int round = 0; round < 6; ++round) {
      // x (2^n - 1) + x = x 2^n: the product of x = 1 + small and all ones ends in ones that x's low part
      // breaks.
      WordVector a(random.between(1, words / 2), 0), b(words - a.size(), ~u32{0});
      a[0] = random.coin() ? 1 : static_cast<u32>(random.below(1000) + 1);
      if (random.coin()) a.back() = random.edge_word<u32>();
      if (random.coin()) b[0] = random.edge_word<u32>();
      const WordVector full = product(a, b);
      for (const u64 tds : {1, 3}) {
        const u64 skip = random.below(words), len = random.between(skip + 1, words);
        const Runner run(*tables, reverse, tds);
        ASSERT_EQ(run.mul(a, b, skip, len), slice(full, skip, len))
            << bits << " bits, skip " << skip << " len " << len;
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Targets, FftProduct,
                         testing::Values(simd::Target::kScalar, simd::Target::kAvx2, simd::Target::kAvx512));

TEST(FftThreads, ResultsDoNotDependOnTasksOrThreads) {
  Random random;
  SCOPED_TRACE(random.replay());
  const Tables tables(9000000);
  Parallelizer_Spawn spawn;
  for (const u64 bits : {1228800, 8400000}) {
    const WordVector a = random.words<u32>(bits / 64), b = random.words<u32>(bits / 64);
    const WordVector full = product(a, b);
    for (const u64 tds : {1, 2, 3, 8})
      ASSERT_EQ(Runner(*tables, spawn, tds).mul(a, b, 0, full.size()), full) << tds;
  }
}

TEST(FftLargest, ProductOfTheLastRowIsExact) {
  Random random;
  SCOPED_TRACE(random.replay());
  const u64 bits = fft_algorithm().max_bits();
  const Tables tables(bits);
  Parallelizer_None none;
  const WordVector ones(bits / 64, ~u32{0}), a = random.words<u32>(bits / 64);
  ASSERT_TRUE(Runner(*tables, none, 1).mul(ones, a, 0, bits / 32) == product(ones, a));
}

TEST(FftWordTypes, U64EntriesDoubleTheCounts) {
  Random random;
  SCOPED_TRACE(random.replay());
  const Tables tables(100000);
  Parallelizer_None none;
  const u64 an = 300, bn = 700, skip = 123, len = 987;
  const std::vector<u64> a = random.words<u64>(an), b = random.words<u64>(bn);
  const std::vector<u64> full = (Mpz(a) * Mpz(b)).words<u64>(an + bn);
  GuardedBytes scratch(fft_algorithm().sizes(64 * (an + bn), 1).total_bytes());
  const MultiplyContext ctx{{none, 1}, *tables, scratch.buffer()};
  std::vector<u64> out(len - skip);
  fft_algorithm().mul_window(ctx, Window{out.data(), skip, len}, Words{a.data(), an}, Words{b.data(), bn});
  EXPECT_TRUE(std::equal(out.begin(), out.end(), full.begin() + skip));

  ParametersBox box;
  const Parameters& p = fft_algorithm().parameters_for(box, &*tables, 64 * (an + bn), 1);
  LinearHeapBuffer buffer = ctx.scratch;
  void* F = buffer.cut<u8>(p.transform_size());
  void* G = buffer.cut<u8>(p.transform_size());
  void* tmp = buffer.cut<u8>(p.scratch_size());
  p.forward(F, Words{a.data(), an}, tmp, ctx.parallel);
  p.forward(G, Words{b.data(), bn}, tmp, ctx.parallel);
  p.inverse_fmul(F, G, Window{out.data(), skip, len}, tmp, ctx.parallel);
  EXPECT_TRUE(std::equal(out.begin(), out.end(), full.begin() + skip));
}

TEST(FftParameters, RefuseWhatDoesNotFitAndKnowTheirLikes) {
  const Tables tables(100000);
  Parallelizer_None none;
  ParametersBox box, same_box, other_box;
  const FftRow& row = find_fft_row(9216);
  const Parameters& p = fft_algorithm().parameters_for(box, &*tables, row.bits, 1);
  EXPECT_TRUE(p.compatible(fft_algorithm().parameters_for(same_box, &*tables, row.bits - 1, 1)));
  EXPECT_FALSE(p.compatible(fft_algorithm().parameters_for(other_box, &*tables, row.bits + 1, 1)));

  GuardedBytes memory(p.sizes().total_bytes());
  LinearHeapBuffer buffer = memory.buffer();
  void* F = buffer.cut<u8>(p.transform_size());
  void* tmp = buffer.cut<u8>(p.transform_size());
  const WordVector a(row.bits / 32 + 1, 1);
  try {
    p.forward(F, Words{a.data(), a.size()}, tmp, {none, 1});
    FAIL() << "an operand longer than the shape was taken";
  } catch (const ConvolutionTooSmallException& e) {
    EXPECT_EQ(e.function(), "FFT");
    EXPECT_EQ(e.message(), "Convolution length is too small.");
    EXPECT_EQ(e.convolution_size(), row.bits);
    EXPECT_EQ(e.requested_size(), row.bits + 32);
  }
}

}  // namespace
}  // namespace orl::test
