// That every instruction set computes the same, and that a damaged product is caught where it is rounded.

#include "core/exceptions.h"
#include "core/fault_point.h"
#include "transforms/fft/fft_bounds.h"
#include "transforms/fft/fft_test_support.h"

namespace orl {
namespace {

/// What the next call of the site does to its points.
struct Strike {
  u64 bit = 0;
  bool armed = false;
};
Strike strike;

}  // namespace

void fault_point(const char* site, void* data, u64 bytes) {
  if (!strike.armed || std::strcmp(site, "fft points") != 0) return;
  strike.armed = false;
  const u64 bit = strike.bit % (8 * bytes);
  static_cast<u8*>(data)[bit / 8] ^= static_cast<u8>(1u << (bit % 8));
}

}  // namespace orl

namespace orl::test {
namespace {

// Where the complex point `column` of row `row` of a bottom block lies when rows are in the lanes.
u64 block_offset(u32 lanes, u64 row, u64 column) {
  return row / lanes * lanes * 16 + column * 2 * lanes + row % lanes;
}

class FftKernelsTest : public OnTarget {};
INSTANTIATE_TEST_SUITE_P(Targets, FftKernelsTest, testing::Values(simd::Target::kAvx2, simd::Target::kAvx512),
                         target_label);

TEST_P(FftKernelsTest, TransformsEqualTheScalarOnesBitForBit) {
  Random random;
  const FftKernels& scalar = fft_kernels(simd::Target::kScalar);
  const FftKernels& wide = fft_kernels(GetParam());
  const AlgorithmTables tables(fft_algorithm(), u64{4} << 20);
  // Small and blocked, every first radix, subtrees at the branches and below.
  for (const FftRow row :
       {FftRow{0, 1, 7, 16}, FftRow{0, 1, 8, 20}, FftRow{0, 1, 9, 19}, FftRow{0, 1, 10, 13},
        FftRow{0, 1, 13, 17}, FftRow{0, 3, 8, 18}, FftRow{0, 5, 9, 18}, FftRow{0, 1, 16, 16},
        FftRow{0, 3, 15, 15}, FftRow{0, 5, 14, 15}, FftRow{0, 5, 15, 9}}) {
    const FftPlan plan = plan_of(row, tables);
    const std::vector<u64> a = random.words<u64>(plan.field_bytes() / 16);
    const auto transform = [&](const FftKernels& kernels) {
      std::vector<double> x(plan.points()), chunk(FftStageWork::chunk_doubles(plan));
      kernels.first_stage(plan, x.data(), {reinterpret_cast<const u8*>(a.data()), 8 * a.size()}, 0,
                          plan.chunks(), chunk.data());
      kernels.branches(plan, FftStep::forward, x.data(), nullptr, 0, plan.branches());
      return x;
    };
    const std::vector<double> F = transform(scalar), G = transform(wide);
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

/// A square whose points can be struck. Its words have no runs: where most points are 0, few coefficients change.
class Square {
 public:
  Square(u64 words, Random& random)
      : tables_(fft_algorithm(), 64 * words),
        a_(random.plain_words<u32>(words)),
        exact_((Mpz(a_) * Mpz(a_)).words<u32>(2 * words)),
        out_(2 * words),
        scratch_(fft_algorithm().sizes(64 * words, 1).total_bytes()) {}

  const FftRow& row() const { return find_fft_row(64 * a_.size()); }
  /// Whether the words are right.
  bool run() {
    fft_algorithm().sqr_window({{none_, 1}, tables_, scratch_.buffer()}, {out_.data(), 0, out_.size()},
                               {a_.data(), a_.size()});
    return out_ == exact_;
  }

 private:
  AlgorithmTables tables_;
  std::vector<u32> a_, exact_, out_;
  GuardedBlock scratch_;
  Parallelizer_None none_;
};

// A small shape and a blocked one.
constexpr u64 kStruckWords[] = {32768 / 64, 1048576 / 64};

// A bit that is struck between the stages changes all coefficients by what is no whole number. (Shapes of an odd
// factor have one branch where it may be a third or a fifth of one.)
TEST_P(FftKernelsTest, FlippedBitEndsTheProductOrLeavesItRight) {
  Random random;
  for (const u64 words : kStruckWords) {
    Square square(words, random);
    ASSERT_TRUE(square.run());
    u64 between = 0, too_large = 0, unseen = 0;
    for (u64 i = 0; i < 640; ++i) {
      // Each bit of a double ten times.
      strike = {64 * random.below(square.row().points()) + i % 64, true};
      SCOPED_TRACE(std::to_string(words) + " words, bit " + std::to_string(strike.bit));
      try {
        unseen += square.run() ? 0 : 1;
      } catch (const AlgorithmFailedException& failure) {
        ++between;
        EXPECT_EQ(failure.function(), "FFT");
        EXPECT_NE(failure.message().find(" from an integer; limit: 0.4."), std::string::npos);
      } catch (const ConvolutionFailedException& failure) {
        ++too_large;
        EXPECT_EQ(failure.function(), "FFT");
        EXPECT_EQ(failure.message(), "Coefficient is too large.");
        EXPECT_EQ(failure.convolution_size(), kFftLargestBits);
      }
      EXPECT_FALSE(strike.armed);
    }
    // Every fourth coefficient is looked at: a few that are off by hardly more than a half may be all above 0.4.
    EXPECT_LE(unseen, 6u);
    EXPECT_GT(between, 50u);
    EXPECT_GT(too_large, 20u);
  }
}

}  // namespace
}  // namespace orl::test
