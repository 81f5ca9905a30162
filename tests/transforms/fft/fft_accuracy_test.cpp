// The error that rounding leaves, and that every instruction set makes the same one.
#include <algorithm>

#include "support/random_words.h"
#include "transforms/fft/fft_bounds.h"
#include "transforms/fft/fft_test_support.h"

namespace orl::test {
namespace {

enum class Points { kLargest, kNearLargest, kRandom };

// The bits of half of the shape's points, the length of a balanced operand.
std::vector<u8> packed_points(const FftPlan& plan, Points kind, Random& random) {
  std::vector<u8> bytes(plan.field_bytes() / 2 + 8, 0);
  const u64 largest = (u64{1} << plan.w) - 1;
  for (u64 i = 0; i < plan.points() / 2; ++i) {
    const u64 r = random.next() & largest;
    const u64 value = kind == Points::kLargest       ? largest
                      : kind == Points::kNearLargest ? largest - r / 16
                                                     : r;
    u64 word;
    std::memcpy(&word, &bytes[i * plan.w / 8], 8);
    word |= value << (i * plan.w % 8);
    std::memcpy(&bytes[i * plan.w / 8], &word, 8);
  }
  bytes.resize(plan.field_bytes() / 2);
  return bytes;
}

struct Transform {
  explicit Transform(const FftPlan& plan) : memory(8 * plan.points()) {}
  double* data() { return reinterpret_cast<double*>(memory.data()); }
  GuardedBytes memory;
};

void first_stage(const FftKernels& kernels, const FftPlan& plan, Transform& F,
                 const std::vector<u8>& operand) {
  GuardedBytes chunk(8 * FftStageWork::chunk_doubles(plan));
  kernels.first_stage(plan, F.data(), {operand.data(), operand.size()}, 0, plan.chunks(),
                      reinterpret_cast<double*>(chunk.data()));
  EXPECT_TRUE(chunk.intact());
}

double largest_error(const FftKernels& kernels, const FftPlan& plan, const std::vector<u8>& a,
                     const std::vector<u8>& b) {
  Transform F(plan), G(plan);
  first_stage(kernels, plan, F, a);
  first_stage(kernels, plan, G, b);
  kernels.branches(plan, FftStep::convolve_multiply, F.data(), G.data(), 0, plan.branches());
  const double error = kernels.rounding_error(plan, F.data());
  EXPECT_TRUE(F.memory.intact() && G.memory.intact());
  return error;
}

// The rows with the largest w of their number of points.
std::vector<FftRow> tightest_rows(u64 largest_points) {
  std::vector<FftRow> tightest;
  for (const FftRow& row : fft_rows()) {
    if (row.points() > largest_points) continue;
    const auto same = std::find_if(tightest.begin(), tightest.end(),
                                   [&](const FftRow& r) { return r.points() == row.points(); });
    if (same == tightest.end())
      tightest.push_back(row);
    else if (same->w < row.w)
      *same = row;
  }
  return tightest;
}

TEST(FftAccuracy, LargestErrorOfEverySizeStaysWithinTheBound) {
  Random random;
  SCOPED_TRACE(random.replay());
  const FftKernels& kernels = fft_kernels(simd::best_target());
  const Tables tables(fft_rows().back().bits);
  double worst = 0;
  for (const FftRow& row : tightest_rows(u64{1} << 23)) {
    const FftPlan plan = plan_of(row, tables);
    for (const Points kind : {Points::kLargest, Points::kNearLargest, Points::kRandom}) {
      if (kind == Points::kRandom && row.points() > u64{1} << 20)
        continue;  // far from the bound, slow to make
      const double error =
          largest_error(kernels, plan, packed_points(plan, kind, random), packed_points(plan, kind, random));
      EXPECT_LE(error, fft_error_bound(row.points(), row.w)) << text_of(row);
      EXPECT_LE(error, 0.3) << text_of(row);
      worst = std::max(worst, error);
    }
  }
  RecordProperty("largest_error", std::to_string(worst));
}

TEST(FftAccuracy, MeasuringSeesErrorsWherePointsAreTooWide) {
  // Two bits more than the limit: the bound is broken, and so are results.
  Random random;
  SCOPED_TRACE(random.replay());
  const Tables tables(u64{1} << 20);
  const FftPlan plan{1, 6, 20, tables.fft()};  // 8192 points
  const double error =
      largest_error(fft_kernels(simd::best_target()), plan, packed_points(plan, Points::kNearLargest, random),
                    packed_points(plan, Points::kNearLargest, random));
  EXPECT_GT(fft_error_bound(plan.points(), plan.w), 0.5);
  EXPECT_GT(error, 0.3);
}

// Where the complex point `column` of row `row` of a bottom block lies when rows are in the lanes.
u64 block_offset(u32 lanes, u64 row, u64 column) {
  return row / lanes * lanes * 16 + column * 2 * lanes + row % lanes;
}

class FftEachTarget : public EachTarget {};

TEST_P(FftEachTarget, TransformsEqualTheScalarOnesBitForBit) {
  Random random;
  SCOPED_TRACE(random.replay());
  const FftKernels& scalar = fft_kernels(simd::Target::kScalar);
  const FftKernels& wide = fft_kernels(GetParam());
  const Tables tables(u64{4} << 20);
  // Small and blocked, every first radix, subtrees at the branches and below.
  for (const FftRow row :
       {FftRow{0, 1, 7, 16}, FftRow{0, 1, 8, 20}, FftRow{0, 1, 9, 19}, FftRow{0, 1, 10, 13},
        FftRow{0, 1, 13, 17}, FftRow{0, 3, 8, 18}, FftRow{0, 5, 9, 18}, FftRow{0, 1, 16, 16},
        FftRow{0, 3, 15, 15}, FftRow{0, 5, 14, 15}, FftRow{0, 5, 15, 9}}) {
    const FftPlan plan = plan_of(row, tables);
    const std::vector<u8> a = packed_points(plan, Points::kRandom, random);
    Transform F(plan), G(plan);
    first_stage(scalar, plan, F, a);
    first_stage(wide, plan, G, a);
    scalar.branches(plan, FftStep::forward, F.data(), nullptr, 0, plan.branches());
    wide.branches(plan, FftStep::forward, G.data(), nullptr, 0, plan.branches());
    u64 different = 0;
    for (u64 block = 0; block < plan.blocks(); ++block)
      for (u64 i = 0; i < kFftBlockPoints; ++i) {
        const double* f = F.data() + 128 * block + block_offset(scalar.lanes, i / 8, i % 8);
        const double* g = G.data() + 128 * block + block_offset(wide.lanes, i / 8, i % 8);
        different += f[0] != g[0] || f[scalar.lanes] != g[wide.lanes];
      }
    EXPECT_EQ(different, 0u) << text_of(row);
  }
}

INSTANTIATE_TEST_SUITE_P(Targets, FftEachTarget, testing::Values(simd::Target::kAvx2, simd::Target::kAvx512));

}  // namespace
}  // namespace orl::test
