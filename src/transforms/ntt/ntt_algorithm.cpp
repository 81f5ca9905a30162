#include <algorithm>
#include <bit>

#include "core/exceptions.h"
#include "transforms/common/coefficient_check.h"
#include "transforms/common/transform_driver.h"
#include "transforms/ntt/ntt.h"
#include "transforms/ntt/ntt_join.h"
#include "transforms/ntt/ntt_tables.h"

namespace orl {
namespace {

constexpr u64 kMaxBlocks = 256;  // of the join
constexpr u64 kBlockPoints = 512;

template <class R>
struct NttNames;
template <>
struct NttNames<u64> {
  static constexpr u64 kMaxBits = 0x3800000000000000;
  static constexpr const char *kId = "N64", *kName = "64-bit NTT", *kModule = "NTT64";
};
template <>
struct NttNames<u32> {
  static constexpr u64 kMaxBits = 0x90000000;
  static constexpr const char *kId = "N32", *kName = "32-bit NTT", *kModule = "NTT32";
};

template <class R>
[[noreturn]] void invalid_parameters() {
  throw InvalidParametersException(NttNames<R>::kId, "Invalid Function Parameters:   ");
}

/// One shape, and its work.
template <class R>
class NttRun {
 public:
  using Plan = NttPlan<R>;

  NttRun(const NttRow<R>& row, const NttTables<R>* tables, u64)
      : kernels_(ntt_kernels<R>(simd::active_target())), row_(row), tables_(tables) {
    if (!ntt_row_is_sound(row)) invalid_parameters<R>();
  }

  const NttRow<R>& shape() const { return row_; }
  bool same(const NttRun& o) const {
    return o.row_.P == row_.P && o.row_.k == row_.k && o.row_.n == row_.n && &o.kernels_ == &kernels_;
  }
  bool wraps() const { return ntt_row_wraps(row_); }
  u64 transform_bytes() const { return LinearHeapBuffer::cut_bytes<R>(row_.P * row_.points()); }
  u64 scratch_bytes() const { return LinearHeapBuffer::cut_bytes<u8>(sizeof(NttBlockEnd) * blocks()); }

  Plan plan(ProductRing ring) const {
    Plan plan = ntt_plan(row_, ring);
    const u64 roots = plan.length() / (plan.negacyclic() ? 8 : 16);
    for (u32 i = 0; i < row_.P; ++i) {
      plan.modulus[i].roots = tables_ ? tables_->roots(plan.set->prime[i], roots) : nullptr;
      if (!plan.modulus[i].roots) invalid_parameters<R>();
    }
    return plan;
  }

  void start(const Plan& plan, R* F, OperandBytes a, TransformWork work) const {
    for_parts(work.parallel, plan.length() / 8,
              [&](u64 begin, u64 end) { kernels_.split(plan, F, a, 8 * begin, 8 * end); });
    columns(plan, work, F, kernels_.first_pass);
  }
  void forward(const Plan& plan, R* F, TransformWork work) const {
    subtrees(plan, work, [&](const NttModulus<R>& m, u64 at, u64 length, u64 node) {
      kernels_.forward(m, F + at, length, node);
    });
  }
  void multiply(const Plan& plan, R* F, R* G, OperandState state, TransformWork work) const {
    subtrees(plan, work, [&](const NttModulus<R>& m, u64 at, u64 length, u64 node) {
      if (state == OperandState::kStarted) {
        kernels_.forward(m, F + at, length, node);
        if (G != F) kernels_.forward(m, G + at, length, node);
      }
      kernels_.product(m, F + at, G + at, length, node);
      kernels_.inverse(m, F + at, length, node);
    });
  }
  bool finish(const Plan& plan, R* F, WordWindow window, TransformWork work) const {
    NttBlockEnd* ends = static_cast<NttBlockEnd*>(work.tmp);
    const u64 size = block_points() * row_.point_bits();
    if (plan.ring != ProductRing::kPlain) {
      join(plan, F, window, blocks(), work);
      return resolve_wrapped_carries(ends, blocks(), size / 64, plan.ring, window.target, window.end);
    }
    const u64 wanted = std::min(blocks(), (window.end * 32 + size - 1) / size);
    join(plan, F, window, wanted, work);
    resolve_ntt_carries(ends, wanted, size / 64, row_.bits() / 64, window);
    return false;
  }

 private:
  u64 block_points() const {
    const u64 size = std::max(kBlockPoints, (row_.points() + kMaxBlocks - 1) / kMaxBlocks);
    return (size + 63) / 64 * 64;
  }
  u64 blocks() const { return (row_.points() + block_points() - 1) / block_points(); }

