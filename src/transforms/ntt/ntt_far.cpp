#include "transforms/ntt/ntt_far.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "core/exceptions.h"
#include "transforms/common/coefficient_check.h"
#include "transforms/common/far_steps.h"
#include "transforms/ntt/ntt_far_kernels.h"
#include "transforms/ntt/ntt_far_roots.h"
#include "transforms/ntt/ntt_join.h"

namespace orl {
namespace {

constexpr const char* kId = "N64";
constexpr u64 kResidueBytes = 8;
constexpr u64 kBlockPoints = 4096;  ///< what is transformed at once, in L1
constexpr u32 kBlockLevels = 9;     ///< of its roots: down to eight points
constexpr u64 kStripeColumns = 128;
using Factor = NttFactor<u64>;

/// The local tables of a block.
struct BlockRoots {
  Factor down[u64{1} << kBlockLevels], back[u64{1} << kBlockLevels];
};
/// Those of a pass.
struct PassRoots {
  Factor table[kNttRadix];
};

NttRow<u64> row_of(const FarShape& shape) {
  return {static_cast<u8>(shape.P), static_cast<u8>(shape.k), static_cast<u8>(shape.n)};
}
u64 tile_bytes(const FarShape& shape) { return kResidueBytes * shape.P * kFarTilePoints; }
u64 node_task_bytes(const FarShape& shape) {
  return LinearHeapBuffer::cut_bytes<u8>(std::max<u64>(sizeof(BlockRoots), tile_bytes(shape)));
}
// A row that is left out is joined as well.
u64 stripe_task_bytes(const FarShape& shape) {
  return LinearHeapBuffer::cut_bytes<u8>(tile_bytes(shape) + kFarTilePoints * row_of(shape).point_bits() / 8);
}

/// What a task leaves behind its words.
struct TaskEnd {
  FarCarry carry;
  u64 word;   ///< where it belongs
  u64 above;  ///< what join_ntt() returned
};

class NttFar final : public FarTransform {
 public:
  NttFar(const FarShape& shape, ProductRing ring, LinearHeapBuffer& memory)
      : FarTransform(shape, ring),
        kernels_(ntt_kernels<u64>(simd::active_target())),
        far_(ntt_far_kernels(simd::active_target())),
        plan_(ntt_plan(row_of(shape), ring)),
        tile_plan_(plan_) {
    tile_plan_.row.k = 1;
    tile_plan_.row.n = static_cast<u8>(std::countr_zero(kFarTilePoints));
    for (u32 i = 0; i < shape.P; ++i)
      roots_[i] = NttFarRoots(ntt_primes<u64>()[plan_.set->prime[i]], shape.n, memory);
  }

  void split(const FarBlock& block, OperandBytes a, std::span<const FarPlace> to,
             FarWork work) const override {
    NttPlan<u64> plan = tile_plan_;
    plan.first = shape_.P, plan.last = 0;
    for (u32 r = 0; r < shape_.P; ++r)
      if (to[r].node || to[r].packed) plan.first = std::min(plan.first, r), plan.last = r + 1;
    if (plan.first >= plan.last) return;
    for_tasks(work, tile_bytes(shape_), (block.points() + kFarUnit - 1) / kFarUnit,
              [&](u64, u64, u64 begin, u64 end, u8* own) {
                u64* const tile = reinterpret_cast<u64*>(own);
                end = std::min(end * kFarUnit, block.points());
                for (u64 at = begin * kFarUnit; at < end; at += kFarTilePoints) {
                  const u64 count = std::min(kFarTilePoints, end - at);
                  kernels_.split(plan, tile, operand_from(a, at * point_bytes()), 0, count);
                  for (u32 r = plan.first; r < plan.last; ++r)
                    if (u8* const home = place(to[r], block.begin))
                      std::memcpy(home + kResidueBytes * at, tile + (r - plan.first) * kFarTilePoints,
                                  kResidueBytes * count);
                }
              });
  }

