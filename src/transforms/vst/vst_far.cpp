#include "transforms/vst/vst_far.h"

#include <algorithm>
#include <cstring>

#include "core/exceptions.h"
#include "transforms/c17/residue_far_join.h"
#include "transforms/c17/residue_far_kernels.h"
#include "transforms/vst/vst_far_kernels.h"

namespace orl {
namespace {

constexpr const char* kId = "VST";
constexpr u64 kPackedBytes = 6;   ///< of a residue
constexpr u64 kRowsTogether = 8;  ///< rows of eight points that stand together in every shape
constexpr u64 kPiecePoints = kRowsTogether * kVstRow;
static_assert(kFarUnit % kPiecePoints == 0);

VstRow row_of(const FarShape& shape, u32 levels) {
  return {static_cast<u8>(shape.P), static_cast<u8>(levels ? 1 : shape.k), static_cast<u8>(shape.n - levels)};
}
u64 row_doubles(const FarShape& shape) { return u64{kVstRow} * shape.P; }
u64 piece_bytes(const FarShape& shape) { return sizeof(double) * row_doubles(shape) * kRowsTogether; }

class VstFar final : public FarTransform {
 public:
  VstFar(const FarShape& shape, ProductRing ring, LinearHeapBuffer& memory)
      : FarTransform(shape, ring),
        kernels_(vst_kernels(simd::active_target())),
        vst_(vst_far_kernels(simd::active_target())),
        join_kernel_(residue_kernels(simd::active_target()).join),
        residues_(residue_far_kernels(simd::active_target())),
        plan_(vst_plan(VstShape(row_of(shape, 0)), ring)),
        join_(kId, plan_.primes) {
    const VstRow row = row_of(shape, 0);
    tables_.grow(memory, {&row, 1});
    for (u32 r = 0; r < shape.P; ++r) plan_.roots[r] = *tables_.roots(plan_.primes.set->prime[r], shape.n);
  }

  void split(const FarBlock& block, OperandBytes a, std::span<const FarPlace> to,
             FarWork work) const override {
    const u64 bytes = sizeof(double) * row_doubles(shape_) / kVstRow;  // of a point
    ResidueFarJoin::for_units(block, work, piece_bytes(shape_), [&](u64, u64, u64 begin, u64 end, u8* own) {
      for (u64 at = begin; at < end; at += kPiecePoints) {
        const u64 count = std::min(kPiecePoints, end - at);
        double* const tile = reinterpret_cast<double*>(own);
        vst_.split(plan_, operand_from(a, (at - block.begin) * point_bytes()), count, tile);
        if (to[0].packed)
          pack_rows(tile, count, to[0].packed + packed_bytes() * (at - block.begin));
        else if (to[0].node)
          std::memcpy(static_cast<double*>(to[0].node) + place(plan_.shape, at), tile, bytes * count);
      }
    });
  }
  void join(const FarBlock& block, std::span<const FarPlace> from, u64* words, FarCarry& carry,
            FarWork work) const override {
    join_.block(block, words, carry, work, piece_bytes(shape_),
                [&](u64 begin, u64 end, ResidueJoinRun& run, u8* own) {
                  for (u64 at = begin; at < end; at += kPiecePoints) {
                    const u64 count = std::min(kPiecePoints, end - at);
                    const double* x = static_cast<const double*>(from[0].node);
                    if (from[0].packed) {
                      unpack_rows(from[0].packed + packed_bytes() * (at - block.begin), count,
                                  reinterpret_cast<double*>(own));
                      x = reinterpret_cast<const double*>(own);
                    } else {
                      x += place(plan_.shape, at);
                    }
                    join_rows(x, count, run);
                  }
                });
  }

  void start(u32, const FarNode& node, void* F, FarWork work) const override {
    const VstPlan plan = plan_of(node);
    for_parts(work.parallel, child_rows(plan.shape),
              [&](u64 begin, u64 end) { vst_.start(plan, static_cast<double*>(F), begin, end); });
  }
  void forward(u32, const FarNode& node, void* F, FarWork work) const override {
    const VstPlan plan = plan_of(node);
    subtrees(plan.shape, work,
             [&](u32 j, u64 child) { kernels_.forward(plan, static_cast<double*>(F), j, child); });
  }
  void multiply(u32, const FarNode& node, void* F, void* G, OperandState state, FarWork work) const override {
    const VstPlan plan = plan_of(node);
    subtrees(plan.shape, work, [&](u32 j, u64 child) {
      kernels_.product(plan, static_cast<double*>(F), static_cast<double*>(G), state, j, child);
    });
  }
  void finish(u32, const FarNode& node, void* F, FarWork work) const override {
    const VstPlan plan = plan_of(node);
    for_parts(work.parallel, child_rows(plan.shape),
              [&](u64 begin, u64 end) { kernels_.last_stage(plan, static_cast<double*>(F), begin, end); });
  }

