#include <algorithm>
#include <atomic>
#include <cfenv>

#include "core/exceptions.h"
#include "core/output.h"
#include "transforms/c17/residue_bounds.h"
#include "transforms/common/product_algorithm.h"
#include "transforms/vst/vst.h"
#include "transforms/vst/vst_kernels.h"

namespace orl {
namespace {

constexpr const char* kId = "VST";
constexpr u64 kMaxBits = 0x12C0000000000;
constexpr u64 kMaxRuns = 256;  // of the join
constexpr u64 kRunPoints = 512;
constexpr u64 kTogether = 8;  // rows that stand together in every shape

/// One shape, and its work.
class VstRun {
 public:
  VstRun(const VstShape& shape, const VstTables* tables)
      : kernels_(vst_kernels(simd::active_target())),
        join_(residue_kernels(simd::active_target()).join),
        shape_(shape),
        tables_(tables) {}

  const VstShape& shape() const { return shape_; }
  const VstKernels& kernels() const { return kernels_; }
  u64 transform_bytes() const { return sizeof(double) * shape_.doubles(); }
  u64 scratch_bytes() const { return LinearHeapBuffer::cut_bytes<u8>(sizeof(ResidueJoinRun) * runs()); }

  VstPlan plan(ResidueForm form) const {
    const ResidueRow& row = shape_.row;
    VstPlan plan{shape_, {}, form == ResidueForm::kNegacyclic ? 1u : 0u, {}, {}};
    plan.primes.row = row;
    plan.primes.form = form;
    plan.primes.set = &residue_set(row.P, row.k);
    for (u32 i = 0; i < row.P; ++i) {
      const u32 index = plan.primes.set->prime[i];
      const ResiduePrime& prime = residue_primes()[index];
      const VstRoots* roots = tables_ ? tables_->roots(index, row.n) : nullptr;
      if (!roots) throw InvalidParametersException(kId, "Invalid Function Parameters:   ");
      plan.roots[i] = *roots;
      ResidueModulus& m = plan.primes.modulus[i];
      m.p = static_cast<double>(prime.p);
      m.inverse = 1 / m.p;
      // The last two levels are not split, so an inverse multiplies by M / 4.
      m.scale = prime.factor(prime.multiply(prime.half[row.n - 2], plan.primes.set->scale[i]));
      m.odd = plan.primes.set->odd[i];
    }
    u32 half = 1;
    for (u32 level = 0; level < row.n; ++level) {
      half = half * ((row.k + 1u) / 2) % row.k;
      for (u32 j = 0; j < row.k; ++j) plan.exponent[j][level] = static_cast<u8>(j * half % row.k);
    }
    return plan;
  }

  /// Split and the first levels.
  void start(const VstPlan& plan, double* F, ResidueOperand a, ParallelContext parallel) const {
    for_parts(parallel, child_rows(),
              [&](u64 begin, u64 end) { kernels_.first_stage(plan, F, a, begin, end); });
  }
  void forward(const VstPlan& plan, double* F, ResidueOperand a, ParallelContext parallel) const {
    start(plan, F, a, parallel);
    subtrees(parallel, [&](u32 j, u64 child) { kernels_.forward(plan, F, j, child); });
  }
  /// F times G, both transformed; or, when raw, both only started.
  void multiply(const VstPlan& plan, double* F, double* G, VstForm form, ParallelContext parallel) const {
    subtrees(parallel, [&](u32 j, u64 child) { kernels_.product(plan, F, G, form, j, child); });
  }
  /// The last levels, and the words of the window. True for a negacyclic product that is W^n.
  bool finish(const VstPlan& plan, ResidueForm form, double* F, ResidueWindow window, void* tmp,
              ParallelContext parallel) const {
    for_parts(parallel, child_rows(), [&](u64 begin, u64 end) { kernels_.last_stage(plan, F, begin, end); });
    ResidueJoinRun* run = static_cast<ResidueJoinRun*>(tmp);
    const u64 size = run_points(), bits = size * shape_.row.point_bits();
    const u64 wanted = std::min(runs(), (window.end * 32 + bits - 1) / bits);
    std::atomic<u32> excess{0};
    for_parts(parallel, wanted, [&](u64 begin, u64 end) {
      for (u64 b = begin; b < end; ++b) {
        const u32 found = join_run(plan, form, F, b * size, window, run[b]);
        u32 before = excess.load(std::memory_order_relaxed);
        while (found > before && !excess.compare_exchange_weak(before, found)) {
        }
      }
    });
    if (excess) coefficient_failed(residue_coefficient_bits(shape_.row, form), excess);
    return resolve_residue_runs(shape_.row, form, run, wanted);
  }