  void join(const FarBlock& block, std::span<const FarPlace> from, u64* words, FarCarry& carry,
            FarWork work) const override {
    const u64 most =
        work.scratch.size / (node_task_bytes(shape_) + LinearHeapBuffer::cut_bytes<u8>(sizeof(TaskEnd)));
    work.parallel.tds = std::clamp<u64>(work.parallel.tds, 1, std::max<u64>(most, 1));
    auto* const ends = reinterpret_cast<TaskEnd*>(work.scratch.cut<u8>(sizeof(TaskEnd) * work.parallel.tds));
    u64 count = 0;
    for_tasks(work, tile_bytes(shape_), (block.points() + kFarUnit - 1) / kFarUnit,
              [&](u64 task, u64 tasks, u64 begin, u64 end, u8* own) {
                if (task == 0) count = tasks;
                end = std::min(end * kFarUnit, block.points());
                ends[task] = {{}, word_of(end), 0};
                for (u64 at = begin * kFarUnit; at < end; at += kFarTilePoints) {
                  const u64 points = std::min(kFarTilePoints, end - at);
                  join_tile(reinterpret_cast<u64*>(own), points, words + word_of(at), ends[task].carry,
                            ends[task].above,
                            [&](u32 r) { return place(from[r], block.begin) + kResidueBytes * at; });
                }
              });
    u64 above = 0;
    const u64 all = word_of(block.points());
    carry.add_to(words, all);
    for (u64 t = 0; t < count; ++t) {
      above |= ends[t].above;
      ends[t].carry.add_to(words + ends[t].word, all - ends[t].word);
      carry.add(ends[t].carry);
    }
    check(above);
  }

  void start(u32 channel, const FarNode& node, void* F, FarWork work) const override {
    if (shape_.k == 1 || node.levels) return;
    for_positions(work, [&](u64 begin, u64 end) {
      far_.odd(plan_, plan_.modulus[channel], static_cast<u64*>(F) + begin, plan_.length(), begin, end);
    });
  }
  void forward(u32 channel, const FarNode& node, void* F, FarWork work) const override {
    whole_pass(channel, node, F, work, false);
    subtrees(node, work, [&](u64 at, Subtree s, BlockRoots& roots) {
      down(channel, static_cast<u64*>(F) + at, s, roots);
    });
  }
  void multiply(u32 channel, const FarNode& node, void* F, void* G, OperandState state,
                FarWork work) const override {
    if (state == OperandState::kStarted) {
      whole_pass(channel, node, F, work, false);
      if (G != F) whole_pass(channel, node, G, work, false);
    }
    subtrees(node, work, [&](u64 at, Subtree s, BlockRoots& roots) {
      multiply_subtree(channel, static_cast<u64*>(F) + at, static_cast<u64*>(G) + at, s, state, roots);
    });
    whole_pass(channel, node, F, work, true);
  }
  void finish(u32 channel, const FarNode& node, void* F, FarWork work) const override {
    if (node.levels) return;
    for_positions(work, [&](u64 begin, u64 end) {
      far_.odd_back(plan_, plan_.modulus[channel], static_cast<u64*>(F) + begin, plan_.length(), begin, end);
    });
  }

  void pack(u32, const FarNode&, const void* F, const FarBlock& block, u8* packed,
            ParallelContext parallel) const override {
    for_parts(parallel, block.points(), [&](u64 begin, u64 end) {
      std::memcpy(packed + kResidueBytes * begin, static_cast<const u64*>(F) + block.begin + begin,
                  kResidueBytes * (end - begin));
    });
  }
  void unpack(u32, const FarNode&, void* F, const FarBlock& block, const u8* packed,
              ParallelContext parallel) const override {
    for_parts(parallel, block.points(), [&](u64 begin, u64 end) {
      std::memcpy(static_cast<u64*>(F) + block.begin + begin, packed + kResidueBytes * begin,
                  kResidueBytes * (end - begin));
    });
  }

