#include <algorithm>
#include <cfenv>

#include "core/exceptions.h"
#include "core/output.h"
#include "transforms/c17/residue.h"
#include "transforms/c17/residue_bounds.h"
#include "transforms/c17/residue_kernels.h"
#include "transforms/c17/residue_tables.h"
#include "transforms/common/product_algorithm.h"

namespace orl {
namespace {

constexpr const char* kId = "C17";
constexpr u64 kMaxBits = 0x12C0000000000;

/// One shape, and its work.
class ResidueRun {
 public:
  ResidueRun(const ResidueRow& row, const ResidueTables* tables, u64 tds)
      : kernels_(residue_kernels(simd::active_target())),
        row_(row),
        tables_(tables),
        tasks_(std::clamp<u64>(tds, 1, std::max<u64>(transform_bytes() / 2 / own_bytes(), 1))) {
    check_residue_bounds(row);
  }

  const ResidueRow& row() const { return row_; }
  const ResidueKernels& kernels() const { return kernels_; }
  u64 transform_bytes() const { return sizeof(double) * residue_doubles(row_); }
  u64 scratch_bytes() const {
    return LinearHeapBuffer::cut_bytes<u8>(sizeof(ResidueJoinRun) * runs_of(tasks_)) +
           tasks_ * LinearHeapBuffer::cut_bytes<u8>(task_bytes());
  }

  ResiduePlan plan(ResidueForm form) const {
    ResiduePlan plan{row_, form, &residue_set(row_.P, row_.k), {}};
    for (u32 i = 0; i < row_.P; ++i) {
      const ResiduePrime& prime = residue_primes()[plan.set->prime[i]];
      ResidueModulus& m = plan.modulus[i];
      m.p = static_cast<double>(prime.p);
      m.inverse = 1 / m.p;
      if (tables_) m.roots = tables_->roots(plan.set->prime[i]);
      if (m.roots.count < ResidueTables::count_of(row_.n))
        throw InvalidParametersException(kId, "Invalid Function Parameters:   ");
      // The last three levels are not split, so an inverse multiplies by M / 8.
      m.scale = prime.factor(prime.multiply(prime.half[row_.n - 3], plan.set->scale[i]));
      m.odd = plan.set->odd[i];
    }
    return plan;
  }

  /// The first stage: from words to subtrees.
  void start(const ResiduePlan& plan, double* F, ResidueOperand a, void* tmp,
             ParallelContext parallel) const {
    for_columns(plan, tmp, parallel, [&](u64, u64, u64 begin, u64 end, double* tile) {
      kernels_.first_stage(plan, F, a, begin, end, tile);
    });
  }
  void forward(const ResiduePlan& plan, double* F, ResidueOperand a, void* tmp,
               ParallelContext parallel) const {
    start(plan, F, a, tmp, parallel);
    subtrees(plan, tmp, parallel, [&](const ResidueModulus& m, const ResidueSubtrees& s, u64 at) {
      kernels_.forward(m, s, F + at);
    });
  }
  /// F times G, both transformed; or, with `raw`, both only started.
  void multiply(const ResiduePlan& plan, double* F, double* G, bool raw, void* tmp,
                ParallelContext parallel) const {
    subtrees(plan, tmp, parallel, [&](const ResidueModulus& m, const ResidueSubtrees& s, u64 at) {
      kernels_.multiply(m, s, F + at, G + at, raw);
    });
  }
  /// The last stage: to words of the window. True for a negacyclic product of W^n, whose words are zero.
  bool finish(const ResiduePlan& plan, double* F, ResidueWindow window, void* tmp,
              ParallelContext parallel) const {
    auto* runs = static_cast<ResidueJoinRun*>(tmp);
    u64 count = 0;
    for_columns(plan, tmp, parallel, [&](u64 task, u64 tasks, u64 begin, u64 end, double* tile) {
      if (task == 0) count = runs_of(tasks);
      for (u64 r = 0; r < runs_of(1); ++r) {
        const u64 at = r * plan.columns();
        runs[r * tasks + task] = start_residue_run(row_, plan.form, at + begin, at + end, window);
      }
      kernels_.last_stage(plan, F, begin, end, tile, runs + task, tasks);
    });
    u32 excess = 0;
    u64 wanted = 0;
    for (u64 r = 0; r < count; ++r) {
      excess = std::max(excess, runs[r].excess_bits());
      wanted += 2 * runs[r].begin < window.end;
    }
    if (excess) coefficient_failed(residue_coefficient_bits(row_, plan.form), excess);
    return resolve_residue_runs(row_, plan.form, runs, wanted);
  }

 private:
  /// Runs of the join when `tasks` tasks share each row of columns.
  u64 runs_of(u64 tasks) const { return tasks * row_.k << residue_stage_levels(row_.n); }

  [[noreturn]] static void coefficient_failed(u32 limit_bits, u32 excess_bits) {
    if (std::fegetround() != 0) notice_line("The FPU Control Word has been corrupted.", 'Y');
    throw ConvolutionFailedException(kId, "Coefficient is too large.", limit_bits, limit_bits + excess_bits);
  }

