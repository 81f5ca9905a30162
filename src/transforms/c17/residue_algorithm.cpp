#include <algorithm>

#include "core/exceptions.h"
#include "transforms/c17/residue.h"
#include "transforms/c17/residue_bounds.h"
#include "transforms/c17/residue_kernels.h"
#include "transforms/c17/residue_tables.h"
#include "transforms/common/coefficient_check.h"
#include "transforms/common/transform_driver.h"

namespace orl {
namespace {

/// One shape, and its work.
class ResidueRun {
 public:
  using Plan = ResiduePlan;

  ResidueRun(const ResidueRow& row, const ResidueTables* tables, u64 tds);

  const ResidueRow& shape() const { return row_; }
  bool same(const ResidueRun& o) const {
    return o.row_.P == row_.P && o.row_.k == row_.k && o.row_.n == row_.n && &o.kernels_ == &kernels_;
  }
  bool wraps() const { return true; }
  u64 transform_bytes() const { return LinearHeapBuffer::cut_bytes<double>(residue_doubles(row_)); }
  u64 scratch_bytes() const {
    return LinearHeapBuffer::cut_bytes<u8>(sizeof(ResidueJoinRun) * runs_of(tasks_)) +
           tasks_ * LinearHeapBuffer::cut_bytes<u8>(task_bytes());
  }

  ResiduePlan plan(ProductRing ring) const { return residue_plan(row_, ring, tables_); }
  void start(const ResiduePlan& plan, double* F, OperandBytes a, TransformWork work) const {
    for_columns(plan, work, [&](u64, u64, u64 begin, u64 end, double* tile) {
      kernels_.first_stage(plan, F, a, begin, end, tile);
    });
  }
  void forward(const ResiduePlan& plan, double* F, TransformWork work) const {
    subtrees(plan, work, [&](const ResidueModulus& m, const ResidueSubtrees& s, u64 at) {
      kernels_.forward(m, s, F + at);
    });
  }
  void multiply(const ResiduePlan& plan, double* F, double* G, OperandState state, TransformWork work) const {
    subtrees(plan, work, [&](const ResidueModulus& m, const ResidueSubtrees& s, u64 at) {
      kernels_.multiply(m, s, F + at, G + at, state);
    });
  }
  bool finish(const ResiduePlan& plan, double* F, WordWindow window, TransformWork work) const {
    auto* runs = static_cast<ResidueJoinRun*>(work.tmp);
    u64 count = 0;
    for_columns(plan, work, [&](u64 task, u64 tasks, u64 begin, u64 end, double* tile) {
      if (task == 0) count = runs_of(tasks);
      for (u64 r = 0; r < runs_of(1); ++r) {
        const u64 at = r * plan.columns();
        runs[r * tasks + task] = start_residue_run(row_, plan.ring, at + begin, at + end, window);
      }
      kernels_.last_stage(plan, F, begin, end, tile, runs + task, tasks);
    });
    check_residue_runs("C17", row_, plan.ring, runs, count);
    u64 wanted = 0;
    for (u64 r = 0; r < count; ++r) wanted += 2 * runs[r].begin < window.end;
    return resolve_residue_runs(row_, plan.ring, runs, wanted);
  }

 private:
  /// Runs of the join when `tasks` tasks share each row of columns.
  u64 runs_of(u64 tasks) const { return tasks * row_.k << residue_stage_levels(row_.n); }
  /// What a task has of its own: a tile of columns or the roots of a subtree.
  u64 task_bytes() const {
    return std::max(residue_tile_bytes(row_),
                    residue_roots_bytes(u64{1} << (row_.n - residue_stage_levels(row_.n))));
  }
  /// Tasks that are of use: scratch stays below half of a transform, and each has the work of a few tiles and
  /// subtrees.
  u64 most_tasks() const {
    const u64 bytes = LinearHeapBuffer::cut_bytes<u8>(task_bytes()) + sizeof(ResidueJoinRun) * runs_of(1);
    return std::max<u64>(transform_bytes() / 2 / bytes, 1);
  }

