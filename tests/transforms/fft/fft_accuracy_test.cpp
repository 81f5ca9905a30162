// The error that rounding leaves at every row of the size table, against the model of fft_bounds.h.
#include <algorithm>
#include <cstdio>

#include "transforms/fft/fft_bounds.h"
#include "transforms/fft/fft_test_support.h"

namespace orl::test {
namespace {

// Point i of an operand, by kind 0 to 5: largest, every second or third one 0, nearly largest with random low bits, 0 or
// largest at random, random.
constexpr u64 kKinds = 6, kNearLargest = 3;
u64 point_of(u64 kind, u64 i, u64 largest, u64 random) {
  const u64 points[kKinds] = {largest,
                              i % 2 ? 0 : largest,
                              i % 3 ? 0 : largest,
                              largest - (random & largest) / 16,
                              random & 1 ? largest : 0,
                              random & largest};
  return points[kind];
}

/// A shape and the memory to measure products in.
class Shape {
 public:
  Shape(const FftRow& row, const TransformTables& tables)
      : kernels_(fft_kernels(simd::best_target())),
        plan_(plan_of(row, tables)),
        F_(8 * plan_.points()),
        G_(8 * plan_.points()),
        chunk_(8 * FftStageWork::chunk_doubles(plan_)),
        groups_(FftStageWork::group_count(plan_)),
        words_(plan_.field_bytes() + kFftFieldSlack) {}

  /// The largest rounding error of a product of a's points by half as many as the shape has.
  double error(u64 kind, u64 a_points, Random& random) {
    first_stage(F_, packed(kind, a_points, random));
    first_stage(G_, packed(kind, plan_.points() / 2, random));
    kernels_.branches(plan_, FftStep::convolve_multiply, data(F_), data(G_), 0, plan_.branches());
    const FftWindow window{words_.data(), 0, plan_.field_bytes()};
    return plan_.blocked() ? kernels_.last_stage(plan_, data(F_), window, 0, plan_.chunks(), work())
                           : kernels_.finish(plan_, data(F_), window, fields());
  }
  u64 points() const { return plan_.points(); }

 private:
  static double* data(const GuardedBlock& block) { return static_cast<double*>(block.buffer().ptr); }
  FftStageWork work() { return {data(chunk_), groups_.data()}; }
  u8* fields() {
    fields_.resize(plan_.field_bytes() + kFftFieldSlack);
    return fields_.data();
  }
  std::vector<u8> packed(u64 kind, u64 count, Random& random) const {
    std::vector<u8> bytes(plan_.field_bytes() * count / plan_.points() + 8);
    const u64 largest = (u64{1} << plan_.w) - 1;
    u64 word = 0, filled = 0;
    u8* out = bytes.data();
    for (u64 i = 0; i < count; ++i) {
      word |= point_of(kind, i, largest, random.next()) << filled;
      for (filled += plan_.w; filled >= 32; filled -= 32, word >>= 32, out += 4) std::memcpy(out, &word, 4);
    }
    std::memcpy(out, &word, 4);
    bytes.resize(bytes.size() - 8);
    return bytes;
  }
  void first_stage(GuardedBlock& F, const std::vector<u8>& operand) {
    kernels_.first_stage(plan_, data(F), {operand.data(), operand.size()}, 0, plan_.chunks(), data(chunk_));
  }

  const FftKernels& kernels_;
  FftPlan plan_;
  GuardedBlock F_, G_, chunk_;
  std::vector<FftRunGroup> groups_;
  std::vector<u8> words_, fields_;
};

TEST(FftAccuracy, LargestErrorOfEveryRowStaysWithinTheModel) {
  Random random;
  const AlgorithmTables tables(fft_algorithm(), fft_rows().back().bits);
  double worst[2] = {};
  for (const FftRow& row : fft_rows()) {
    Shape shape(row, tables);
    double error[2] = {};
    for (const bool folded : {false, true})
      for (u64 kind = 0; kind < kKinds; ++kind)
        error[folded] = std::max(error[folded], shape.error(kind, shape.points() / (folded ? 1 : 2), random));
    const double model = fft_error_bound(row.points(), row.w);
    EXPECT_LE(error[0], model) << text_of(row);
    EXPECT_LE(error[1], fft_folded_error_bound(row.points(), row.w)) << text_of(row);
    // Well below what ends a product, and below what passes as another integer's.
    EXPECT_LE(error[0], 0.75 * kFftErrorLimit) << text_of(row);
    if (fft_folds_safely(row.points(), row.w)) {
      EXPECT_LE(error[1], 0.75 * kFftErrorLimit) << text_of(row);
    }
    for (const bool folded : {false, true}) worst[folded] = std::max(worst[folded], error[folded]);
    std::printf("%9lu points of %2u bits: plain %.4f, folded %.4f, model %.3f\n",
                static_cast<unsigned long>(row.points()), row.w, error[0], error[1], model);
  }
  RecordProperty("largest_error", std::to_string(worst[0]));
  RecordProperty("largest_folded_error", std::to_string(worst[1]));
}

TEST(FftAccuracy, MeasuringSeesErrorsWherePointsAreTooWide) {
  // Two bits more than the limit: the bound is broken, and so are results.
  Random random;
  const AlgorithmTables tables(fft_algorithm(), u64{1} << 20);
  const FftRow row{8192 * 20, 1, 13, 20};
  Shape shape(row, tables);
  EXPECT_GT(fft_error_bound(row.points(), row.w), 0.5);
  EXPECT_GT(shape.error(kNearLargest, row.points() / 2, random), 0.3);
}

}  // namespace
}  // namespace orl::test