  void join(const Plan& plan, R* F, WordWindow window, u64 wanted, TransformWork work) const {
    columns(plan, work, F, kernels_.last_pass);
    for_parts(work.parallel, plan.length() / 8,
              [&](u64 begin, u64 end) { kernels_.finish(plan, F, 8 * begin, 8 * end); });
    NttBlockEnd* ends = static_cast<NttBlockEnd*>(work.tmp);
    const u64 size = block_points();
    const u64 terms = plan.ring == ProductRing::kPlain ? row_.points() / 2 : row_.points();
    const u32 limit = ntt_coefficient_bits(row_, terms);
    for_parts(work.parallel, wanted, [&](u64 begin, u64 end) {
      for (u64 b = begin; b < end; ++b)
        ends[b].above =
            join_ntt(plan, F, b * size, std::min((b + 1) * size, row_.points()), limit, window, ends[b]);
    });
    u64 above = 0;
    for (u64 b = 0; b < wanted; ++b) above |= ends[b].above;
    if (above) coefficient_failed(NttNames<R>::kId, limit, limit + static_cast<u64>(std::bit_width(above)));
  }

  void columns(const Plan& plan, TransformWork work, R* F,
               void (*pass)(const NttModulus<R>&, R*, u64, u64, u64, u64)) const {
    if (!plan.divided()) return;
    const u64 sequences = u64{row_.P} * row_.k, parts = 16, width = plan.length() / kNttRadix / parts;
    for_parts(work.parallel, sequences * parts, [&](u64 begin, u64 end) {
      for (u64 u = begin; u < end; ++u) {
        const u64 s = u / parts, part = u % parts;
        pass(plan.modulus[s / row_.k], F + s * plan.length(), plan.length(), plan.root(), part * width,
             (part + 1) * width);
      }
    });
  }
  template <class Body>
  void subtrees(const Plan& plan, TransformWork work, Body&& body) const {
    const u64 nodes = plan.divided() ? kNttRadix : 1;
    const u64 length = plan.length() / nodes;
    for_parts(work.parallel, u64{row_.P} * row_.k * nodes, [&](u64 begin, u64 end) {
      for (u64 u = begin; u < end; ++u)
        body(plan.modulus[u / nodes / row_.k], u * length, length, nodes * plan.root() + u % nodes);
    });
  }

  const NttKernels<R>& kernels_;
  NttRow<R> row_;
  const NttTables<R>* tables_;
};

template <class R>
struct Ntt : NttNames<R> {
  static constexpr const char* kVariant = NttNames<R>::kName;
  using Point = R;
  using Shape = NttRow<R>;
  using Tables = NttTables<R>;
  using Run = NttRun<R>;
  static std::span<const NttRow<R>> rows() { return ntt_rows<R>(); }
  static const NttRow<R>& shape(const NttRow<R>& row) { return row; }
};

}  // namespace

template <class R>
NttPlan<R> ntt_plan(const NttRow<R>& row, ProductRing ring) {
  NttPlan<R> plan{row, ring, find_ntt_set<R>(row.P, row.k), {}};
  for (u32 i = 0; i < row.P; ++i) {
    const NttPrime<R>& prime = ntt_primes<R>()[plan.set->prime[i]];
    NttModulus<R>& m = plan.modulus[i];
    m.p = static_cast<R>(prime.p);
    m.inverse = static_cast<R>(prime.word_inverse);
    m.roots = nullptr;
    // The last three levels are not split, so an inverse multiplies by M / 8.
    const u64 scale = prime.multiply(prime.power((prime.p + 1) / 2, row.n - 3), plan.set->scale[i]);
    m.scale = prime.factor(scale);
    m.minus_scale = prime.factor(prime.p - scale);
    m.cosine = plan.set->cosine[i];
    m.sine = plan.set->sine[i];
  }
  return plan;
}
template NttPlan<u64> ntt_plan(const NttRow<u64>&, ProductRing);

template <class R>
const Parameters& ntt_parameters(ParametersBox& out, const TransformTables* tables, const NttRow<R>& row) {
  return out.emplace<TransformParameters<Ntt<R>>>(row, find_tables<Ntt<R>>(tables), u64{1});
}
template const Parameters& ntt_parameters(ParametersBox&, const TransformTables*, const NttRow<u64>&);
template const Parameters& ntt_parameters(ParametersBox&, const TransformTables*, const NttRow<u32>&);

const Algorithm& n64_algorithm() {
  static const TransformAlgorithm<Ntt<u64>> algorithm;
  return algorithm;
}
const Algorithm& n32_algorithm() {
  static const TransformAlgorithm<Ntt<u32>> algorithm;
  return algorithm;
}

}  // namespace orl
