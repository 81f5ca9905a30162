// Long functions pass every step through the frame that they are given, and a stage names what the later ones
// read: a run that resumes behind any of them, in other memory, ends with equal words.
#include <gtest/gtest.h>

#include "functions/function_runner.h"
#include "functions/log_agm.body.h"
#include "functions/power.body.h"
#include "functions/recording_frame.h"
#include "support/counting_algorithm.h"
#include "support/random_words.h"

namespace orl::test {
namespace {

template <class W>
class Stages : public ::testing::Test {
 protected:
  CountedProducts<W> products{2};  // before any plan: with products that wrap
  Random random;

  /// run(ctx, frame, out, arena) is a plan's run with its operands. Returns the number of stages.
  template <class Run>
  u64 resumes_behind_every_stage(const Need& need, const Run& run) {
    Runner<W> runner(need.table_bits);
    Recording recording;
    const auto run_once = [&](const Recording::Save* from) {
      recording.start(from);
      RecordingFrame frame(recording);
      GuardedHeap heap(need.ram_bytes);
      OwnedFloat<W> out(need.out_words);
      products->reset();
      run(runner.context(1), frame, out.x, heap.buffer());
      EXPECT_FALSE(recording.loading);
      EXPECT_TRUE(heap.intact());
      std::vector<W> words(out.x.T, out.x.T + out.x.L);
      words.push_back(static_cast<W>(out.x.exp));
      words.push_back(out.x.sign);
      return words;
    };
    const std::vector<W> whole = run_once(nullptr);
    for (const Recording::Save& save : std::vector<Recording::Save>(recording.saves))
      EXPECT_EQ(run_once(&save), whole);
    EXPECT_EQ(products->forward + products->forward_cyclic, 0u) << "multiplies outside of its stages";
    return recording.saves.size();
  }

  OwnedFloat<W> operand(u64 L) { return OwnedFloat<W>(random.number<W>(L), -static_cast<s64>(L / 2)); }
};

TYPED_TEST_SUITE(Stages, BothWords);

// Sizes on both sides of the small levels, and with several levels above them.
TYPED_TEST(Stages, OfNewtonIterationsAreComplete) {
  using W = TypeParam;
  for (const u64 p : {1, 9, 10, 19, 70}) {
    SCOPED_TRACE(p);
    u64 levels = 1;
    for (u64 n = p; n > kSmallLevelWords; n = (n + 1) >> 1) ++levels;
    const OwnedFloat<W> a = this->operand(p + 3), b = this->operand(p + 2);
    const InvsqrtWord<RecordingStore<W>> root_of_word(p, 1);
    EXPECT_EQ(this->resumes_behind_every_stage(root_of_word.need(),
                                               [&](const auto& ctx, auto& f, auto& out, auto heap) {
                                                 root_of_word.run(ctx, f, out, 10005, heap);
                                               }),
              2 * levels - 1);
    const InvsqrtFloat<RecordingStore<W>> root(p, 1);
    this->resumes_behind_every_stage(root.need(), [&](const auto& ctx, auto& f, auto& out, auto heap) {
      root.run(ctx, f, out, a.x, heap);
    });
    for (const DivisionMemory memory : {DivisionMemory::kLess, DivisionMemory::kLeast}) {
      const Division<RecordingStore<W>> division(p, 1, memory);
      EXPECT_GE(this->resumes_behind_every_stage(division.need(),
                                                 [&](const auto& ctx, auto& f, auto& out, auto heap) {
                                                   division.run(ctx, f, out, a.x, b.x, heap);
                                                 }),
                2 * levels - 1);
    }
  }
}

// With the hash of the result, which later stages do not make again.
TYPED_TEST(Stages, OfProvedOperationsAreComplete) {
  using W = TypeParam;
  Runner<W> runner(1 << 16);
  const ParallelContext serial = runner.context(1).parallel;
  for (const u64 p : {9, 40}) {
    SCOPED_TRACE(p);
    const OwnedFloat<W> a = this->operand(p + 2), b = this->operand(p + 1);
    const Hashed<BigFloat<W>> x{a.x, a.x.computed_hash(serial)}, y{b.x, b.x.computed_hash(serial)};
    const auto resumes = [&](const auto& plan, const auto&... operands) {
      this->resumes_behind_every_stage(plan.need(), [&](const auto& ctx, auto& f, auto& out, auto heap) {
        const u64 hash = plan.run(ctx, f, out, operands..., heap);
        EXPECT_EQ(hash, hash_canon(out.computed_hash(ctx.parallel)));
      });
    };
    resumes(ProvedProduct<RecordingStore<W>>(p, 1), x, y);
    resumes(ProvedProduct<RecordingStore<W>>(p, 1), x, x);
    resumes(ProvedInvsqrtWord<RecordingStore<W>>(p, 1), W{10005});
    resumes(ProvedSqrtFloat<RecordingStore<W>>(p, 1), x);
    resumes(ProvedInvsqrtFloat<RecordingStore<W>>(p, 1), x);
    resumes(ProvedDivision<RecordingStore<W>>(p, 1, DivisionMemory::kLess), x, y);
    resumes(ProvedDivision<RecordingStore<W>>(p, 1, DivisionMemory::kLeast), x, y);
    resumes(AGM1<RecordingStore<W>>(p, 1), x);
    resumes(AGM2<RecordingStore<W>>(p, 1), x, y);
    resumes(Log_AGM<RecordingStore<W>>(p, 1), x, LogOperands<BigFloat<W>>{x, y});
    resumes(Power_nL<RecordingStore<W>>(p, -13, 1), x);
  }
}

}  // namespace
}  // namespace orl::test
