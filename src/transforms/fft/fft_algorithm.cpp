#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>

#include "core/exceptions.h"
#include "core/fault_point.h"
#include "simd/target.h"
#include "transforms/common/coefficient_check.h"
#include "transforms/fft/fft.h"
#include "transforms/fft/fft_bounds.h"
#include "transforms/fft/fft_kernels.h"
#include "transforms/fft/fft_table.h"

namespace orl {
namespace {

constexpr const char* kId = "FFT";
constexpr u64 kMaxBits = 0x6000000;
// Tasks get at least this many chunks of columns each, so that their scratch stays small against the transform.
constexpr u64 kChunksPerTask = 4;

u64 round_up_bytes(u64 bytes) { return LinearHeapBuffer::cut_bytes<u8>(bytes); }

FftPlan plan_of(const FftRow& row, const FftTables* tables) {
  return {row.k, row.s - 1 - kFftBlockLevels, row.w, tables};
}

/// One shape and the memory it works in.
class FftRun {
 public:
  FftRun(const FftRow& row, const FftTables* tables, u64 tds)
      : kernels_(fft_kernels(simd::active_target())),
        plan_(plan_of(row, tables)),
        tasks_(plan_.blocked() ? std::clamp<u64>(tds, 1, plan_.chunks() / kChunksPerTask) : 1) {}

  const FftPlan& plan() const { return plan_; }
  const FftKernels& kernels() const { return kernels_; }
  u64 transform_bytes() const { return sizeof(double) * plan_.points(); }
  u64 scratch_bytes() const {
    return plan_.blocked() ? tasks_ * work_bytes() : round_up_bytes(plan_.field_bytes() + kFftFieldSlack);
  }

  /// Points of both operands (or of one, when G is null) into the first stage.
  void first_stage(double* F, FftOperand a, double* G, FftOperand b, void* tmp,
                   ParallelContext parallel) const {
    const u64 tasks = task_count(parallel);
    for_tasks(parallel, tasks, [&](u64 t) {
      double* chunk = plan_.blocked() ? work(tmp, t).chunk : nullptr;
      const u64 begin = plan_.chunks() * t / tasks, end = plan_.chunks() * (t + 1) / tasks;
      kernels_.first_stage(plan_, F, a, begin, end, chunk);
      if (G) kernels_.first_stage(plan_, G, b, begin, end, chunk);
    });
  }
  void branches(FftStep step, double* F, double* G, ParallelContext parallel) const {
    fault_point("fft points", F, transform_bytes());
    const u64 tasks = plan_.blocked() ? std::min<u64>(parallel.tds, plan_.branches()) : 1;
    for_tasks(parallel, tasks, [&](u64 t) {
      kernels_.branches(plan_, step, F, G, static_cast<u32>(plan_.branches() * t / tasks),
                        static_cast<u32>(plan_.branches() * (t + 1) / tasks));
    });
  }
  /// From the points of a product to the words of the window. Throws ConvolutionFailedException or
  /// AlgorithmFailedException when a coefficient is no integer to within kFftErrorLimit.
  void last_stage(double* F, FftWindow window, void* tmp, ParallelContext parallel) const {
    if (!plan_.blocked()) return check_rounding(kernels_.finish(plan_, F, window, static_cast<u8*>(tmp)));
    const u64 tasks = task_count(parallel);
    for_tasks(parallel, tasks, [&](u64 t) {
      const FftStageWork own = work(tmp, t);
      own.groups->error =
          kernels_.last_stage(plan_, F, window, first_chunk(t, tasks), first_chunk(t + 1, tasks), own);
    });
    for (u64 t = 0; t < tasks; ++t) check_rounding(work(tmp, t).groups->error);
    resolve_carries(window, tmp, tasks);
  }

 private:
  static void check_rounding(double error) {
    if (error > kFftErrorLimit) [[unlikely]]
      rounding_failed(error);
  }
  [[noreturn]] static void rounding_failed(double error) {
    if (std::isinf(error)) coefficient_failed(kId, kFftLargestBits, kFftLargestBits + 1);
    char text[64];
    std::snprintf(text, sizeof text, "Coefficient is %.3f from an integer; limit: %.1f.", error,
                  kFftErrorLimit);
    throw AlgorithmFailedException(kId, text);
  }

  u64 task_count(ParallelContext parallel) const { return std::min(std::max<u64>(parallel.tds, 1), tasks_); }
  u64 first_chunk(u64 task, u64 tasks) const { return plan_.chunks() * task / tasks; }
  template <class Body>
  static void for_tasks(ParallelContext parallel, u64 tasks, Body&& body) {
    if (tasks <= 1)
      body(0);
    else
      fork_range(parallel.parallelizer, 0, tasks, body);
  }