  void pack(u32, const FarNode& node, const void* F, const FarBlock& block, u8* packed,
            ParallelContext parallel) const override {
    for_pieces(node, block, parallel, [&](u64 place, u64 at, u64 count) {
      pack_rows(static_cast<const double*>(F) + place, count, packed + packed_bytes() * (at - block.begin));
    });
  }
  void unpack(u32, const FarNode& node, void* F, const FarBlock& block, const u8* packed,
              ParallelContext parallel) const override {
    for_pieces(node, block, parallel, [&](u64 place, u64 at, u64 count) {
      unpack_rows(packed + packed_bytes() * (at - block.begin), count, static_cast<double*>(F) + place);
    });
  }

  void split_stripe(u32, const FarStripe& stripe, std::span<const OperandBytes> rows, void* X,
                    FarWork work) const override {
    for_parts(work.parallel, stripe.rows(shape_), [&](u64 begin, u64 end) {
      for (u64 j = begin; j < end; ++j) vst_.split(plan_, rows[j], stripe.width, row(X, stripe, j));
    });
  }
  void columns(u32, const FarStripe& stripe, void* X, FarWork work) const override {
    for_parts(work.parallel, stripe.width / kVstRow,
              [&](u64 begin, u64 end) { vst_.columns(plan_, rows_of(stripe, X), begin, end); });
  }
  void columns_back(u32, const FarStripe& stripe, void* X, FarWork work) const override {
    for_parts(work.parallel, stripe.width / kVstRow,
              [&](u64 begin, u64 end) { vst_.columns_back(plan_, rows_of(stripe, X), begin, end); });
  }
  void pack_stripe(u32, const FarStripe& stripe, const void* X, u8* packed, u64 row_bytes,
                   ParallelContext parallel) const override {
    for_parts(parallel, stripe.rows(shape_), [&](u64 begin, u64 end) {
      for (u64 j = begin; j < end; ++j) pack_rows(row(X, stripe, j), stripe.width, packed + j * row_bytes);
    });
  }
  void unpack_stripe(u32, const FarStripe& stripe, void* X, const u8* packed, u64 row_bytes,
                     ParallelContext parallel) const override {
    for_parts(parallel, stripe.rows(shape_), [&](u64 begin, u64 end) {
      for (u64 j = begin; j < end; ++j) unpack_rows(packed + j * row_bytes, stripe.width, row(X, stripe, j));
    });
  }

  void start_runs(u32 levels, void* runs) const override { join_.start_runs(levels, runs); }
  void join_stripe(const FarStripe& stripe, std::span<void* const> X, std::span<u64* const> words, void* runs,
                   FarWork work) const override {
    join_.stripe(stripe.width, words, runs, work, piece_bytes(shape_), [&](u64 j, ResidueJoinRun& run, u8*) {
      join_rows(row(X[0], stripe, j), stripe.width, run);
    });
  }
  FarCarry run_carry(u32, const void* runs, u64 row) const override { return join_.run_carry(runs, row); }

  static u64 row_stride(const FarShape& shape, const FarStripe& stripe) {
    return stripe.width * shape.P + row_doubles(shape);
  }

 private:
  u64 point_bytes() const { return shape_.P * u64{3} - 3; }
  u64 packed_bytes() const { return kPackedBytes * shape_.P; }
  /// A node as a shape of its own: with the primes and roots of the whole and its place in the tree.
  VstPlan plan_of(const FarNode& node) const {
    VstPlan plan = plan_;
    if (node.levels == 0) return plan;
    plan.shape = VstShape(row_of(shape_, node.levels));
    plan.root = static_cast<u32>((u64{plan_.root} << node.levels) + node.index);
    const u8* const from = plan_.exponent[node.sequence] + node.levels;
    std::copy(from, plan_.exponent[node.sequence] + shape_.n, plan.exponent[0]);
    return plan;
  }
  static u64 child_rows(const VstShape& shape) { return shape.length() >> shape.a >> 3; }
  /// Where the row of a natural position stands; children of all sequences follow each other.
  static u64 place(const VstShape& shape, u64 position) {
    const u64 index = position / kVstRow, rows = child_rows(shape);
    return (index / rows * shape.stride(shape.child_levels()) +
            shape.place(shape.child_levels(), index % rows)) *
           shape.row_doubles();
  }
  template <class Body>
  void subtrees(const VstShape& shape, FarWork work, Body&& body) const {
    for_parts(work.parallel, shape.row.k * shape.children(), [&](u64 begin, u64 end) {
      for (u64 u = begin; u < end; ++u) body(static_cast<u32>(u >> shape.a), u & (shape.children() - 1));
    });
  }
  template <class Body>
  void for_pieces(const FarNode& node, const FarBlock& block, ParallelContext parallel, Body&& body) const {
    const VstShape shape(row_of(shape_, node.levels));
    for_parts(parallel, (block.points() + kPiecePoints - 1) / kPiecePoints, [&](u64 begin, u64 end) {
      for (u64 u = begin; u < end; ++u) {
        const u64 at = block.begin + u * kPiecePoints;
        body(place(shape, at), at, std::min(kPiecePoints, block.end - at));
      }
    });
  }

