#include <algorithm>
#include <atomic>
#include <bit>
#include <cfenv>

#include "core/exceptions.h"
#include "core/output.h"
#include "transforms/common/product_algorithm.h"
#include "transforms/ntt/ntt.h"
#include "transforms/ntt/ntt_join.h"
#include "transforms/ntt/ntt_tables.h"

namespace orl {
namespace {

constexpr u64 kMaxBlocks = 256;  // of the join
constexpr u64 kBlockPoints = 512;

template <class R>
struct Family;
template <>
struct Family<u64> {
  static constexpr u64 kMaxBits = 0x3800000000000000;
  static constexpr const char *kId = "N64", *kName = "64-bit NTT", *kModule = "NTT64";
};
template <>
struct Family<u32> {
  static constexpr u64 kMaxBits = 0x90000000;
  static constexpr const char *kId = "N32", *kName = "32-bit NTT", *kModule = "NTT32";
};

template <class R>
[[noreturn]] void invalid_parameters() {
  throw InvalidParametersException(Family<R>::kId, "Invalid Function Parameters:   ");
}

/// One shape, and its work.
template <class R>
class NttRun {
 public:
  using Plan = NttPlan<R>;

  NttRun(const NttRow<R>& row, const NttTables<R>* tables)
      : kernels_(ntt_kernels<R>(simd::active_target())), row_(row), tables_(tables) {
    if (!ntt_row_is_sound(row)) invalid_parameters<R>();
  }

  const NttRow<R>& row() const { return row_; }
  const NttKernels<R>& kernels() const { return kernels_; }
  u64 transform_bytes() const { return LinearHeapBuffer::cut_bytes<R>(row_.P * row_.points()); }
  u64 scratch_bytes() const { return LinearHeapBuffer::cut_bytes<u8>(sizeof(NttBlockEnd) * blocks()); }

  Plan plan(NttRing ring) const {
    Plan plan{row_, ring, find_ntt_set<R>(row_.P, row_.k), {}};
    const u64 roots = plan.length() / (ring == NttRing::kNegacyclic ? 8 : 16);
    for (u32 i = 0; i < row_.P; ++i) {
      const NttPrime<R>& prime = ntt_primes<R>()[plan.set->prime[i]];
      NttModulus<R>& m = plan.modulus[i];
      m.p = static_cast<R>(prime.p);
      m.inverse = static_cast<R>(prime.word_inverse);
      m.roots = tables_ ? tables_->roots(plan.set->prime[i], roots) : nullptr;
      if (!m.roots) invalid_parameters<R>();
      // The last three levels are not split, so an inverse multiplies by M / 8.
      const u64 scale = prime.multiply(prime.power((prime.p + 1) / 2, row_.n - 3), plan.set->scale[i]);
      m.scale = prime.factor(scale);
      m.minus_scale = prime.factor(prime.p - scale);
      m.cosine = plan.set->cosine[i];
      m.sine = plan.set->sine[i];
    }
    return plan;
  }

