#include "transforms/c17/residue_far.h"

#include <algorithm>
#include <cstring>

#include "core/exceptions.h"
#include "transforms/c17/residue_far_join.h"
#include "transforms/c17/residue_far_kernels.h"
#include "transforms/c17/residue_tables.h"

namespace orl {
namespace {

constexpr u64 kPackedBytes = 6;

ResidueRow row_of(const FarShape& shape) {
  return {static_cast<u8>(shape.P), static_cast<u8>(shape.k), static_cast<u8>(shape.n)};
}

/// How a node lies in memory: as the sequences of one prime of a shape do.
struct Tree {
  ResidueRow row;  ///< P is 1
  u32 levels;      ///< of the first stage

  Tree(const FarShape& shape, u32 above)
      : row{1, static_cast<u8>(above ? 1 : shape.k), static_cast<u8>(shape.n - above)},
        levels(residue_stage_levels(row.n)) {}

  u64 rows() const { return u64{1} << levels; }
  u64 columns() const { return u64{1} << (row.n - levels); }
  u64 stride() const { return residue_subtree_stride(row); }
  u64 sequence_stride() const { return rows() * stride(); }
  u64 bytes() const { return LinearHeapBuffer::cut_bytes<double>(residue_doubles(row)); }

  /// Calls body(place, at, count) for points [at, at + count), which stand together, of [begin, end).
  template <class Body>
  void for_pieces(u64 begin, u64 end, Body&& body) const {
    for (u64 at = begin, count; at < end; at += count) {
      const u64 column = at & (columns() - 1);
      count = std::min(end - at, columns() - column);
      body(at / columns() * stride() + column, at, count);
    }
  }
};

/// Columns of a tile of a stripe: pieces of two cache lines or more, and a sequence's in L1.
u64 stripe_tile_columns(u32 levels) { return std::clamp<u64>(u64{2048} >> levels, 16, 128); }
u64 stripe_tile_bytes(const FarShape& shape, u32 levels) {
  const u32 most = std::min(levels, kResidueColumnLevels);
  return (sizeof(double) * shape.k * stripe_tile_columns(most)) << most;
}
u64 block_bytes(const FarShape& shape) { return sizeof(double) * shape.P * kFarTilePoints; }

u64 node_task_bytes(const FarShape& shape, u32 above) {
  const Tree tree(shape, above);
  return LinearHeapBuffer::cut_bytes<u8>(
      std::max({residue_tile_bytes(tree.row), residue_roots_bytes(tree.columns()), block_bytes(shape)}));
}
u64 stripe_task_bytes(const FarShape& shape, u32 levels) {
  return LinearHeapBuffer::cut_bytes<u8>(std::max(stripe_tile_bytes(shape, levels), block_bytes(shape)));
}

class ResidueFar final : public FarTransform {
 public:
  ResidueFar(const FarShape& shape, ProductRing ring, LinearHeapBuffer& memory)
      : FarTransform(shape, ring),
        kernels_(residue_kernels(simd::active_target())),
        far_(residue_far_kernels(simd::active_target())),
        tables_(tables_of(shape, memory)),
        plan_(residue_plan(row_of(shape), ring, &tables_)),
        join_("C17", plan_) {}

  void split(const FarBlock& block, OperandBytes a, std::span<const FarPlace> to,
             FarWork work) const override {
    u32 first = shape_.P, last = 0;
    for (u32 r = 0; r < shape_.P; ++r)
      if (to[r].node || to[r].packed) first = std::min(first, r), last = r + 1;
    if (first >= last) return;
    const Tree tree(shape_, 0);
    ResidueFarJoin::for_units(block, work, block_bytes(shape_), [&](u64, u64, u64 begin, u64 end, u8* own) {
      double* const tile = reinterpret_cast<double*>(own);
      for (u64 at = begin; at < end; at += kFarTilePoints) {
        const u64 count = std::min(kFarTilePoints, end - at);
        far_.split(plan_, {first, last}, operand_from(a, (at - block.begin) * point_bytes()), count, tile,
                   kFarTilePoints);
        for (u32 r = first; r < last; ++r) {
          const double* x = tile + (r - first) * kFarTilePoints;
          if (to[r].packed)
            far_.pack(plan_.modulus[r], x, count, to[r].packed + kPackedBytes * (at - block.begin));
          else if (to[r].node)
            tree.for_pieces(at, at + count, [&](u64 place, u64 i, u64 n) {
              std::memcpy(static_cast<double*>(to[r].node) + place, x + (i - at), sizeof(double) * n);
            });
        }
      }
    });
  }