  void split_stripe(u32 channel, const FarStripe& stripe, std::span<const OperandBytes> rows, void* X,
                    FarWork work) const override {
    NttPlan<u64> plan = tile_plan_;
    plan.first = channel, plan.last = channel + 1;
    for_parts(work.parallel, stripe.rows(shape_), [&](u64 begin, u64 end) {
      for (u64 j = begin; j < end; ++j) kernels_.split(plan, row(X, stripe, j), rows[j], 0, stripe.width);
    });
  }
  void columns(u32 channel, const FarStripe& stripe, void* X, FarWork work) const override {
    for_stripe(stripe, work, [&](u64 begin, u64 end) {
      if (shape_.k > 1 && stripe.node.levels == 0)
        for_odd(stripe, X, begin, end, [&](u64* x, u64 stride, u64 at, u64 last) {
          far_.odd(plan_, plan_.modulus[channel], x, stride, at, last);
        });
      for (u64 j = 0; j < stripe.rows(shape_); j += u64{1} << stripe.levels)
        rows_down(channel, stripe, row(X, stripe, j), stripe.levels, first_node(stripe.node), {begin, end});
    });
  }
  void columns_back(u32 channel, const FarStripe& stripe, void* X, FarWork work) const override {
    for_stripe(stripe, work, [&](u64 begin, u64 end) {
      for (u64 j = 0; j < stripe.rows(shape_); j += u64{1} << stripe.levels)
        rows_back(channel, stripe, row(X, stripe, j), stripe.levels, first_node(stripe.node), {begin, end});
      if (stripe.node.levels == 0)
        for_odd(stripe, X, begin, end, [&](u64* x, u64 stride, u64 at, u64 last) {
          far_.odd_back(plan_, plan_.modulus[channel], x, stride, at, last);
        });
    });
  }
  void pack_stripe(u32, const FarStripe& stripe, const void* X, u8* packed, u64 row_bytes,
                   ParallelContext parallel) const override {
    for_parts(parallel, stripe.rows(shape_), [&](u64 begin, u64 end) {
      for (u64 j = begin; j < end; ++j)
        std::memcpy(packed + j * row_bytes, row(X, stripe, j), kResidueBytes * stripe.width);
    });
  }
  void unpack_stripe(u32, const FarStripe& stripe, void* X, const u8* packed, u64 row_bytes,
                     ParallelContext parallel) const override {
    for_parts(parallel, stripe.rows(shape_), [&](u64 begin, u64 end) {
      for (u64 j = begin; j < end; ++j)
        std::memcpy(row(X, stripe, j), packed + j * row_bytes, kResidueBytes * stripe.width);
    });
  }

  void start_runs(u32 levels, void* runs) const override {
    std::fill_n(static_cast<TaskEnd*>(runs), u64{shape_.k} << levels, TaskEnd{{}, 0, 0});
  }
  void join_stripe(const FarStripe& stripe, std::span<void* const> X, std::span<u64* const> words, void* runs,
                   FarWork work) const override {
    auto* const ends = static_cast<TaskEnd*>(runs);
    const u64 rows = stripe.rows(shape_);
    for_tasks(work, stripe_task_bytes(shape_), rows, [&](u64, u64, u64 begin, u64 end, u8* own) {
      u64 *const tile = reinterpret_cast<u64*>(own), *const lost = tile + shape_.P * kFarTilePoints;
      for (u64 j = begin; j < end; ++j)
        for (u64 at = 0; at < stripe.width; at += kFarTilePoints)
          join_tile(tile, std::min(kFarTilePoints, stripe.width - at),
                    words[j] ? words[j] + word_of(at) : lost, ends[j].carry, ends[j].above,
                    [&](u32 r) { return reinterpret_cast<const u8*>(row(X[r], stripe, j) + at); });
    });
    u64 above = 0;
    for (u64 j = 0; j < rows; ++j) above |= ends[j].above;
    check(above);
  }
  FarCarry run_carry(u32, const void* runs, u64 row) const override {
    return static_cast<const TaskEnd*>(runs)[row].carry;
  }

  static u64 runs_bytes(const FarShape& shape, u32 levels) {
    return LinearHeapBuffer::cut_bytes<u8>(sizeof(TaskEnd) * shape.k << levels);
  }
  static u64 task_bytes(const FarShape& shape) {
    return node_task_bytes(shape) + LinearHeapBuffer::cut_bytes<u8>(sizeof(TaskEnd));
  }