  void forward(const Plan& plan, R* F, NttOperand a, ParallelContext parallel) const {
    start(plan, F, a, parallel);
    subtrees(plan, parallel, [&](const NttModulus<R>& m, u64 at, u64 length, u64 node) {
      kernels_.forward(m, F + at, length, node);
    });
  }
  /// F times G, both transformed; or, with `raw`, both only started.
  void multiply(const Plan& plan, R* F, R* G, bool raw, ParallelContext parallel) const {
    subtrees(plan, parallel, [&](const NttModulus<R>& m, u64 at, u64 length, u64 node) {
      if (raw) {
        kernels_.forward(m, F + at, length, node);
        if (G != F) kernels_.forward(m, G + at, length, node);
      }
      kernels_.product(m, F + at, G + at, length, node);
      kernels_.inverse(m, F + at, length, node);
    });
  }
  /// Split and the first pass.
  void start(const Plan& plan, R* F, NttOperand a, ParallelContext parallel) const {
    for_parts(parallel, plan.length() / 8,
              [&](u64 begin, u64 end) { kernels_.split(plan, F, a, 8 * begin, 8 * end); });
    columns(plan, parallel, F, kernels_.first_pass);
  }
  /// The words of a product modulo x^points - 1 that fills no more than its points.
  void finish(const Plan& plan, R* F, NttWindow window, void* tmp, ParallelContext parallel) const {
    NttBlockEnd* ends = static_cast<NttBlockEnd*>(tmp);
    const u64 size = block_points() * row_.point_bits();
    const u64 wanted = std::min(blocks(), (window.end * 32 + size - 1) / size);
    join(plan, F, row_.points() / 2, window, wanted, ends, parallel);
    resolve_ntt_carries(ends, wanted, size / 64, row_.bits() / 64, window);
  }
  /// All words of a product in the plan's ring; true when it is W^n.
  bool finish_wrapped(const Plan& plan, R* F, u32* T, void* tmp, ParallelContext parallel) const {
    NttBlockEnd* ends = static_cast<NttBlockEnd*>(tmp);
    const u64 n = row_.bits() / 32;
    join(plan, F, row_.points(), {T, 0, n}, blocks(), ends, parallel);
    return resolve_wrapped_carries(ends, blocks(), block_points() * row_.point_bits() / 64, plan.ring, T, n);
  }

 private:
  u64 block_points() const {
    const u64 size = std::max(kBlockPoints, (row_.points() + kMaxBlocks - 1) / kMaxBlocks);
    return (size + 63) / 64 * 64;
  }
  u64 blocks() const { return (row_.points() + block_points() - 1) / block_points(); }

  void join(const Plan& plan, R* F, u64 terms, NttWindow window, u64 wanted, NttBlockEnd* ends,
            ParallelContext parallel) const {
    columns(plan, parallel, F, kernels_.last_pass);
    for_parts(parallel, plan.length() / 8,
              [&](u64 begin, u64 end) { kernels_.finish(plan, F, 8 * begin, 8 * end); });
    const u64 size = block_points();
    const u32 limit = ntt_coefficient_bits(row_, terms);
    std::atomic<u64> largest{0};
    for_parts(parallel, wanted, [&](u64 begin, u64 end) {
      for (u64 b = begin; b < end; ++b) {
        const u64 found =
            join_ntt(plan, F, b * size, std::min((b + 1) * size, row_.points()), limit, window, ends[b]);
        u64 before = largest.load(std::memory_order_relaxed);
        while (found > before && !largest.compare_exchange_weak(before, found)) {
        }
      }
    });
    if (largest) coefficient_failed(limit, largest);
  }

  [[noreturn]] static void coefficient_failed(u32 limit_bits, u64 above) {
    if (std::fegetround() != 0) notice_line("The FPU Control Word has been corrupted.", 'Y');
    throw ConvolutionFailedException(Family<R>::kId, "Coefficient is too large.", limit_bits,
                                     limit_bits + static_cast<u64>(std::bit_width(above)));
  }