  /// Bytes that one task more takes. Scratch stays below half of a transform: with as many tasks as that
  /// allows, each has the work of a few tiles and subtrees.
  u64 own_bytes() const {
    return LinearHeapBuffer::cut_bytes<u8>(task_bytes()) + sizeof(ResidueJoinRun) * runs_of(1);
  }
  /// What a task has of its own: a tile of columns or the roots of a subtree.
  u64 task_bytes() const {
    return std::max(residue_tile_bytes(row_),
                    residue_roots_bytes(u64{1} << (row_.n - residue_stage_levels(row_.n))));
  }
  /// Forks over `count` units, at most a task each: body(task, tasks, begin, end, memory of the task).
  template <class Body>
  void for_parts(u64 count, void* tmp, ParallelContext parallel, Body&& body) const {
    const u64 tasks = std::min({tasks_, count, std::max<u64>(parallel.tds, 1)});
    LinearHeapBuffer scratch(tmp, scratch_bytes());
    scratch.cut<u8>(sizeof(ResidueJoinRun) * runs_of(tasks_));
    const auto task = [&](u64 t) {
      LinearHeapBuffer own = scratch;
      own.cut<u8>(t * LinearHeapBuffer::cut_bytes<u8>(task_bytes()));
      body(t, tasks, count * t / tasks, count * (t + 1) / tasks, own.cut<u8>(task_bytes()));
    };
    if (tasks == 1) return task(0);
    fork_range(parallel.parallelizer, 0, tasks, task);
  }
  /// Columns of the first and last stage: body(task, tasks, begin, end, tile).
  template <class Body>
  void for_columns(const ResiduePlan& plan, void* tmp, ParallelContext parallel, Body&& body) const {
    for_parts(plan.columns() / 8, tmp, parallel, [&](u64 t, u64 tasks, u64 begin, u64 end, u8* own) {
      body(t, tasks, 8 * begin, 8 * end, reinterpret_cast<double*>(own));
    });
  }
  /// Subtrees, those of a prime's sequences together: body(modulus, subtrees, place of the first).
  template <class Body>
  void subtrees(const ResiduePlan& plan, void* tmp, ParallelContext parallel, Body&& body) const {
    const u64 rows = plan.rows(), k = row_.k;
    for_parts(row_.P * rows * k, tmp, parallel, [&](u64, u64, u64 begin, u64 end, u8* own) {
      const auto place = [&](u64 u) {
        return ((u / (rows * k) * k + u % k) * rows + u / k % rows) * plan.subtree_stride();
      };
      for (u64 u = begin, count; u < end; u += count) {
        count = std::min(k - u % k, end - u);
        const s64 ahead = u + count < end ? static_cast<s64>(place(u + count) - place(u + count - 1)) : 0;
        body(plan.modulus[u / (rows * k)],
             ResidueSubtrees{plan.columns(), (plan.first_node() << plan.levels()) + u / k % rows, count,
                             plan.sequence_stride(), ahead, own},
             place(u));
      }
    });
  }

  const ResidueKernels& kernels_;
  ResidueRow row_;
  const ResidueTables* tables_;
  u64 tasks_;  ///< at most
};

void check_length(const ResidueRow& row, u64 words) {
  if (words * 32 > row.bits())
    throw ConvolutionTooSmallException(kId, "Convolution length is too small.", row.bits(), words * 32);
}

ResidueOperand operand(Words<u32> A) { return {reinterpret_cast<const u8*>(A.ptr), 4 * A.count}; }

class ResidueParameters final : public Parameters, public WrappedProducts {
 public:
  ResidueParameters(const ResidueRow& row, const ResidueTables* tables, u64 tds) : run_(row, tables, tds) {
    max_bits_ = row.bits();
    transform_size_ = run_.transform_bytes();
    scratch_size_ = run_.scratch_bytes();
    words_ = row.bits() / 32;
    wrapped_ = this;
  }
  void forward(void* F, Words<u32> A, void* tmp, ParallelContext parallel) const override {
    check_length(run_.row(), A.count);
    run_.forward(run_.plan(ResidueForm::kPlain), static_cast<double*>(F), operand(A), tmp, parallel);
  }
  void inverse_fsqr(void* F, Window<u32> T, void* tmp, ParallelContext parallel) const override {
    inverse_fmul(F, F, T, tmp, parallel);
  }
  void inverse_fmul(void* F, const void* G, Window<u32> T, void* tmp,
                    ParallelContext parallel) const override {
    check_length(run_.row(), T.len);
    const ResiduePlan plan = run_.plan(ResidueForm::kPlain);
    // G is only read.
    run_.multiply(plan, static_cast<double*>(F), static_cast<double*>(const_cast<void*>(G)), false, tmp,
                  parallel);
    run_.finish(plan, static_cast<double*>(F), {T.T, T.skip, T.len}, tmp, parallel);
  }
  void forward_wrapped(Wrap ring, void* F, Words<u32> A, void* tmp, ParallelContext parallel) const override {
    check_length(run_.row(), A.count);
    run_.forward(run_.plan(form_of(ring)), static_cast<double*>(F), operand(A), tmp, parallel);
  }
  bool pointwise_wrapped(Wrap ring, void* F, const void* G, u32* T, void* tmp,
                         ParallelContext parallel) const override {
    const ResiduePlan plan = run_.plan(form_of(ring));
    run_.multiply(plan, static_cast<double*>(F), static_cast<double*>(const_cast<void*>(G)), false, tmp,
                  parallel);
    return run_.finish(plan, static_cast<double*>(F), {T, 0, words_}, tmp, parallel);
  }
  bool product_wrapped(Wrap ring, const TransformAreas& areas, Words<u32> A, Words<u32> B, u32* T,
                       ParallelContext parallel) const override {
    check_length(run_.row(), std::max(A.count, B.count));
    const ResiduePlan plan = run_.plan(form_of(ring));
    double* const F = static_cast<double*>(areas.F);
    double* const G = static_cast<double*>(areas.G);
    run_.start(plan, F, operand(A), areas.tmp, parallel);
    if (G != F) run_.start(plan, G, operand(B), areas.tmp, parallel);
    run_.multiply(plan, F, G, true, areas.tmp, parallel);
    return run_.finish(plan, F, {T, 0, words_}, areas.tmp, parallel);
  }
  bool compatible(const Parameters& other) const override {
    const auto* o = dynamic_cast<const ResidueParameters*>(&other);
    return o && o->run_.row().P == run_.row().P && o->run_.row().k == run_.row().k &&
           o->run_.row().n == run_.row().n && &o->run_.kernels() == &run_.kernels();
  }

