#include "stress/stress_test.h"

#include "multiply/basecase_algorithm.h"
#include "simd/target.h"
#include "transforms/c17/residue.h"
#include "transforms/fft/fft.h"
#include "transforms/hnt/hnt.h"
#include "transforms/ntt/ntt.h"
#include "transforms/vst/vst.h"

namespace orvane {
namespace {

using Component = StressTest::Component;

// Lies in the second-level cache of every processor with the features of the lowest target.
constexpr u64 kCacheBytes = u64{192} << 10;
// Far beyond every cache, and little enough that a round ends within a second or two: a stop is answered
// between rounds.
constexpr u64 kLargestBytes = u64{1} << 30;

class KnownAnswerTest final : public StressTest {
 public:
  KnownAnswerTest(const Row& row, KnownAnswerPlan plan) : StressTest(row), plan_(plan) {}

  std::unique_ptr<StressWork> plan(u64 share_bytes) const override {
    return plan_known_answers(plan_, share_bytes);
  }

 private:
  KnownAnswerPlan plan_;
};

class BbpTest final : public StressTest {
 public:
  BbpTest() : StressTest({"BBP", "BBP Digit Extraction", "terms", Component::kFloat, 1, true}) {}

  std::unique_ptr<StressWork> plan(u64 share_bytes) const override { return plan_bbp(share_bytes); }
};

const char* target_label() {
  switch (orl::simd::active_target()) {
    case orl::simd::Target::kScalar:
      return "Scalar";
    case orl::simd::Target::kAvx2:
      return "AVX2";
    default:
      return "AVX512";
  }
}

}  // namespace

std::string StressTest::component() const {
  switch (row_.component) {
    case Component::kScalarInteger:
      return "Scalar Integer";
    case Component::kInteger:
      return std::string(target_label()) + " Integer";
    case Component::kFloat:
      return std::string(target_label()) + " Float";
    case Component::kMixed:
      return std::string(target_label()) + " Mixed";
    default:
      return "Mixed Workload";
  }
}

std::vector<std::unique_ptr<StressTest>> make_stress_tests() {
  std::vector<std::unique_ptr<StressTest>> tests;
  const auto add = [&](const StressTest::Row& row, KnownAnswerPlan plan) {
    tests.push_back(std::make_unique<KnownAnswerTest>(row, plan));
  };
  const auto words = [](const orl::Algorithm& a) { return KnownAnswerPlan{a, kLargestBytes, 64}; };
  const auto blocks = [](const orl::Algorithm& a) { return KnownAnswerPlan{a, kLargestBytes, 512}; };
  const auto bits = [](u64 most) { return KnownAnswerPlan{orl::fft_algorithm(), most, 1}; };
  add({"BKT", "Basecase + Karatsuba", "words", Component::kScalarInteger, 2, true},
      words(orl::basecase_algorithm<u64>()));
  tests.push_back(std::make_unique<BbpTest>());
  add({"SFT", "Small In-Cache FFT", "bits", Component::kFloat, 3, true}, bits(kCacheBytes));
  add({"FFT", "Fast Fourier Transform", "bits", Component::kFloat, 10, false}, bits(kLargestBytes));
  add({"N32", "Classic NTT (32-bit)", "blocks", Component::kInteger, 8, false}, blocks(orl::n32_algorithm()));
  add({"N64", "Classic NTT (64-bit)", "blocks", Component::kInteger, 7, true}, blocks(orl::n64_algorithm()));
  add({"HNT", "Hybrid NTT", "blocks", Component::kMixedWorkload, 6, true}, blocks(orl::hnt_algorithm()));
  add({"VST", "Vector Transform", "blocks", Component::kFloat, 5, true}, blocks(orl::vst_algorithm()));
  add({"C17", "Code 17 Experiment", "blocks", Component::kMixed, 4, true}, blocks(orl::c17_algorithm()));
  return tests;
}

}  // namespace orvane