  template <class Body>
  static void for_parts(ParallelContext parallel, u64 count, Body&& body) {
    const u64 tasks = std::min<u64>(std::max<u64>(parallel.tds, 1), count);
    if (tasks <= 1) {
      if (count) body(0, count);
      return;
    }
    // Not count * t / tasks: that would pass 64 bits.
    const auto cut = [&](u64 t) { return count / tasks * t + count % tasks * t / tasks; };
    fork_range(parallel.parallelizer, 0, tasks, [&](u64 t) { body(cut(t), cut(t + 1)); });
  }
  void columns(const Plan& plan, ParallelContext parallel, R* F,
               void (*pass)(const NttModulus<R>&, R*, u64, u64, u64, u64)) const {
    if (!plan.divided()) return;
    const u64 sequences = u64{row_.P} * row_.k, parts = 16, width = plan.length() / kNttRadix / parts;
    for_parts(parallel, sequences * parts, [&](u64 begin, u64 end) {
      for (u64 u = begin; u < end; ++u) {
        const u64 s = u / parts, part = u % parts;
        pass(plan.modulus[s / row_.k], F + s * plan.length(), plan.length(), plan.root(), part * width,
             (part + 1) * width);
      }
    });
  }
  template <class Body>
  void subtrees(const Plan& plan, ParallelContext parallel, Body&& body) const {
    const u64 nodes = plan.divided() ? kNttRadix : 1;
    const u64 length = plan.length() / nodes;
    for_parts(parallel, u64{row_.P} * row_.k * nodes, [&](u64 begin, u64 end) {
      for (u64 u = begin; u < end; ++u)
        body(plan.modulus[u / nodes / row_.k], u * length, length, nodes * plan.root() + u % nodes);
    });
  }

  const NttKernels<R>& kernels_;
  NttRow<R> row_;
  const NttTables<R>* tables_;
};

template <class R>
void check_length(const NttRow<R>& row, u64 words) {
  if (words > row.bits() / 32)
    throw ConvolutionTooSmallException(Family<R>::kId, "Convolution length is too small.", row.bits(),
                                       words * 32);
}

NttOperand operand(Words<u32> A) { return {reinterpret_cast<const u8*>(A.ptr), 4 * A.count}; }

template <class R>
class NttParameters final : public Parameters, public WrappedProducts {
 public:
  NttParameters(const NttRow<R>& row, const NttTables<R>* tables) : run_(row, tables) {
    max_bits_ = row.bits();
    if (ntt_row_wraps(row)) {
      words_ = row.bits() / 32;
      wrapped_ = this;
    }
    transform_size_ = run_.transform_bytes();
    scratch_size_ = run_.scratch_bytes();
  }
  void forward(void* F, Words<u32> A, void*, ParallelContext parallel) const override {
    transform(NttRing::kCyclic, F, A, parallel);
  }
  void inverse_fsqr(void* F, Window<u32> T, void* tmp, ParallelContext parallel) const override {
    inverse_fmul(F, F, T, tmp, parallel);
  }
  void inverse_fmul(void* F, const void* G, Window<u32> T, void* tmp,
                    ParallelContext parallel) const override {
    check_length(run_.row(), T.len);
    const NttPlan<R> plan = run_.plan(NttRing::kCyclic);
    multiply(plan, F, G, parallel);
    run_.finish(plan, static_cast<R*>(F), {T.T, T.skip, T.len}, tmp, parallel);
  }
  void forward_wrapped(Wrap ring, void* F, Words<u32> A, void*, ParallelContext parallel) const override {
    transform(ring_of(ring), F, A, parallel);
  }
  bool pointwise_wrapped(Wrap ring, void* F, const void* G, u32* T, void* tmp,
                         ParallelContext parallel) const override {
    const NttPlan<R> plan = run_.plan(ring_of(ring));
    multiply(plan, F, G, parallel);
    return run_.finish_wrapped(plan, static_cast<R*>(F), T, tmp, parallel);
  }
  bool compatible(const Parameters& other) const override {
    const auto* o = dynamic_cast<const NttParameters*>(&other);
    return o && o->run_.row().P == run_.row().P && o->run_.row().k == run_.row().k &&
           o->run_.row().n == run_.row().n && &o->run_.kernels() == &run_.kernels();
  }

