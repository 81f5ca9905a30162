#include "stress/stress_work.h"

#include <algorithm>

#include "core/exceptions.h"
#include "core/format.h"
#include "stress/known_answers.h"
#include "threads/simple_frameworks.h"

namespace orvane {
namespace {

using orl::Algorithm;
using orl::LinearHeapBuffer;
using Rounds = orl::KnownAnswerRounds<u64>;

// Operands are whole blocks of 512 bits, so that no padding lies between them.
constexpr u64 kWordsPerBlock = 8;
// A smaller operand exercises nothing.
constexpr u64 kLeastBlocks = 4;

class KnownAnswerWork final : public StressWork {
 public:
  KnownAnswerWork(const KnownAnswerPlan& plan, u64 words, u64 operands)
      : rounds_(plan.algorithm, words, 1, operands), unit_bits_(plan.unit_bits) {}

  u64 bytes() const override { return rounds_.bytes(); }
  u64 operand_bytes() const override { return rounds_.operands_bytes(); }
  std::string size_text() const override {
    return orl::format_with_commas(rounds_.operands()) + " x " +
           orl::format_with_commas(rounds_.words() * 64 / unit_bits_);
  }

  bool prepare(LinearHeapBuffer memory, u64 seed, const std::atomic<bool>& stop) override {
    at_ = 0;
    square_ = false;
    return rounds_.prepare(memory, seed, context(), &stop);
  }

  // Operand by operand a product with the next one, then a square, in turn; each sweep turns them around.
  void round() override {
    const auto result = square_ ? rounds_.square(context(), at_) : rounds_.product(context(), at_, next(at_));
    if (!result.passed()) throw_mismatch("KnownAnswerWork::round()");
    at_ = next(at_);
    square_ = square_ == (at_ == 0 && rounds_.operands() % 2 == 0);
  }

  void check_memory() override {
    if (!rounds_.intact(context())) throw_mismatch("KnownAnswerWork::check_memory()");
  }

  LinearHeapBuffer tables() override { return rounds_.tables(); }

 private:
  orl::ParallelContext context() { return {none_, 1}; }
  u64 next(u64 i) const { return i + 1 == rounds_.operands() ? 0 : i + 1; }

  orl::Parallelizer_None none_;
  Rounds rounds_;
  u64 unit_bits_;
  u64 at_ = 0;
  bool square_ = false;
};

u64 workspace_bytes(const Algorithm& algorithm, u64 blocks) {
  return Rounds(algorithm, blocks * kWordsPerBlock, 1).workspace_bytes();
}

}  // namespace

void throw_mismatch(const char* function) {
  throw orl::AlgorithmFailedException(function, "Checksum Mismatch");
}

std::unique_ptr<StressWork> plan_known_answers(const KnownAnswerPlan& plan, u64 share_bytes) {
  constexpr u64 kBlockBytes = kWordsPerBlock * sizeof(u64);
  // An operand takes at most half of its product, hence an eighth of the share, and the operands that fit
  // beside the workspace fill at least 1 - 1/4 - 1/8 of it.
  const u64 limit = std::min(share_bytes / 4, plan.workspace_bytes);
  u64 blocks = 0;
  u64 above = std::min(limit / (2 * kBlockBytes), plan.algorithm.max_bits() / (16 * kBlockBytes)) + 1;
  while (above - blocks > 1) {
    const u64 middle = blocks + (above - blocks) / 2;
    (workspace_bytes(plan.algorithm, middle) <= limit ? blocks : above) = middle;
  }
  if (blocks < kLeastBlocks) return nullptr;
  // Each operand has a hash of 8 bytes; the hashes fill whole lines of 64.
  const u64 rest = share_bytes - workspace_bytes(plan.algorithm, blocks) - 64;
  return std::make_unique<KnownAnswerWork>(plan, blocks * kWordsPerBlock,
                                           rest / (blocks * kBlockBytes + sizeof(u64)));
}

}  // namespace orvane
