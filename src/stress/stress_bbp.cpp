// The test "BBP": sums of the extractor's terms by the best kernel of the machine.
//
// An operand is a range of terms and the sum that the scalar kernel found for it. Some ranges are worked out
// when the memory is filled, and repeated until the memory is full: the work is the processor's alone, and
// what lies in memory is proved as well.
#include <algorithm>
#include <array>

#include "bbp/bbp_sum.h"
#include "core/format.h"
#include "stress/stress_work.h"

namespace orvane {
namespace {

using orl::BbpTerm;
using orl::LinearHeapBuffer;
using orl::s64;

constexpr u64 kTermsPerRange = 4096;
constexpr u64 kDistinctRanges = 16;
constexpr u64 kOperandsPerLook = 65536;  // filled between two looks whether to stop
// Ranges start below this, so that denominators stay at the size that real offsets have.
constexpr u64 kFirstMask = (u64{1} << 31) - 1;
// The exponent of the first term: the digits at an offset of 2^40, 1,099,511,627,776.
constexpr s64 kExponent = s64{1} << 42;
constexpr u64 kLimbs = 2;
constexpr u64 kLeastBytes = 4096;  // holds every distinct range several times

struct BbpOperand {
  u64 first;
  u64 b;
  std::array<u64, kLimbs> sum;
  bool operator==(const BbpOperand&) const = default;
};
static_assert(sizeof(BbpOperand) == 32);

// 2^(e - 4 k) / (8 k + b), b = 1, 3, 5 or 7.
BbpTerm term_of(const BbpOperand& operand) {
  return {.a = 8, .b = (operand.b & 7) | 1, .c = -4, .d = kExponent, .positive = true};
}

std::array<u64, kLimbs> sum_of(orl::simd::Target target, const BbpOperand& operand) {
  std::array<u64, kLimbs> limbs{};
  const u64 first = operand.first & kFirstMask;
  orl::bbp_sum(target, term_of(operand), first, first + kTermsPerRange, limbs.data(), kLimbs);
  return limbs;
}

class BbpWork final : public StressWork {
 public:
  explicit BbpWork(u64 count) : count_(count) {}

  u64 bytes() const override { return operand_bytes(); }
  u64 operand_bytes() const override { return count_ * sizeof(BbpOperand); }
  std::string size_text() const override {
    return orl::format_with_commas(count_) + " x " + orl::format_with_commas(kTermsPerRange);
  }

  bool prepare(LinearHeapBuffer memory, u64 seed, const std::atomic<bool>& stop) override {
    operands_ = memory.cut<BbpOperand>(count_);
    at_ = 0;
    for (u64 i = 0; i < kDistinctRanges; ++i) {
      BbpOperand& operand = known_[i];
      seed = seed * 6364136223846793005 + 1442695040888963407;
      operand = {.first = seed >> 33, .b = 2 * (i % 4) + 1, .sum = {}};
      operand.sum = sum_of(orl::simd::Target::kScalar, operand);
    }
    for (u64 i = 0; i < count_; ++i) {
      if (i % kOperandsPerLook == 0 && stop) return false;
      operands_[i] = known_[i % kDistinctRanges];
    }
    return true;
  }

  void round() override {
    const BbpOperand& operand = operands_[at_];
    if (sum_of(orl::simd::active_target(), operand) != operand.sum) throw_mismatch("BbpWork::round()");
    if (++at_ == count_) at_ = 0;
  }

  void check_memory() override {
    for (u64 i = 0; i < count_; ++i)
      if (operands_[i] != known_[i % kDistinctRanges]) throw_mismatch("BbpWork::check_memory()");
  }

  LinearHeapBuffer tables() override { return {}; }

 private:
  u64 count_;
  BbpOperand* operands_ = nullptr;
  u64 at_ = 0;
  std::array<BbpOperand, kDistinctRanges> known_{};
};

}  // namespace

std::unique_ptr<StressWork> plan_bbp(u64 share_bytes) {
  const u64 count = share_bytes / 64 * 64 / sizeof(BbpOperand);
  if (share_bytes < kLeastBytes) return nullptr;
  return std::make_unique<BbpWork>(count);
}

}  // namespace orvane