 private:
  u64 child_rows() const { return shape_.length() >> shape_.a >> 3; }
  u64 run_points() const {
    const u64 size = std::max(kRunPoints, (shape_.row.points() + kMaxRuns - 1) / kMaxRuns);
    return (size + 63) / 64 * 64;
  }
  u64 runs() const { return (shape_.row.points() + run_points() - 1) / run_points(); }

  u32 join_run(const VstPlan& plan, ResidueForm form, const double* F, u64 first, ResidueWindow window,
               ResidueJoinRun& run) const {
    const u64 last = std::min(first + run_points(), shape_.row.points());
    run = start_residue_run(shape_.row, form, first, last, window);
    const u64 per_child = child_rows();
    for (u64 row = first / kVstRow; row < last / kVstRow; row += kTogether) {
      // Children of all sequences follow each other.
      const double* x = F + (row / per_child * shape_.stride(shape_.child_levels()) +
                             shape_.place(shape_.child_levels(), row % per_child)) *
                                shape_.row_doubles();
      for (u64 i = 0; i < kTogether; ++i)
        join_(plan.primes, x + i * shape_.row_doubles(), kVstRow, kVstRow, run);
    }
    return run.excess_bits();
  }

  [[noreturn]] static void coefficient_failed(u32 limit_bits, u32 excess_bits) {
    if (std::fegetround() != 0) notice_line("The FPU Control Word has been corrupted.", 'Y');
    throw ConvolutionFailedException(kId, "Coefficient is too large.", limit_bits, limit_bits + excess_bits);
  }

  template <class Body>
  static void for_parts(ParallelContext parallel, u64 count, Body&& body) {
    const u64 tasks = std::min<u64>(std::max<u64>(parallel.tds, 1), count);
    if (tasks <= 1) {
      if (count) body(0, count);
      return;
    }
    fork_range(parallel.parallelizer, 0, tasks,
               [&](u64 t) { body(count * t / tasks, count * (t + 1) / tasks); });
  }
  template <class Body>
  void subtrees(ParallelContext parallel, Body&& body) const {
    for_parts(parallel, shape_.row.k * shape_.children(), [&](u64 begin, u64 end) {
      for (u64 u = begin; u < end; ++u) body(static_cast<u32>(u >> shape_.a), u & (shape_.children() - 1));
    });
  }

  const VstKernels& kernels_;
  void (*join_)(const ResiduePlan&, const double*, u64, u64, ResidueJoinRun&);
  VstShape shape_;
  const VstTables* tables_;
};

void check_length(const VstShape& shape, u64 words) {
  if (words * 32 > shape.row.bits())
    throw ConvolutionTooSmallException(kId, "Convolution length is too small.", shape.row.bits(), words * 32);
}

ResidueOperand operand(Words<u32> A) { return {reinterpret_cast<const u8*>(A.ptr), 4 * A.count}; }

class VstParameters final : public Parameters, public WrappedProducts {
 public:
  VstParameters(const VstShape& shape, const VstTables* tables) : run_(shape, tables) {
    max_bits_ = shape.row.bits();
    words_ = max_bits_ / 32;
    wrapped_ = this;
    transform_size_ = run_.transform_bytes();
    scratch_size_ = run_.scratch_bytes();
  }
  void forward(void* F, Words<u32> A, void*, ParallelContext parallel) const override {
    transform(ResidueForm::kPlain, F, A, parallel);
  }
  void inverse_fsqr(void* F, Window<u32> T, void* tmp, ParallelContext parallel) const override {
    inverse_fmul(F, F, T, tmp, parallel);
  }
  void inverse_fmul(void* F, const void* G, Window<u32> T, void* tmp,
                    ParallelContext parallel) const override {
    check_length(run_.shape(), T.len);
    multiply(ResidueForm::kPlain, F, G, {T.T, T.skip, T.len}, tmp, parallel);
  }
  bool compatible(const Parameters& other) const override {
    const auto* o = dynamic_cast<const VstParameters*>(&other);
    return o && o->run_.shape() == run_.shape() && &o->run_.kernels() == &run_.kernels();
  }