 private:
  /// A subtree: its length and its node.
  struct Subtree {
    u64 points, node;
  };
  /// Columns of a stripe.
  struct Columns {
    u64 begin, end;
  };

  u64 point_bytes() const { return plan_.row.point_bits() / 8; }
  u64 word_of(u64 points) const { return points * plan_.row.point_bits() / 64; }
  u64 first_node(const FarNode& node) const { return (plan_.root() << node.levels) + node.index; }
  NttModulus<u64> modulus(u32 channel, const Factor* local) const {
    NttModulus<u64> m = plan_.modulus[channel];
    m.roots = local;
    return m;
  }
  /// Where a channel's residues of a block that begins at point `first` are, packed or not; null for none.
  static u8* place(const FarPlace& place, u64 first) {
    return place.packed || !place.node ? place.packed : static_cast<u8*>(place.node) + kResidueBytes * first;
  }

  void check(u64 above) const {
    const u32 limit = coefficient_bits();
    if (above) coefficient_failed(kId, limit, limit + static_cast<u64>(std::bit_width(above)));
  }
  u32 coefficient_bits() const {
    const u64 points = shape_.points();
    return ntt_coefficient_bits(plan_.row, ring_ == ProductRing::kPlain ? points / 2 : points);
  }
  /// Joins points whose residues of prime r begin at residues(r), with what the ones before left.
  template <class Residues>
  void join_tile(u64* tile, u64 points, u64* words, FarCarry& carry, u64& above, Residues&& residues) const {
    for (u32 r = 0; r < shape_.P; ++r)
      std::memcpy(tile + r * kFarTilePoints, residues(r), kResidueBytes * points);
    NttBlockEnd end;
    const u64 count = word_of(points);
    above |= join_ntt(tile_plan_, tile, 0, points, coefficient_bits(),
                      WordWindow(reinterpret_cast<u32*>(words), 0, 2 * count), end);
    carry.add_to(words, count);
    static_assert(NttBlockEnd::kHead == FarCarry::kWords);
    FarCarry left;
    std::copy_n(end.overflow, FarCarry::kWords, left.word);
    carry.add(left);
  }

  // Nodes in memory: sequences one after the other, without gaps.
  template <class Body>
  void for_positions(FarWork work, Body&& body) const {
    for_parts(work.parallel, plan_.length() / 8, [&](u64 begin, u64 end) { body(8 * begin, 8 * end); });
  }
  u64 sequences(const FarNode& node) const { return node.levels ? 1 : shape_.k; }
  u64 points_of(const FarNode& node) const { return plan_.length() >> node.levels; }
  /// The first four levels of a node that is larger than a block, or the last ones on the way back.
  void whole_pass(u32 channel, const FarNode& node, void* F, FarWork work, bool back) const {
    const u64 points = points_of(node), width = points / kNttRadix;
    if (points <= kBlockPoints) return;
    PassRoots roots;
    const NttModulus<u64> m = pass_modulus(channel, roots, 4, first_node(node), back);
    constexpr u64 kParts = 16;
    for_parts(work.parallel, sequences(node) * kParts, [&](u64 begin, u64 end) {
      for (u64 u = begin; u < end; ++u)
        (back ? far_.columns_back : far_.columns)(m, static_cast<u64*>(F) + u / kParts * points, width, 4,
                                                  u % kParts * (width / kParts),
                                                  (u % kParts + 1) * (width / kParts));
    });
  }
  /// The subtrees that it leaves: body(place, subtree, roots of a task).
  template <class Body>
  void subtrees(const FarNode& node, FarWork work, Body&& body) const {
    const bool divided = points_of(node) > kBlockPoints;
    const u64 nodes = divided ? kNttRadix : 1, points = points_of(node) / nodes;
    for_tasks(work, sizeof(BlockRoots), sequences(node) * nodes, [&](u64, u64, u64 begin, u64 end, u8* own) {
      for (u64 u = begin; u < end; ++u)
        body(u * points, Subtree{points, first_node(node) * nodes + u % nodes},
             *reinterpret_cast<BlockRoots*>(own));
    });
  }
  NttModulus<u64> pass_modulus(u32 channel, PassRoots& roots, u32 levels, u64 node, bool back) const {
    if (back)
      roots_[channel].fill_back(roots.table, levels, node);
    else
      roots_[channel].fill(roots.table, levels, node);
    return modulus(channel, roots.table);
  }
  void pass(u32 channel, u64* x, Subtree s, bool back) const {
    PassRoots roots;
    const NttModulus<u64> m = pass_modulus(channel, roots, 4, s.node, back);
    (back ? far_.columns_back : far_.columns)(m, x, s.points / kNttRadix, 4, 0, s.points / kNttRadix);
  }
  static Subtree child(Subtree s, u64 j) { return {s.points / kNttRadix, kNttRadix * s.node + j}; }
  static u32 block_levels(u64 points) { return static_cast<u32>(std::bit_width(points)) - 4; }

