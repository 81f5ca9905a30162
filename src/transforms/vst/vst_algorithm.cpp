#include <algorithm>

#include "core/exceptions.h"
#include "transforms/common/transform_driver.h"
#include "transforms/vst/vst.h"
#include "transforms/vst/vst_kernels.h"

namespace orl {
namespace {

constexpr const char* kId = "VST";
constexpr u64 kMaxRuns = 256;  // of the join
constexpr u64 kRunPoints = 512;
constexpr u64 kTogether = 8;  // rows that stand together in every shape

/// One shape, and its work.
class VstRun {
 public:
  using Plan = VstPlan;

  VstRun(const VstShape& shape, const VstTables* tables, u64)
      : kernels_(vst_kernels(simd::active_target())),
        join_(residue_kernels(simd::active_target()).join),
        shape_(shape),
        tables_(tables) {}

  const VstShape& shape() const { return shape_; }
  bool same(const VstRun& o) const { return o.shape_ == shape_ && &o.kernels_ == &kernels_; }
  bool wraps() const { return true; }
  u64 transform_bytes() const { return LinearHeapBuffer::cut_bytes<double>(shape_.doubles()); }
  u64 scratch_bytes() const { return LinearHeapBuffer::cut_bytes<u8>(sizeof(ResidueJoinRun) * runs()); }

  VstPlan plan(ProductRing ring) const {
    VstPlan plan = vst_plan(shape_, ring);
    for (u32 i = 0; i < shape_.row.P; ++i) {
      const VstRoots* roots = tables_ ? tables_->roots(plan.primes.set->prime[i], shape_.row.n) : nullptr;
      if (!roots) throw InvalidParametersException(kId, "Invalid Function Parameters:   ");
      plan.roots[i] = *roots;
    }
    return plan;
  }

  void start(const VstPlan& plan, double* F, OperandBytes a, TransformWork work) const {
    for_parts(work.parallel, child_rows(),
              [&](u64 begin, u64 end) { kernels_.first_stage(plan, F, a, begin, end); });
  }
  void forward(const VstPlan& plan, double* F, TransformWork work) const {
    subtrees(work, [&](u32 j, u64 child) { kernels_.forward(plan, F, j, child); });
  }
  void multiply(const VstPlan& plan, double* F, double* G, OperandState state, TransformWork work) const {
    subtrees(work, [&](u32 j, u64 child) { kernels_.product(plan, F, G, state, j, child); });
  }
  bool finish(const VstPlan& plan, double* F, WordWindow window, TransformWork work) const {
    for_parts(work.parallel, child_rows(),
              [&](u64 begin, u64 end) { kernels_.last_stage(plan, F, begin, end); });
    ResidueJoinRun* run = static_cast<ResidueJoinRun*>(work.tmp);
    const u64 size = run_points(), bits = size * shape_.row.point_bits();
    const u64 wanted = std::min(runs(), (window.end * 32 + bits - 1) / bits);
    for_parts(work.parallel, wanted, [&](u64 begin, u64 end) {
      for (u64 b = begin; b < end; ++b) join_run(plan, F, b * size, window, run[b]);
    });
    check_residue_runs(kId, shape_.row, plan.primes.ring, run, wanted);
    return resolve_residue_runs(shape_.row, plan.primes.ring, run, wanted);
  }

 private:
  u64 child_rows() const { return shape_.length() >> shape_.a >> 3; }
  u64 run_points() const {
    const u64 size = std::max(kRunPoints, (shape_.row.points() + kMaxRuns - 1) / kMaxRuns);
    return (size + 63) / 64 * 64;
  }
  u64 runs() const { return (shape_.row.points() + run_points() - 1) / run_points(); }

  void join_run(const VstPlan& plan, const double* F, u64 first, WordWindow window,
                ResidueJoinRun& run) const {
    const u64 last = std::min(first + run_points(), shape_.row.points());
    run = start_residue_run(shape_.row, plan.primes.ring, first, last, window);
    const u64 per_child = child_rows();
    for (u64 row = first / kVstRow; row < last / kVstRow; row += kTogether) {
      // Children of all sequences follow each other.
      const double* x = F + (row / per_child * shape_.stride(shape_.child_levels()) +
                             shape_.place(shape_.child_levels(), row % per_child)) *
                                shape_.row_doubles();
      for (u64 i = 0; i < kTogether; ++i)
        join_(plan.primes, x + i * shape_.row_doubles(), kVstRow, kVstRow, run);
    }
  }
  template <class Body>
  void subtrees(TransformWork work, Body&& body) const {
    for_parts(work.parallel, shape_.row.k * shape_.children(), [&](u64 begin, u64 end) {
      for (u64 u = begin; u < end; ++u) body(static_cast<u32>(u >> shape_.a), u & (shape_.children() - 1));
    });
  }

  const VstKernels& kernels_;
  void (*join_)(const ResiduePlan&, const double*, u64, u64, ResidueJoinRun&);
  VstShape shape_;
  const VstTables* tables_;
};

struct Vst {
  static constexpr const char *kId = orl::kId, *kName = "VST Algorithm", *kModule = "VSTv2",
                              *kVariant = "VST Algorithm";
  static constexpr u64 kMaxBits = 0x12C0000000000;
  using Point = double;
  using Shape = VstShape;
  using Tables = VstTables;
  using Run = VstRun;
  static std::span<const VstRow> rows() { return vst_rows(); }
  static VstShape shape(const VstRow& row) { return VstShape(row); }
};

}  // namespace

VstPlan vst_plan(const VstShape& shape, ProductRing ring) {
  const ResidueRow& row = shape.row;
  VstPlan plan{shape, {}, ring == ProductRing::kNegacyclic ? 1u : 0u, {}, {}};
  plan.primes.row = row;
  plan.primes.ring = ring;
  plan.primes.set = &residue_set(row);
  for (u32 i = 0; i < row.P; ++i) {
    const ResiduePrime& prime = residue_primes()[plan.primes.set->prime[i]];
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

const Parameters& vst_parameters(ParametersBox& out, const TransformTables* tables, VstShape shape) {
  return out.emplace<TransformParameters<Vst>>(shape, find_tables<Vst>(tables), u64{1});
}

const Algorithm& vst_algorithm() {
  static const TransformAlgorithm<Vst> algorithm;
  return algorithm;
}

}  // namespace orl
