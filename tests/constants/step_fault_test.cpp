// A flipped bit in any step from a leaf to the constant ends in the exception of the check that stands behind the step.
#include <gtest/gtest.h>

#include <cstring>

#include "constants/e.h"
#include "constants/euler.h"
#include "constants/lemniscate.h"
#include "constants/log.h"
#include "constants/one_series.h"
#include "constants/pi.h"
#include "constants/roots.h"
#include "core/exceptions.h"
#include "core/fault_point.h"
#include "functions/function_runner.h"
#include "machin/stored_formulas.h"
#include "support/counting_algorithm.h"
#include "support/random_words.h"
#include "support/sanitized.h"

namespace orl {
namespace {

/// Which call of which site flips which bit; counts calls when it names none.
struct {
  const char* site = "";
  u64 countdown = ~u64{0};
  u64 bit = 0;
  u64 seen = 0;
} fault;

}  // namespace

void fault_point(const char* site, void* data, u64 bytes) {
  if (std::strcmp(site, fault.site) != 0) return;
  ++fault.seen;
  if (fault.countdown-- != 0) return;
  const u64 bit = fault.bit % (8 * bytes);
  static_cast<u8*>(data)[bit / 8] ^= static_cast<u8>(1u << bit % 8);
}

namespace {

constexpr const char* kMerge = "Modular Redundancy Check Failed";
constexpr const char* kDivision = "Checksum Mismatch. Division failed.";
constexpr const char* kRoot = "Checksum Mismatch. Square root failed.";
constexpr const char* kProduct = "Checksum Mismatch. Multiplication Failed.";

struct Step {
  const char* site;
  const char* words;
  u64 least_visits;           ///< over all constants
  u64 most_behind = ~u64{0};  ///< visits until the check speaks: no further than the node's last number
};
constexpr Step kSteps[] = {
    {"leaf", kMerge, 1000},        {"merge operand", kMerge, 1000},    {"merge result", kMerge, 1000, 3},
    {"fold operand", kMerge, 20},  {"fold result", kMerge, 8},         {"tail between pieces", kMerge, 3},
    {"outer sum", kDivision, 6},   {"division operand", kDivision, 6}, {"root", kProduct, 3},
    {"root result", kProduct, 3},  {"last factor", kProduct, 4},       {"cross product", kProduct, 4},
    {"cross sum", kProduct, 2},    {"last product", kProduct, 2},      {"sum of series", kProduct, 6},
    {"doubled root", kRoot, 2},    {"doubled pi", kDivision, 2},       {"euler sum", kProduct, 2},
    {"euler factor", kProduct, 3}, {"euler log", kProduct, 1},
};

template <class W>
class Constant {
 public:
  explicit Constant(ConstantPlanPointer<RamStore<W>> plan)
      : plan_(std::move(plan)),
        need_(plan_->need()),
        runner_(need_.table_bits),
        heap_(need_.ram_bytes),
        words_(need_.out_words) {}

  /// Computes it; the words of the check that stopped it, empty when none did.
  std::string run() {
    NullStackFrame frame;
    BigFloat<W> out(words_.data(), words_.size());
    try {
      plan_->run(runner_.context(1), frame, out, {heap_.data(), need_.ram_bytes});
    } catch (const BSRModularCheckFailedException& e) {
      EXPECT_EQ(e.function(), "orc_Verify_BSR()");
      EXPECT_LT(e.a(), e.b());
      EXPECT_EQ(e.hashes().size(), 2u);
      return e.message();
    } catch (const AlgorithmFailedException& e) {
      return e.message();
    }
    return {};
  }