  void down(u32 channel, u64* x, Subtree s, BlockRoots& roots) const {
    if (s.points <= kBlockPoints) {
      roots_[channel].fill(roots.down, block_levels(s.points), s.node);
      return kernels_.forward(modulus(channel, roots.down), x, s.points, 1);
    }
    pass(channel, x, s, false);
    for (u64 j = 0; j < kNttRadix; ++j) down(channel, x + j * (s.points / kNttRadix), child(s, j), roots);
  }
  void multiply_subtree(u32 channel, u64* x, u64* g, Subtree s, OperandState state, BlockRoots& roots) const {
    const bool forward_x = state == OperandState::kStarted, forward_g = forward_x && g != x;
    if (s.points <= kBlockPoints) {
      roots_[channel].fill(roots.down, block_levels(s.points), s.node);
      roots_[channel].fill_back(roots.back, block_levels(s.points), s.node);
      const NttModulus<u64> m = modulus(channel, roots.down);
      if (forward_x) kernels_.forward(m, x, s.points, 1);
      if (forward_g) kernels_.forward(m, g, s.points, 1);
      kernels_.product(m, x, g, s.points, 1);
      return kernels_.inverse(modulus(channel, roots.back), x, s.points, 1);
    }
    if (forward_x) pass(channel, x, s, false);
    if (forward_g) pass(channel, g, s, false);
    const u64 part = s.points / kNttRadix;
    for (u64 j = 0; j < kNttRadix; ++j)
      multiply_subtree(channel, x + j * part, g + j * part, child(s, j), state, roots);
    pass(channel, x, s, true);
  }

  // Stripes: rows stand a cache line further apart than they are long, which is seldom a power of two.
  static u64 row_stride(const FarStripe& stripe) { return stripe.width + 8; }
  static u64* row(void* X, const FarStripe& stripe, u64 j) {
    return static_cast<u64*>(X) + j * row_stride(stripe);
  }
  static const u64* row(const void* X, const FarStripe& stripe, u64 j) {
    return static_cast<const u64*>(X) + j * row_stride(stripe);
  }
  /// Columns of a stripe, a few at a time: body(begin, end).
  template <class Body>
  void for_stripe(const FarStripe& stripe, FarWork work, Body&& body) const {
    for_parts(work.parallel, stripe.width / 8, [&](u64 begin, u64 end) {
      for (u64 at = 8 * begin; at < 8 * end; at += kStripeColumns)
        body(at, std::min(at + kStripeColumns, 8 * end));
    });
  }
  /// The odd factor's positions, row by row: body(x, stride of sequences, begin, end).
  template <class Body>
  void for_odd(const FarStripe& stripe, void* X, u64 begin, u64 end, Body&& body) const {
    for (u64 j = 0; j < u64{1} << stripe.levels; ++j) {
      const u64 first = j * stripe.columns(shape_) + stripe.begin;
      body(row(X, stripe, j) + begin, row_stride(stripe) << stripe.levels, first + begin, first + end);
    }
  }
  /// Levels of 2^levels rows from x on, at most four at once.
  void rows_down(u32 channel, const FarStripe& stripe, u64* x, u32 levels, u64 node, Columns c) const {
    if (levels == 0) return;
    const u32 now = std::min(levels, 4u), left = levels - now;
    const u64 stride = row_stride(stripe) << left;
    PassRoots roots;
    const NttModulus<u64> m = pass_modulus(channel, roots, now, node, false);
    for (u64 b = 0; b < u64{1} << left; ++b)
      far_.columns(m, x + b * row_stride(stripe), stride, now, c.begin, c.end);
    for (u64 a = 0; a < u64{1} << now; ++a)
      rows_down(channel, stripe, x + a * stride, left, (node << now) + a, c);
  }
  void rows_back(u32 channel, const FarStripe& stripe, u64* x, u32 levels, u64 node, Columns c) const {
    if (levels == 0) return;
    const u32 now = std::min(levels, 4u), left = levels - now;
    const u64 stride = row_stride(stripe) << left;
    for (u64 a = 0; a < u64{1} << now; ++a)
      rows_back(channel, stripe, x + a * stride, left, (node << now) + a, c);
    PassRoots roots;
    const NttModulus<u64> m = pass_modulus(channel, roots, now, node, true);
    for (u64 b = 0; b < u64{1} << left; ++b)
      far_.columns_back(m, x + b * row_stride(stripe), stride, now, c.begin, c.end);
  }

