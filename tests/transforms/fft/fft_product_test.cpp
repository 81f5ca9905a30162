// Products by the floating-point FFT against GMP: every row, windows, kept transforms, tasks.
#include "support/test_parallelizers.h"
#include "support/thrown.h"
#include "transforms/fft/fft_test_support.h"

namespace orl::test {
namespace {

class FftProduct : public OnTarget {};
INSTANTIATE_TEST_SUITE_P(Targets, FftProduct, every_target(), target_label);

TEST_P(FftProduct, AgreesWithGmpAtEveryRow) {
  check_rows(fft_algorithm(), fft_rows(), GetParam() == simd::Target::kScalar ? 400000 : 3000000);
}

TEST_P(FftProduct, AgreesOnWindowsKeptTransformsAndTasks) {
  Random random;
  const AlgorithmTables tables(fft_algorithm(), 5000000);
  ReverseOrder reverse;
  // Small shapes, then blocked ones, of every odd factor and of narrow and wide points.
  for (const u64 bits :
       {2048, 6144, 9216, 24000, 139264, 348160, 1048576, 1228800, 2457600, 2949120, 4915200}) {
    if (GetParam() == simd::Target::kScalar && bits > 1300000) break;
    const u64 words = find_fft_row(bits).bits / 32, an = random.between(1, words - 1);
    const std::vector<u32> a = random.words<u32>(an), b = random.words<u32>(words - an);
    const std::vector<u32> c = random.words<u32>(words / 2);
    for (const u64 tds : {1, 2, 3, 8}) {
      SCOPED_TRACE(std::to_string(bits) + " bits");
      u64 skip = random.below(words), len = random.between(skip + 1, words);
      if (random.coin()) skip = words / 2, len = words;
      check_window(fft_algorithm(), tables, reverse, tds, a, b, skip, len, false);
      check_window(fft_algorithm(), tables, reverse, tds, a, b, 0, words, false);
      skip %= 2 * c.size();
      len = std::min(std::max(len, skip + 1), 2 * c.size());
      check_window(fft_algorithm(), tables, reverse, tds, c, c, skip, len, true);
      ParametersBox box;
      const TransformTables& own = tables;
      check_kept(fft_algorithm().parameters_for(box, &own, bits, tds), random, {reverse, tds});
      if (HasFatalFailure()) return;
    }
  }
}

TEST_P(FftProduct, CarriesRunThroughAllOnes) {
  // (2^m - 1) 2^j (2^n - 1) and neighbours: long runs of ones that a carry must cross, within runs that the
  // window keeps and runs that it drops.
  Random random;
  const AlgorithmTables tables(fft_algorithm(), 2000000);
  ReverseOrder reverse;
  for (const u64 bits : {6000, 24000, 1040000, 1064960}) {
    const u64 words = find_fft_row(bits).bits / 32;
    for (int round = 0; round < 6; ++round) {
      // x (2^n - 1) + x = x 2^n: the product of x = 1 + small and all ones ends in ones that x's low part
      // breaks.
      std::vector<u32> a(random.between(1, words / 2), 0), b(words - a.size(), ~u32{0});
      a[0] = random.coin() ? 1 : static_cast<u32>(random.below(1000) + 1);
      if (random.coin()) a.back() = random.edge_word<u32>();
      if (random.coin()) b[0] = random.edge_word<u32>();
      for (const u64 tds : {1, 3}) {
        const u64 skip = random.below(words), len = random.between(skip + 1, words);
        check_window(fft_algorithm(), tables, reverse, tds, a, b, skip, len, false);
      }
    }
  }
}

TEST(FftThreads, ResultsDoNotDependOnTasksOrThreads) {
  Random random;
  const AlgorithmTables tables(fft_algorithm(), 9000000);
  Parallelizer_Spawn spawn;
  for (const u64 bits : {1228800, 8400000}) {
    const std::vector<u32> a = random.words<u32>(bits / 64), b = random.words<u32>(bits / 64);
    for (const u64 tds : {1, 2, 3, 8})
      check_window(fft_algorithm(), tables, spawn, tds, a, b, 0, bits / 32, false);
  }
}

TEST(FftLargest, ProductOfTheLastRowIsExact) {
  Random random;
  const u64 bits = fft_algorithm().max_bits();
  const AlgorithmTables tables(fft_algorithm(), bits);
  Parallelizer_None none;
  const std::vector<u32> ones(bits / 64, ~u32{0}), a = random.words<u32>(bits / 64);
  check_window(fft_algorithm(), tables, none, 1, ones, a, 0, bits / 32, false);
}

TEST(FftParameters, NameTheShapeThatAnOperandDoesNotFit) {
  const FftRow& row = find_fft_row(9216);
  const AlgorithmTables tables(fft_algorithm(), row.bits);
  const TransformTables& own = tables;
  Parallelizer_None none;
  ParametersBox box;
  const Parameters& p = fft_algorithm().parameters_for(box, &own, row.bits, 1);
  const ShapeAreas areas(p);
  const std::vector<u32> a(row.bits / 32 + 1, 1);
  const auto e = caught<ConvolutionTooSmallException>([&] {
    p.forward(areas.f, Words{a.data(), a.size()}, areas.t, {none, 1});
  });
  EXPECT_EQ(e.function(), "FFT");
  EXPECT_EQ(e.message(), "Convolution length is too small.");
  EXPECT_EQ(e.convolution_size(), row.bits);
  EXPECT_EQ(e.requested_size(), row.bits + 32);
}

}  // namespace
}  // namespace orl::test