  void join(const FarBlock& block, std::span<const FarPlace> from, u64* words, FarCarry& carry,
            FarWork work) const override {
    const Tree tree(shape_, 0);
    join_.block(block, words, carry, work, block_bytes(shape_),
                [&](u64 begin, u64 end, ResidueJoinRun& run, u8* own) {
                  double* const tile = reinterpret_cast<double*>(own);
                  for (u64 at = begin; at < end; at += kFarTilePoints) {
                    const u64 points = std::min(kFarTilePoints, end - at);
                    for (u32 r = 0; r < shape_.P; ++r) {
                      double* const x = tile + r * kFarTilePoints;
                      if (from[r].packed)
                        far_.unpack(from[r].packed + kPackedBytes * (at - block.begin), points, x);
                      else
                        tree.for_pieces(at, at + points, [&](u64 place, u64 i, u64 n) {
                          std::memcpy(x + (i - at), static_cast<const double*>(from[r].node) + place,
                                      sizeof(double) * n);
                        });
                    }
                    kernels_.join(plan_, tile, kFarTilePoints, points, run);
                  }
                });
  }

  void start(u32 channel, const FarNode& node, void* F, FarWork work) const override {
    stage(channel, node, F, work, far_.columns);
  }
  void forward(u32 channel, const FarNode& node, void* F, FarWork work) const override {
    subtrees(node, work, [&](const ResidueSubtrees& s, u64 at) {
      kernels_.forward(plan_.modulus[channel], s, static_cast<double*>(F) + at);
    });
  }
  void multiply(u32 channel, const FarNode& node, void* F, void* G, OperandState state,
                FarWork work) const override {
    subtrees(node, work, [&](const ResidueSubtrees& s, u64 at) {
      kernels_.multiply(plan_.modulus[channel], s, static_cast<double*>(F) + at, static_cast<double*>(G) + at,
                        state);
    });
  }
  void finish(u32 channel, const FarNode& node, void* F, FarWork work) const override {
    stage(channel, node, F, work, far_.columns_back);
  }

  void pack(u32 channel, const FarNode& node, const void* F, const FarBlock& block, u8* packed,
            ParallelContext parallel) const override {
    for_pieces(node, block, parallel, [&](u64 place, u64 at, u64 count) {
      far_.pack(plan_.modulus[channel], static_cast<const double*>(F) + place, count,
                packed + kPackedBytes * (at - block.begin));
    });
  }
  void unpack(u32, const FarNode& node, void* F, const FarBlock& block, const u8* packed,
              ParallelContext parallel) const override {
    for_pieces(node, block, parallel, [&](u64 place, u64 at, u64 count) {
      far_.unpack(packed + kPackedBytes * (at - block.begin), count, static_cast<double*>(F) + place);
    });
  }

  void split_stripe(u32 channel, const FarStripe& stripe, std::span<const OperandBytes> rows, void* X,
                    FarWork work) const override {
    for_parts(work.parallel, stripe.rows(shape_), [&](u64 begin, u64 end) {
      for (u64 j = begin; j < end; ++j)
        far_.split(plan_, {channel, channel + 1}, rows[j], stripe.width, row(X, stripe, j), 0);
    });
  }
  void columns(u32 channel, const FarStripe& stripe, void* X, FarWork work) const override {
    for_stripe(stripe, work, [&](u64 begin, u64 end, double* tile) {
      const u32 upper = std::min(stripe.levels, kResidueColumnLevels);
      upper_columns(stripe, X, upper,
                    [&](const ResidueColumns& c) { far_.columns(plan_, channel, c, begin, end, tile); });
      lower_columns(stripe, X, upper,
                    [&](const ResidueColumns& c) { far_.columns(plan_, channel, c, begin, end, tile); });
    });
  }
  void columns_back(u32 channel, const FarStripe& stripe, void* X, FarWork work) const override {
    for_stripe(stripe, work, [&](u64 begin, u64 end, double* tile) {
      const u32 upper = std::min(stripe.levels, kResidueColumnLevels);
      lower_columns(stripe, X, upper,
                    [&](const ResidueColumns& c) { far_.columns_back(plan_, channel, c, begin, end, tile); });
      upper_columns(stripe, X, upper,
                    [&](const ResidueColumns& c) { far_.columns_back(plan_, channel, c, begin, end, tile); });
    });
  }
  void pack_stripe(u32 channel, const FarStripe& stripe, const void* X, u8* packed, u64 row_bytes,
                   ParallelContext parallel) const override {
    for_parts(parallel, stripe.rows(shape_), [&](u64 begin, u64 end) {
      for (u64 j = begin; j < end; ++j)
        far_.pack(plan_.modulus[channel], row(X, stripe, j), stripe.width, packed + j * row_bytes);
    });
  }
  void unpack_stripe(u32, const FarStripe& stripe, void* X, const u8* packed, u64 row_bytes,
                     ParallelContext parallel) const override {
    for_parts(parallel, stripe.rows(shape_), [&](u64 begin, u64 end) {
      for (u64 j = begin; j < end; ++j) far_.unpack(packed + j * row_bytes, stripe.width, row(X, stripe, j));
    });
  }