  const NttKernels<u64>& kernels_;
  const NttFarKernels& far_;
  NttPlan<u64> plan_, tile_plan_;  ///< a tile is a shape of its own, of the same primes
  NttFarRoots roots_[kMaxNttPrimes];
};

class N64Far final : public FarFamily {
 public:
  const char* id() const override { return kId; }
  u64 max_bits() const override { return 0x3800000000000000; }
  u32 least_primes() const override { return 4; }
  u32 most_primes() const override { return kMaxNttPrimes; }
  bool holds(const FarShape& shape) const override {
    return shape.P >= 4 && shape.P <= kMaxNttPrimes && shape.k % 2 == 1 && shape.k <= kMaxNttOdd &&
           shape.n >= kFarLeastRowLevels && shape.n < 64 && ntt_row_is_sound(row_of(shape)) &&
           ntt_row_wraps(row_of(shape));
  }
  u64 point_bytes(const FarShape& shape) const override { return row_of(shape).point_bits() / 8; }
  u32 channels(const FarShape& shape) const override { return shape.P; }
  u64 packed_bytes(const FarShape&) const override { return kResidueBytes; }
  u64 table_bytes(const FarShape& shape) const override { return shape.P * NttFarRoots::bytes(shape.n); }
  u64 node_bytes(const FarShape& shape, u32 levels) const override {
    return kResidueBytes * (levels ? 1 : shape.k) << (shape.n - levels);
  }
  u64 stripe_bytes(const FarShape& shape, const FarStripe& stripe) const override {
    return LinearHeapBuffer::cut_bytes<u64>(stripe.rows(shape) * (stripe.width + 8));
  }
  u64 runs_bytes(const FarShape& shape, u32 levels) const override {
    return NttFar::runs_bytes(shape, levels);
  }
  u64 node_scratch_bytes(const FarShape& shape, u32, u64 tasks) const override {
    return tasks * NttFar::task_bytes(shape);
  }
  u64 stripe_scratch_bytes(const FarShape& shape, u32, u64 tasks) const override {
    return tasks * stripe_task_bytes(shape);
  }
  double cost(const FarShape& shape) const override {
    // As tools/make_ntt_tables.py weighs rows.
    return static_cast<double>(shape.P) * static_cast<double>(shape.points()) *
           (shape.n + 2.0 * std::log2(shape.k) + 8 + 1.2 * shape.P);
  }
  std::unique_ptr<FarTransform> make(const FarShape& shape, ProductRing ring,
                                     LinearHeapBuffer& memory) const override {
    if (!holds(shape)) throw InvalidParametersException(kId, "Invalid Function Parameters:   ");
    return std::make_unique<NttFar>(shape, ring, memory);
  }
};

}  // namespace

const FarFamily& n64_far_family() {
  static const N64Far family;
  return family;
}

}  // namespace orl