 private:
  static ResidueForm form_of(Wrap ring) {
    return ring == Wrap::cyclic ? ResidueForm::kCyclic : ResidueForm::kNegacyclic;
  }

  ResidueRun run_;
};

const ResidueTables* find_tables(const TransformTables& tables) {
  return static_cast<const ResidueTables*>(tables.find(kId));
}

const ResidueRow& row_of(u64 bits) {
  if (bits > kMaxBits) throw LimitExceededException(kId, kMaxBits, bits);
  return find_residue_row(bits);
}
/// The rows that products of up to `bits` take.
std::span<const ResidueRow> rows_to(u64 bits) {
  const auto rows = residue_rows();
  return rows.first(static_cast<u64>(&row_of(bits) - rows.data()) + 1);
}

class ResidueAlgorithm final : public ProductAlgorithm {
 public:
  ResidueAlgorithm() : ProductAlgorithm(kMaxBits, kId, "Code 17 Experiment", "C17v1", "Code 17 Experiment") {}

  u64 table_bytes(u64 bits) const override { return ResidueTables::bytes(rows_to(bits)); }
  void ensure_tables(TransformTables& tables, u64 bits) const override {
    if (!tables.find(kId)) tables.put(kId, std::make_unique<ResidueTables>());
    static_cast<ResidueTables*>(tables.find(kId))->grow(tables.memory(), rows_to(bits));
  }
  MultiplySizes sizes(u64 bits, u64 tds) const override {
    const ResidueRun run(row_of(bits), nullptr, tds);
    return {run.transform_bytes(), run.scratch_bytes()};
  }
  const Parameters& parameters_for(ParametersBox& out, const TransformTables* tables, u64 bits,
                                   u64 tds) const override {
    return residue_parameters(out, tables, row_of(bits), tds);
  }

 private:
  // Subtrees go forward, through the product and back while they are in cache.
  void product(const MultiplyContext& ctx, Window<u32> T, Words<u32> A, Words<u32> B) const override {
    const bool square = B.count == 0;
    const ResidueRow& row = row_of((square ? 2 * A.count : A.count + B.count) * 32);
    check_length(row, T.len);
    const ResidueRun run(row, find_tables(ctx.tables), ctx.parallel.tds);
    const ResiduePlan plan = run.plan(ResidueForm::kPlain);
    LinearHeapBuffer scratch = ctx.scratch;
    double* F = scratch.cut<double>(residue_doubles(row));
    double* G = square ? F : scratch.cut<double>(residue_doubles(row));
    void* tmp = scratch.cut<u8>(run.scratch_bytes());
    run.start(plan, F, operand(A), tmp, ctx.parallel);
    if (!square) run.start(plan, G, operand(B), tmp, ctx.parallel);
    run.multiply(plan, F, G, true, tmp, ctx.parallel);
    run.finish(plan, F, {T.T, T.skip, T.len}, tmp, ctx.parallel);
  }
};

}  // namespace

const Parameters& residue_parameters(ParametersBox& out, const TransformTables* tables, const ResidueRow& row,
                                     u64 tds) {
  return out.emplace<ResidueParameters>(row, tables ? find_tables(*tables) : nullptr, tds);
}

const Algorithm& c17_algorithm() {
  static const ResidueAlgorithm algorithm;
  return algorithm;
}

}  // namespace orl