  void start_runs(u32 levels, void* runs) const override { join_.start_runs(levels, runs); }
  void join_stripe(const FarStripe& stripe, std::span<void* const> X, std::span<u64* const> words, void* runs,
                   FarWork work) const override {
    join_.stripe(
        stripe.width, words, runs, work, block_bytes(shape_), [&](u64 j, ResidueJoinRun& run, u8* own) {
          double* const tile = reinterpret_cast<double*>(own);
          for (u64 at = 0; at < stripe.width; at += kFarTilePoints) {
            const u64 points = std::min(kFarTilePoints, stripe.width - at);
            for (u32 r = 0; r < shape_.P; ++r)
              std::memcpy(tile + r * kFarTilePoints, row(X[r], stripe, j) + at, sizeof(double) * points);
            kernels_.join(plan_, tile, kFarTilePoints, points, run);
          }
        });
  }
  FarCarry run_carry(u32, const void* runs, u64 row) const override { return join_.run_carry(runs, row); }

 private:
  static ResidueTables tables_of(const FarShape& shape, LinearHeapBuffer& memory) {
    ResidueTables tables;
    const ResidueRow row = row_of(shape);
    tables.grow(memory, {&row, 1});
    return tables;
  }
  u64 point_bytes() const { return plan_.row.point_bits() / 8; }
  u64 first_node(const FarNode& node) const { return (plan_.first_node() << node.levels) + node.index; }

  template <class Body>
  void for_pieces(const FarNode& node, const FarBlock& block, ParallelContext parallel, Body&& body) const {
    const Tree tree(shape_, node.levels);
    for_parts(parallel, (block.points() + kFarUnit - 1) / kFarUnit, [&](u64 begin, u64 end) {
      tree.for_pieces(block.begin + begin * kFarUnit, std::min(block.begin + end * kFarUnit, block.end),
                      body);
    });
  }

  /// The first or last stage of a node.
  void stage(u32 channel, const FarNode& node, void* F, FarWork work,
             void (*pass)(const ResiduePlan&, u32, const ResidueColumns&, u64, u64, double*)) const {
    const Tree tree(shape_, node.levels);
    if (tree.levels == 0 && tree.row.k == 1) return;
    const ResidueColumns c{static_cast<double*>(F),
                           tree.stride(),
                           tree.sequence_stride(),
                           0,
                           tree.columns(),
                           tree.row.k,
                           tree.levels,
                           first_node(node),
                           tree.levels ? residue_tile_columns(tree.row) : tree.columns()};
    for_tasks(work, node_task_bytes(shape_, node.levels), tree.columns() / 8,
              [&](u64, u64, u64 begin, u64 end, u8* own) {
                pass(plan_, channel, c, 8 * begin, 8 * end, reinterpret_cast<double*>(own));
              });
  }
  /// Subtrees that the first stage leaves, those of all sequences together: body(subtrees, place of the first).
  template <class Body>
  void subtrees(const FarNode& node, FarWork work, Body&& body) const {
    const Tree tree(shape_, node.levels);
    const u64 rows = tree.rows(), k = tree.row.k;
    for_tasks(
        work, node_task_bytes(shape_, node.levels), rows * k, [&](u64, u64, u64 begin, u64 end, u8* own) {
          const auto place = [&](u64 u) { return (u % k * rows + u / k) * tree.stride(); };
          for (u64 u = begin, count; u < end; u += count) {
            count = std::min(k - u % k, end - u);
            const s64 ahead = u + count < end ? static_cast<s64>(place(u + count) - place(u + count - 1)) : 0;
            body(ResidueSubtrees{tree.columns(), (first_node(node) << tree.levels) + u / k, count,
                                 tree.sequence_stride(), ahead, own},
                 place(u));
          }
        });
  }