  /// Forks over `count` units, at most a task each: body(task, tasks, begin, end, memory of the task).
  template <class Body>
  void for_units(u64 count, TransformWork work, Body&& body) const {
    LinearHeapBuffer scratch(work.tmp, scratch_bytes());
    scratch.cut<u8>(sizeof(ResidueJoinRun) * runs_of(tasks_));
    for_parts(work.parallel, tasks_, count, [&](u64 task, u64 tasks, u64 begin, u64 end) {
      LinearHeapBuffer own = scratch;
      own.cut<u8>(task * LinearHeapBuffer::cut_bytes<u8>(task_bytes()));
      body(task, tasks, begin, end, own.cut<u8>(task_bytes()));
    });
  }
  /// Columns of the first and last stage: body(task, tasks, begin, end, tile).
  template <class Body>
  void for_columns(const ResiduePlan& plan, TransformWork work, Body&& body) const {
    for_units(plan.columns() / 8, work, [&](u64 t, u64 tasks, u64 begin, u64 end, u8* own) {
      body(t, tasks, 8 * begin, 8 * end, reinterpret_cast<double*>(own));
    });
  }
  /// Subtrees, those of a prime's sequences together: body(modulus, subtrees, place of the first).
  template <class Body>
  void subtrees(const ResiduePlan& plan, TransformWork work, Body&& body) const {
    const u64 rows = plan.rows(), k = row_.k;
    for_units(row_.P * rows * k, work, [&](u64, u64, u64 begin, u64 end, u8* own) {
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

struct C17 {
  static constexpr const char *kId = "C17", *kName = "Code 17 Experiment", *kModule = "C17v1",
                              *kVariant = "Code 17 Experiment";
  static constexpr u64 kMaxBits = 0x12C0000000000;
  using Point = double;
  using Shape = ResidueRow;
  using Tables = ResidueTables;
  using Run = ResidueRun;
  static std::span<const ResidueRow> rows() { return residue_rows(); }
  static const ResidueRow& shape(const ResidueRow& row) { return row; }
};

ResidueRun::ResidueRun(const ResidueRow& row, const ResidueTables* tables, u64 tds)
    : kernels_(residue_kernels(simd::active_target())),
      row_(row),
      tables_(tables),
      tasks_(std::clamp<u64>(tds, 1, most_tasks())) {
  check_residue_bounds(row);
}

}  // namespace

void check_residue_runs(const char* id, const ResidueRow& row, ProductRing ring, const ResidueJoinRun* runs,
                        u64 count) {
  u32 excess = 0;
  for (u64 r = 0; r < count; ++r) excess = std::max(excess, runs[r].excess_bits());
  if (excess == 0) return;
  const u32 limit = residue_coefficient_bits(row, ring);
  coefficient_failed(id, limit, limit + excess);
}

ResiduePlan residue_plan(const ResidueRow& row, ProductRing ring, const ResidueTables* tables) {
  ResiduePlan plan{row, ring, &residue_set(row), {}};
  for (u32 i = 0; i < row.P; ++i) {
    const ResiduePrime& prime = residue_primes()[plan.set->prime[i]];
    ResidueModulus& m = plan.modulus[i];
    m.p = static_cast<double>(prime.p);
    m.inverse = 1 / m.p;
    if (tables) m.roots = tables->roots(plan.set->prime[i]);
    if (m.roots.count < ResidueTables::count_of(row.n))
      throw InvalidParametersException(C17::kId, "Invalid Function Parameters:   ");
    // The last three levels are not split, so an inverse multiplies by M / 8.
    m.scale = prime.factor(prime.multiply(prime.half[row.n - 3], plan.set->scale[i]));
    m.odd = plan.set->odd[i];
  }
  return plan;
}

const Parameters& residue_parameters(ParametersBox& out, const TransformTables* tables, const ResidueRow& row,
                                     u64 tds) {
  return out.emplace<TransformParameters<C17>>(row, find_tables<C17>(tables), tds);
}

const Algorithm& c17_algorithm() {
  static const TransformAlgorithm<C17> algorithm;
  return algorithm;
}

}  // namespace orl