  u64 chunk_bytes() const { return round_up_bytes(sizeof(double) * FftStageWork::chunk_doubles(plan_)); }
  u64 work_bytes() const {
    return chunk_bytes() + round_up_bytes(sizeof(FftRunGroup) * FftStageWork::group_count(plan_));
  }
  FftStageWork work(void* tmp, u64 task) const {
    u8* p = static_cast<u8*>(tmp) + task * work_bytes();
    return {reinterpret_cast<double*>(p), reinterpret_cast<FftRunGroup*>(p + chunk_bytes())};
  }

  // Passes the carries of all runs on, from the lowest points to the highest.
  void resolve_carries(FftWindow window, void* tmp, u64 tasks) const {
    const u64 chunk = plan_.chunk_groups() * plan_.w;  // bytes
    u64 carry = 0;
    for (u64 g = 0; g < FftStageWork::group_count(plan_); ++g)
      for (u32 l = 0; l < kFftSecondRadix; ++l)
        for (u64 t = 0; t < tasks; ++t) {
          const u64 begin = ((g * kFftSecondRadix + l) * plan_.chunks() + first_chunk(t, tasks)) * chunk;
          if (begin >= window.end) return;
          carry = finish_run(work(tmp, t).groups[g], l, begin,
                             (first_chunk(t + 1, tasks) - first_chunk(t, tasks)) * chunk, window, carry);
        }
  }
  // Adds a carry to the run that begins at byte `begin` of the product; returns
  // the carry out of it.
  u64 finish_run(const FftRunGroup& group, u32 l, u64 begin, u64 bytes, FftWindow window, u64 carry) const {
    const u64 w = plan_.w;
    const FftFirstStep step({group.first[0][l], group.first[1][l], group.first[2][l]}, plan_.w, carry);
    const u64 from = std::max(begin, window.begin), to = std::min(begin + w, window.end);
    if (from < to)
      std::memcpy(window.target + (from - window.begin),
                  reinterpret_cast<const u8*>(step.word) + (from - begin), to - from);
    u64 passing = step.leaving;
    u64 i = begin + w;
    if (passing && i < window.begin) {
      if (!group.dropped_ones[l]) passing = 0;
      i = window.begin;
    }
    for (const u64 end = std::min(begin + bytes, window.end); passing && i < end; ++i)
      passing = ++window.target[i - window.begin] == 0;
    return group.carry[l] + passing;
  }

  const FftKernels& kernels_;
  FftPlan plan_;
  u64 tasks_;
};

void check_length(u64 max_bits, u64 words) {
  if (words * 32 > max_bits)
    throw ConvolutionTooSmallException("FFT", "Convolution length is too small.", max_bits, words * 32);
}

FftOperand operand(Words<u32> A) { return {reinterpret_cast<const u8*>(A.ptr), 4 * A.count}; }
FftWindow window_of(Window<u32> T) { return {reinterpret_cast<u8*>(T.T), 4 * T.skip, 4 * T.len}; }

/// The tables of a product that will run: those of the row, or an exception.
const FftTables* covering_tables(const TransformTables& tables, const FftRow& row) {
  const auto* own = static_cast<const FftTables*>(tables.find(kId));
  if (own == nullptr || !own->covers(row.k, row.s))
    throw InvalidParametersException(kId, "Twiddle tables are too small for this product.");
  return own;
}

class FftParameters final : public Parameters {
 public:
  FftParameters(const FftRow& row, const FftTables* tables, u64 tds) : run_(row, tables, tds) {
    max_bits_ = row.bits;
    // Points wrap with their sign turned. A negative one is packed modulo 2^64 in units of its own point or the one
    // before it: all together reach less than 2^65 units of the last that wraps. The coefficients of a product of
    // at most points / 2 points by any others are none larger than those of fft_bounds.h.
    folding_words_ = fft_folds_safely(row.points(), row.w) ? row.bits / 32 : 0;
    transform_size_ = run_.transform_bytes();
    scratch_size_ = run_.scratch_bytes();
  }