 private:
  ConstantPlanPointer<RamStore<W>> plan_;
  Need need_;
  test::Runner<W> runner_;
  test::AlignedBytes heap_;
  std::vector<W> words_;
};

template <class W>
class StepFaults : public testing::Test {};
using WordTypes = testing::Types<u32, u64>;
TYPED_TEST_SUITE(StepFaults, WordTypes);

TYPED_TEST(StepFaults, AreFoundByTheCheckBehindTheStep) {
  using W = TypeParam;
  using Store = RamStore<W>;
  if (test::kSanitized && sizeof(W) == 4) GTEST_SKIP() << "64-bit words take the same steps.";
  test::Random random;
  SCOPED_TRACE(random.replay());
  const u64 p = 600000 / (8 * sizeof(W));
  Constant<W> constants[] = {
      Constant<W>(make_pi<Store>({PiSeries::kChudnovsky}, p, 1)),
      Constant<W>(make_pi<Store>({PiSeries::kRamanujan, -1, SeriesMemory::kReduced}, p, 1)),
      // So short that products have no form of half the memory, and the tail is folded in pieces.
      Constant<W>(make_pi<Store>({PiSeries::kRamanujan}, 128000 / (8 * sizeof(W)), 1)),
      Constant<W>(make_e<Store>({ETaylor::kAlternating, 1}, p, 1)),
      Constant<W>(make_one_series<Store>(OneSeries::kZeta3Zuniga, 1, p, 1)),
      Constant<W>(make_one_series<Store>(OneSeries::kCatalanPilehroodShort, -1, p, 1)),
      Constant<W>(make_euler<Store>({}, 100000 / (8 * sizeof(W)), 1)),
      Constant<W>(make_sqrt<Store>({2, 1}, p, 1)),
      Constant<W>(make_sqrt<Store>({3, -1}, p, 1)),
      Constant<W>(make_golden_ratio<Store>(1, p, 1)),
      Constant<W>(make_golden_ratio<Store>(-1, p, 1)),
      Constant<W>(make_lemniscate<Store>({LemniscateAlgorithm::kAgmPi}, 64000 / (8 * sizeof(W)), 1)),
      Constant<W>(make_lemniscate<Store>({LemniscateAlgorithm::kAgmPi, -1}, 64000 / (8 * sizeof(W)), 1)),
      Constant<W>(make_log_machin<Store>(2, stored_log_formulas().front().formulas.primary, p, 1)),
      Constant<W>(make_lemniscate<Store>({LemniscateAlgorithm::kSingular}, p, 1)),
  };
  for (const Step& step : kSteps) {
    u64 visits = 0;
    for (Constant<W>& constant : constants) {
      fault = {step.site, ~u64{0}, 0, 0};
      ASSERT_EQ(constant.run(), "");
      const u64 calls = fault.seen;
      visits += calls;
      for (u64 i = 0; i < std::min<u64>(calls, 6); ++i) {
        // The last calls are those of the folds and of the largest merges.
        const u64 at = i % 2 == 0 ? calls - 1 - random.below(std::min<u64>(calls, 60)) : random.below(calls);
        fault = {step.site, at, random.next() >> 8, 0};
        EXPECT_EQ(constant.run(), step.words) << step.site << ", visit " << at << " of " << calls;
        EXPECT_LE(fault.seen - at, step.most_behind) << step.site << ", visit " << at << " of " << calls;
      }
    }
    EXPECT_GE(visits, step.least_visits) << step.site;
  }
  fault = {"", ~u64{0}, 0, 0};
}

// The three products of the last one: each has the hash of its operands, not of itself.
TYPED_TEST(StepFaults, AreFoundInTheProductsOfTheLastStep) {
  using W = TypeParam;
  test::Random random;
  SCOPED_TRACE(random.replay());
  const test::CountedProducts<W> products;
  Constant<W> pi(make_pi<RamStore<W>>({PiSeries::kChudnovsky}, 100000 / (8 * sizeof(W)), 1));
  fault = {"product words", ~u64{0}, 0, 0};
  ASSERT_EQ(pi.run(), "");
  const u64 calls = fault.seen;
  for (u64 back = 1; back <= 3; ++back) {
    fault = {"product words", calls - back, random.next() >> 8, 0};
    EXPECT_EQ(pi.run(), kProduct) << back;
  }
  fault = {"", ~u64{0}, 0, 0};
}

}  // namespace
}  // namespace orl