  // Rows of a stripe stand a cache line further apart than they are long: that is seldom a power of two.
  static u64 row_stride(const FarStripe& stripe) { return stripe.width + 8; }
  static double* row(void* X, const FarStripe& stripe, u64 j) {
    return static_cast<double*>(X) + j * row_stride(stripe);
  }
  static const double* row(const void* X, const FarStripe& stripe, u64 j) {
    return static_cast<const double*>(X) + j * row_stride(stripe);
  }
  /// Columns of a stripe: body(begin, end, tile).
  template <class Body>
  void for_stripe(const FarStripe& stripe, FarWork work, Body&& body) const {
    for_tasks(work, stripe_task_bytes(shape_, stripe.levels), stripe.width / 8,
              [&](u64, u64, u64 begin, u64 end, u8* own) {
                body(8 * begin, 8 * end, reinterpret_cast<double*>(own));
              });
  }
  /// The first `upper` levels of a stripe, which rows far apart share; then those below, each sequence by itself.
  template <class Body>
  void upper_columns(const FarStripe& stripe, void* X, u32 upper, Body&& body) const {
    const u64 groups = u64{1} << (stripe.levels - upper), stride = row_stride(stripe);
    const u64 columns = stripe.columns(shape_);
    for (u64 b = 0; b < groups; ++b)
      body(ResidueColumns{row(X, stripe, b), groups * stride, stride << stripe.levels,
                          stripe.begin + b * columns, groups * columns, stripe.node.levels ? 1 : shape_.k,
                          upper, first_node(stripe.node), stripe_tile_columns(upper)});
  }
  template <class Body>
  void lower_columns(const FarStripe& stripe, void* X, u32 upper, Body&& body) const {
    const u32 levels = stripe.levels - upper;
    if (levels == 0) return;
    for (u64 j = 0; j < stripe.rows(shape_); j += u64{1} << levels)
      body(ResidueColumns{row(X, stripe, j), row_stride(stripe), 0, 0, 0, 1, levels,
                          (first_node(stripe.node) << upper) + (j >> levels) % (u64{1} << upper),
                          stripe_tile_columns(levels)});
  }

  const ResidueKernels& kernels_;
  const ResidueFarKernels& far_;
  ResidueTables tables_;
  ResiduePlan plan_;
  ResidueFarJoin join_;
};

class C17Far final : public FarFamily {
 public:
  const char* id() const override { return "C17"; }
  u64 max_bits() const override { return 0x12C0000000000; }
  u32 least_primes() const override { return 4; }
  u32 most_primes() const override { return kMaxResiduePrimes; }
  bool holds(const FarShape& shape) const override {
    return shape.P >= 4 && shape.P <= kMaxResiduePrimes && shape.k % 2 == 1 && shape.k <= 7 && shape.n >= 9 &&
           shape.n < 64 && residue_row_holds(row_of(shape));
  }
  u64 point_bytes(const FarShape& shape) const override { return row_of(shape).point_bits() / 8; }
  u32 channels(const FarShape& shape) const override { return shape.P; }
  u64 packed_bytes(const FarShape&) const override { return kPackedBytes; }
  u64 table_bytes(const FarShape& shape) const override {
    const ResidueRow row = row_of(shape);
    return ResidueTables::bytes({&row, 1});
  }
  u64 node_bytes(const FarShape& shape, u32 levels) const override { return Tree(shape, levels).bytes(); }
  u64 stripe_bytes(const FarShape& shape, const FarStripe& stripe) const override {
    return LinearHeapBuffer::cut_bytes<double>(stripe.rows(shape) * (stripe.width + 8));
  }
  u64 runs_bytes(const FarShape& shape, u32 levels) const override {
    return ResidueFarJoin::runs_bytes(shape.k, levels);
  }
  u64 node_scratch_bytes(const FarShape& shape, u32 levels, u64 tasks) const override {
    return tasks * ResidueFarJoin::task_bytes(node_task_bytes(shape, levels));
  }
  u64 stripe_scratch_bytes(const FarShape& shape, u32 levels, u64 tasks) const override {
    return tasks * stripe_task_bytes(shape, levels);
  }
  double cost(const FarShape& shape) const override {
    // Levels that odd factors and the rest of the work are worth: tools/make_residue_tables.py.
    static constexpr double kOddLevels[] = {0, 1.6, 2.5, 4.4};
    return static_cast<double>(shape.P) * static_cast<double>(shape.points()) *
           (shape.n + kOddLevels[shape.k / 2] - 7.4 + 0.38 * shape.P);
  }
  std::unique_ptr<FarTransform> make(const FarShape& shape, ProductRing ring,
                                     LinearHeapBuffer& memory) const override {
    if (!holds(shape)) throw InvalidParametersException(id(), "Invalid Function Parameters:   ");
    return std::make_unique<ResidueFar>(shape, ring, memory);
  }
};

}  // namespace

const FarFamily& c17_far_family() {
  static const C17Far family;
  return family;
}

}  // namespace orl