  // Rows that stand together.
  void pack_rows(const double* x, u64 points, u8* packed) const {
    for (u64 i = 0; i < points; i += kVstRow)
      for (u32 r = 0; r < shape_.P; ++r, x += kVstRow, packed += kPackedBytes * kVstRow)
        residues_.pack(plan_.primes.modulus[r], x, kVstRow, packed);
  }
  void unpack_rows(const u8* packed, u64 points, double* x) const {
    residues_.unpack(packed, points * shape_.P, x);
  }
  void join_rows(const double* x, u64 points, ResidueJoinRun& run) const {
    for (u64 i = 0; i < points; i += kVstRow, x += row_doubles(shape_))
      join_kernel_(plan_.primes, x, kVstRow, kVstRow, run);
  }

  double* row(void* X, const FarStripe& stripe, u64 j) const {
    return static_cast<double*>(X) + j * row_stride(shape_, stripe);
  }
  const double* row(const void* X, const FarStripe& stripe, u64 j) const {
    return static_cast<const double*>(X) + j * row_stride(shape_, stripe);
  }
  VstStripe rows_of(const FarStripe& stripe, void* X) const {
    const FarNode& node = stripe.node;
    const u64 stride = row_stride(shape_, stripe);
    return {static_cast<double*>(X),
            stride,
            stride << stripe.levels,
            node.levels ? 1 : shape_.k,
            node.sequence,
            stripe.levels,
            node.levels,
            (u64{plan_.root} << node.levels) + node.index};
  }

  const VstKernels& kernels_;
  const VstFarKernels& vst_;
  void (*join_kernel_)(const ResiduePlan&, const double*, u64, u64, ResidueJoinRun&);
  const ResidueFarKernels& residues_;
  VstTables tables_;
  VstPlan plan_;
  ResidueFarJoin join_;
};

class VstFarFamily final : public FarFamily {
 public:
  const char* id() const override { return kId; }
  u64 max_bits() const override { return 0x12C0000000000; }
  u32 least_primes() const override { return 4; }
  u32 most_primes() const override { return kMaxResiduePrimes; }
  bool holds(const FarShape& shape) const override {
    return shape.P >= 4 && shape.P <= kMaxResiduePrimes && shape.k % 2 == 1 && shape.k <= 7 &&
           shape.n >= kFarLeastRowLevels && shape.n < 64 && vst_row_holds(row_of(shape, 0));
  }
  u64 point_bytes(const FarShape& shape) const override { return 3 * (u64{shape.P} - 1); }
  u32 channels(const FarShape&) const override { return 1; }
  u64 packed_bytes(const FarShape& shape) const override { return kPackedBytes * shape.P; }
  u64 table_bytes(const FarShape& shape) const override {
    const VstRow row = row_of(shape, 0);
    return VstTables::bytes({&row, 1});
  }
  u64 node_bytes(const FarShape& shape, u32 levels) const override {
    return LinearHeapBuffer::cut_bytes<double>(VstShape(row_of(shape, levels)).doubles());
  }
  u64 stripe_bytes(const FarShape& shape, const FarStripe& stripe) const override {
    return LinearHeapBuffer::cut_bytes<double>(stripe.rows(shape) * VstFar::row_stride(shape, stripe));
  }
  u64 runs_bytes(const FarShape& shape, u32 levels) const override {
    return ResidueFarJoin::runs_bytes(shape.k, levels);
  }
  u64 node_scratch_bytes(const FarShape& shape, u32, u64 tasks) const override {
    return tasks * ResidueFarJoin::task_bytes(piece_bytes(shape));
  }
  u64 stripe_scratch_bytes(const FarShape& shape, u32, u64 tasks) const override {
    return tasks * LinearHeapBuffer::cut_bytes<u8>(piece_bytes(shape));
  }
  double cost(const FarShape& shape) const override {
    // As tools/make_residue_tables.py weighs rows.
    return static_cast<double>(shape.P) * static_cast<double>(shape.points()) *
           (shape.n + 1.75 * (shape.k - 1) + 8 + 1.2 * shape.P);
  }
  std::unique_ptr<FarTransform> make(const FarShape& shape, ProductRing ring,
                                     LinearHeapBuffer& memory) const override {
    if (!holds(shape)) throw InvalidParametersException(kId, "Invalid Function Parameters:   ");
    return std::make_unique<VstFar>(shape, ring, memory);
  }
};

}  // namespace

const FarFamily& vst_far_family() {
  static const VstFarFamily family;
  return family;
}

}  // namespace orl