  void forward(void* F, Words<u32> A, void* tmp, ParallelContext parallel) const override {
    check_length(max_bits_, A.count);
    double* x = static_cast<double*>(F);
    run_.first_stage(x, operand(A), nullptr, {}, tmp, parallel);
    run_.branches(FftStep::forward, x, nullptr, parallel);
  }
  void inverse_fsqr(void* F, Window<u32> T, void* tmp, ParallelContext parallel) const override {
    check_length(max_bits_, T.len);
    run_.branches(FftStep::square, static_cast<double*>(F), nullptr, parallel);
    run_.last_stage(static_cast<double*>(F), window_of(T), tmp, parallel);
  }
  void inverse_fmul(void* F, const void* G, Window<u32> T, void* tmp,
                    ParallelContext parallel) const override {
    check_length(max_bits_, T.len);
    // FftStep::multiply only reads G.
    run_.branches(FftStep::multiply, static_cast<double*>(F), static_cast<double*>(const_cast<void*>(G)),
                  parallel);
    run_.last_stage(static_cast<double*>(F), window_of(T), tmp, parallel);
  }

  bool compatible(const Parameters& other) const override {
    const FftParameters* o = dynamic_cast<const FftParameters*>(&other);
    return o && o->run_.plan().k == run_.plan().k && o->run_.plan().levels == run_.plan().levels &&
           o->run_.plan().w == run_.plan().w && &o->run_.kernels() == &run_.kernels();
  }

 private:
  FftRun run_;
};

class FftAlgorithm final : public Algorithm {
 public:
  FftAlgorithm() : Algorithm(kMaxBits, kId, "Floating-Point FFT", "FFTv3", "Short-Vector FMA") {}

  u64 table_bytes(u64 bits) const override { return FftTables::bytes(largest_shapes(bits)); }
  void ensure_tables(TransformTables& tables, u64 bits) const override {
    auto* own = static_cast<FftTables*>(tables.find(kId));
    if (!own) {
      tables.put(kId, std::make_unique<FftTables>());
      own = static_cast<FftTables*>(tables.find(kId));
    }
    own->grow(tables.memory(), largest_shapes(bits));
  }
  MultiplySizes sizes(u64 bits, u64 tds) const override {
    const FftRun run(find_fft_row(bits), nullptr, tds);
    return {run.transform_bytes(), run.scratch_bytes()};
  }
  const Parameters& parameters_for(ParametersBox& out, const TransformTables* tables, u64 bits,
                                   u64 tds) const override {
    const FftRow& row = find_fft_row(bits);
    return out.emplace<FftParameters>(row, tables ? covering_tables(*tables, row) : nullptr, tds);
  }

  // Both operands go down a branch together, and the product comes back while
  // the branch is in cache.
  void sqr_window(const MultiplyContext& ctx, Window<u32> T, Words<u32> A) const override {
    const FftRow& row = find_fft_row(2 * A.count * 32);
    check_length(row.bits, T.len);
    const FftRun run(row, covering_tables(ctx.tables, row), ctx.parallel.tds);
    LinearHeapBuffer scratch = ctx.scratch;
    double* F = scratch.cut<double>(row.points());
    void* tmp = scratch.cut<u8>(run.scratch_bytes());
    run.first_stage(F, operand(A), nullptr, {}, tmp, ctx.parallel);
    run.branches(FftStep::convolve_square, F, nullptr, ctx.parallel);
    run.last_stage(F, window_of(T), tmp, ctx.parallel);
  }
  void mul_window(const MultiplyContext& ctx, Window<u32> T, Words<u32> A, Words<u32> B) const override {
    const FftRow& row = find_fft_row((A.count + B.count) * 32);
    check_length(row.bits, T.len);
    const FftRun run(row, covering_tables(ctx.tables, row), ctx.parallel.tds);
    LinearHeapBuffer scratch = ctx.scratch;
    double* F = scratch.cut<double>(row.points());
    double* G = scratch.cut<double>(row.points());
    void* tmp = scratch.cut<u8>(run.scratch_bytes());
    run.first_stage(F, operand(A), G, operand(B), tmp, ctx.parallel);
    run.branches(FftStep::convolve_multiply, F, G, ctx.parallel);
    run.last_stage(F, window_of(T), tmp, ctx.parallel);
  }

 private:
  // Largest s of each odd factor among the shapes of products up to `bits`.
  static std::array<u32, 3> largest_shapes(u64 bits) {
    std::array<u32, 3> s{};
    const FftRow& last = find_fft_row(bits);
    for (const FftRow& row : fft_rows()) {
      if (row.bits > last.bits) break;
      s[row.k / 2] = std::max(s[row.k / 2], row.s);
    }
    return s;
  }
};

}  // namespace

const Algorithm& fft_algorithm() {
  static const FftAlgorithm algorithm;
  return algorithm;
}

}  // namespace orl