  void forward_wrapped(Wrap ring, void* F, Words<u32> A, void*, ParallelContext parallel) const override {
    transform(form_of(ring), F, A, parallel);
  }
  bool pointwise_wrapped(Wrap ring, void* F, const void* G, u32* T, void* tmp,
                         ParallelContext parallel) const override {
    return multiply(form_of(ring), F, G, {T, 0, words_}, tmp, parallel);
  }

 private:
  static ResidueForm form_of(Wrap ring) {
    return ring == Wrap::cyclic ? ResidueForm::kCyclic : ResidueForm::kNegacyclic;
  }
  void transform(ResidueForm form, void* F, Words<u32> A, ParallelContext parallel) const {
    check_length(run_.shape(), A.count);
    run_.forward(run_.plan(form), static_cast<double*>(F), operand(A), parallel);
  }
  bool multiply(ResidueForm form, void* F, const void* G, ResidueWindow window, void* tmp,
                ParallelContext parallel) const {
    const VstPlan plan = run_.plan(form);
    // G is only read.
    run_.multiply(plan, static_cast<double*>(F), static_cast<double*>(const_cast<void*>(G)),
                  VstForm::transformed, parallel);
    return run_.finish(plan, form, static_cast<double*>(F), window, tmp, parallel);
  }

  VstRun run_;
};

const VstTables* find_tables(const TransformTables& tables) {
  return static_cast<const VstTables*>(tables.find(kId));
}

const VstRow& row_of(u64 bits) {
  if (bits > kMaxBits) throw LimitExceededException(kId, kMaxBits, bits);
  return find_vst_row(bits);
}
/// The rows that products of up to `bits` take.
std::span<const VstRow> rows_to(u64 bits) {
  const auto rows = vst_rows();
  return rows.first(static_cast<u64>(&row_of(bits) - rows.data()) + 1);
}

class VstAlgorithm final : public ProductAlgorithm {
 public:
  VstAlgorithm() : ProductAlgorithm(kMaxBits, kId, "VST Algorithm", "VSTv2", "VST Algorithm") {}

  u64 table_bytes(u64 bits) const override { return VstTables::bytes(rows_to(bits)); }
  void ensure_tables(TransformTables& tables, u64 bits) const override {
    if (!tables.find(kId)) tables.put(kId, std::make_unique<VstTables>());
    static_cast<VstTables*>(tables.find(kId))->grow(tables.memory(), rows_to(bits));
  }
  MultiplySizes sizes(u64 bits, u64) const override {
    const VstRun run(VstShape(row_of(bits)), nullptr);
    return {run.transform_bytes(), run.scratch_bytes()};
  }
  const Parameters& parameters_for(ParametersBox& out, const TransformTables* tables, u64 bits,
                                   u64) const override {
    return vst_parameters(out, tables, VstShape(row_of(bits)));
  }

 private:
  // Subtrees go forward, through the product and back while they are in cache.
  void product(const MultiplyContext& ctx, Window<u32> T, Words<u32> A, Words<u32> B) const override {
    const bool square = B.count == 0;
    const VstShape shape(row_of((square ? 2 * A.count : A.count + B.count) * 32));
    check_length(shape, T.len);
    const VstRun run(shape, find_tables(ctx.tables));
    const VstPlan plan = run.plan(ResidueForm::kPlain);
    LinearHeapBuffer scratch = ctx.scratch;
    double* F = scratch.cut<double>(shape.doubles());
    double* G = square ? F : scratch.cut<double>(shape.doubles());
    void* tmp = scratch.cut<u8>(run.scratch_bytes());
    run.start(plan, F, operand(A), ctx.parallel);
    if (!square) run.start(plan, G, operand(B), ctx.parallel);
    run.multiply(plan, F, G, VstForm::raw, ctx.parallel);
    run.finish(plan, ResidueForm::kPlain, F, {T.T, T.skip, T.len}, tmp, ctx.parallel);
  }
};

}  // namespace

const Parameters& vst_parameters(ParametersBox& out, const TransformTables* tables, const VstShape& shape) {
  return out.emplace<VstParameters>(shape, tables ? find_tables(*tables) : nullptr);
}

const Algorithm& vst_algorithm() {
  static const VstAlgorithm algorithm;
  return algorithm;
}

}  // namespace orl