 private:
  static NttRing ring_of(Wrap ring) { return ring == Wrap::cyclic ? NttRing::kCyclic : NttRing::kNegacyclic; }
  void transform(NttRing ring, void* F, Words<u32> A, ParallelContext parallel) const {
    check_length(run_.row(), A.count);
    run_.forward(run_.plan(ring), static_cast<R*>(F), operand(A), parallel);
  }
  void multiply(const NttPlan<R>& plan, void* F, const void* G, ParallelContext parallel) const {
    // G is only read.
    run_.multiply(plan, static_cast<R*>(F), static_cast<R*>(const_cast<void*>(G)), false, parallel);
  }
  NttRun<R> run_;
};

template <class R>
const NttTables<R>* find_tables(const TransformTables& tables) {
  return static_cast<const NttTables<R>*>(tables.find(Family<R>::kId));
}

template <class R>
const NttRow<R>& row_of(u64 bits) {
  const NttRow<R>* row = find_ntt_row<R>(bits);
  if (!row) throw LimitExceededException(Family<R>::kId, Family<R>::kMaxBits, bits);
  return *row;
}
/// The rows that products of up to `bits` take.
template <class R>
std::span<const NttRow<R>> rows_to(u64 bits) {
  const auto rows = ntt_rows<R>();
  return rows.first(static_cast<u64>(&row_of<R>(bits) - rows.data()) + 1);
}

template <class R>
class NttAlgorithm final : public ProductAlgorithm {
 public:
  using F = Family<R>;
  NttAlgorithm() : ProductAlgorithm(F::kMaxBits, F::kId, F::kName, F::kModule, F::kName) {}

  u64 table_bytes(u64 bits) const override { return NttTables<R>::bytes(rows_to<R>(bits)); }
  void ensure_tables(TransformTables& tables, u64 bits) const override {
    if (!tables.find(F::kId)) tables.put(F::kId, std::make_unique<NttTables<R>>());
    static_cast<NttTables<R>*>(tables.find(F::kId))->grow(tables.memory(), rows_to<R>(bits));
  }
  MultiplySizes sizes(u64 bits, u64) const override {
    const NttRun<R> run(row_of<R>(bits), nullptr);
    return {run.transform_bytes(), run.scratch_bytes()};
  }
  const Parameters& parameters_for(ParametersBox& out, const TransformTables* tables, u64 bits,
                                   u64) const override {
    return ntt_parameters(out, tables, row_of<R>(bits));
  }

 private:
  // Subtrees go forward, through the product and back while they are in cache.
  void product(const MultiplyContext& ctx, Window<u32> T, Words<u32> A, Words<u32> B) const override {
    const bool square = B.count == 0;
    const NttRow<R>& row = row_of<R>((square ? 2 * A.count : A.count + B.count) * 32);
    check_length(row, T.len);
    const NttRun<R> run(row, find_tables<R>(ctx.tables));
    const NttPlan<R> plan = run.plan(NttRing::kCyclic);
    LinearHeapBuffer scratch = ctx.scratch;
    R* x = scratch.cut<R>(row.P * row.points());
    R* y = square ? x : scratch.cut<R>(row.P * row.points());
    void* tmp = scratch.cut<u8>(run.scratch_bytes());
    run.start(plan, x, operand(A), ctx.parallel);
    if (!square) run.start(plan, y, operand(B), ctx.parallel);
    run.multiply(plan, x, y, true, ctx.parallel);
    run.finish(plan, x, {T.T, T.skip, T.len}, tmp, ctx.parallel);
  }
};

}  // namespace

template <class R>
const Parameters& ntt_parameters(ParametersBox& out, const TransformTables* tables, const NttRow<R>& row) {
  return out.emplace<NttParameters<R>>(row, tables ? find_tables<R>(*tables) : nullptr);
}
template const Parameters& ntt_parameters(ParametersBox&, const TransformTables*, const NttRow<u64>&);
template const Parameters& ntt_parameters(ParametersBox&, const TransformTables*, const NttRow<u32>&);

const Algorithm& n64_algorithm() {
  static const NttAlgorithm<u64> algorithm;
  return algorithm;
}
const Algorithm& n32_algorithm() {
  static const NttAlgorithm<u32> algorithm;
  return algorithm;
}

}  // namespace orl
