// Transforms of numbers that are longer than memory: what products of numbers on disks are made of.
//
// Points   an operand is a row of points of point_bytes() bytes each, least significant first; k 2^n of them make a shape.
//          Words are 64-bit; arrays of 32-bit words are the same bytes.
// Channels what is transformed by itself: a prime ("C17", "N64"), or all primes of a point side by side ("VST"). A point is
//          packed_bytes() bytes a channel on disk, and a few doubles or words while it is worked on.
// Nodes    a channel's transform is k sequences of M = 2^n points, natural position t M + i for point i of sequence t. With
//          `levels` levels done, a sequence is 2^levels rows of M / 2^levels points: row j is node (levels, j) of a tree
//          and goes on without the others. Node (0, 0) is the whole, all k sequences together. The ring of the product
//          (W^n - 1, W^n + 1 or none) decides what the root stands for; callers see no difference.
// Forms    packed: natural positions, packed_bytes() each, what disks hold. Unpacked: as the family likes it in memory, one
//          node or one stripe in a buffer of node_bytes() or stripe_bytes(), 64-byte aligned; zero bytes are residues of
//          zeros there. Packed residues are reduced.
// Blocks   of points begin and end at multiples of 64, but for the last of a shape. (8 points are whole words.)
// Threads  objects are immutable; every call may fork, in the scratch of its FarWork and with as many tasks as that holds.
// Faults   join throws ConvolutionFailedException when a coefficient cannot be right, as products in memory do.
//
// Prime groups: split() blocks of the operand to the channels' nodes (0, 0) or packed; start() a channel's node in place;
// multiply() two of them; finish(); join() blocks of all channels in order, each with the carry of the one before.
// Two passes:   split_stripe(), columns() and pack_stripe() each stripe of columns; unpack(), start(), multiply(), finish(),
// pack() each row; unpack_stripe(), columns_back(), join_stripe() each stripe. Three: columns of stripes within rows between.
#pragma once

#include <memory>
#include <span>

#include "transforms/common/transform_records.h"

namespace orl {

/// k 2^n points modulo P primes.
struct FarShape {
  u32 P = 0, k = 1, n = 0;

  u64 points() const { return u64{k} << n; }
  bool operator==(const FarShape&) const = default;
};

/// Row `index` of those that `levels` levels make of a sequence; of sequence `sequence` when levels > 0.
struct FarNode {
  u32 levels = 0;
  u32 sequence = 0;
  u64 index = 0;
};

/// Columns [begin, begin + width), multiples of 8, of the 2^levels rows into which `levels` further levels cut each
/// sequence of a node: those of the whole shape are k 2^levels rows, sequence by sequence.
struct FarStripe {
  FarNode node;
  u32 levels = 0;  ///< 1 to kFarMostLevels
  u64 begin = 0, width = 0;

  /// Rows in all.
  u64 rows(const FarShape& shape) const { return u64{node.levels ? 1 : shape.k} << levels; }
  /// Points of a row.
  u64 columns(const FarShape& shape) const { return u64{1} << (shape.n - node.levels - levels); }
};

inline constexpr u32 kFarMostLevels = 16;     ///< of a stripe
inline constexpr u32 kFarLeastRowLevels = 9;  ///< rows have at least 2^9 points

/// Points [begin, end) of a shape.
struct FarBlock {
  u64 begin, end;

  u64 points() const { return end - begin; }
};

/// Where a block's residues of a channel are: at home in node (0, 0) of an unpacked transform, or packed by themselves, the
/// block's first at `packed`. Both null: the channel is left out (by split()).
struct FarPlace {
  void* node = nullptr;
  u8* packed = nullptr;
};

/// What a range of words leaves to the words after it: a signed number below 2^639 in absolute value, two's complement.
struct FarCarry {
  static constexpr u32 kWords = 10;
  u64 word[kWords] = {};

  bool zero() const;                ///< whether it is 0
  void negate();                    ///< becomes its negative
  void add(const FarCarry& other);  ///< becomes the sum
  void add(s64 value);              ///< becomes the sum
  /// Adds this to words[0, count); this becomes what leaves their end, which belongs to words[count].
  void add_to(u64* words, u64 count);
};

/// Scratch as large as the family states for so many tasks, and who works.
struct FarWork {
  LinearHeapBuffer scratch;
  ParallelContext parallel;
};

/// One shape and ring at work.
class FarTransform : Uncopied {
 public:
  virtual ~FarTransform() = default;

  const FarShape& shape() const { return shape_; }  ///< what it was made for
  ProductRing ring() const { return ring_; }        ///< of its products

  // Words and residues -------------------------------------------------------------------------------------------------

  /// Residues of a block, whose words begin at `a` (what lies behind them counts as zero), to each channel's place.
  virtual void split(const FarBlock& block, OperandBytes a, std::span<const FarPlace> to,
                     FarWork work) const = 0;
  /// words[0, points * point_bytes / 8) = the block's coefficients by the finished residues of all channels, plus `carry`,
  /// which becomes what belongs behind them. Behind the last block it is 0 for a product that the shape holds; for the
  /// rings see close_ring().
  virtual void join(const FarBlock& block, std::span<const FarPlace> from, u64* words, FarCarry& carry,
                    FarWork work) const = 0;

  // A node in memory ---------------------------------------------------------------------------------------------------

  /// The first stage in place; the transform of what was started; the product of two that both are in this state, brought
  /// back, F in place (G may be F and is lost unless it was transformed); the last stage. F holds natural positions before
  /// start() and after finish().
  virtual void start(u32 channel, const FarNode& node, void* F, FarWork work) const = 0;
  virtual void forward(u32 channel, const FarNode& node, void* F, FarWork work) const = 0;
  virtual void multiply(u32 channel, const FarNode& node, void* F, void* G, OperandState state,
                        FarWork work) const = 0;
  virtual void finish(u32 channel, const FarNode& node, void* F, FarWork work) const = 0;
  /// Points [begin, end) of a node to `packed` and back, its first at packed[0]. A transformed node may be packed too: all
  /// of it, to be unpacked as a whole.
  virtual void pack(u32 channel, const FarNode& node, const void* F, const FarBlock& block, u8* packed,
                    ParallelContext parallel) const = 0;
  virtual void unpack(u32 channel, const FarNode& node, void* F, const FarBlock& block, const u8* packed,
                      ParallelContext parallel) const = 0;

  // Stripes ------------------------------------------------------------------------------------------------------------

  /// Residues of a stripe of node (0, 0); rows[j] are the words of row j's points in it, what is missing counts as zero.
  virtual void split_stripe(u32 channel, const FarStripe& stripe, std::span<const OperandBytes> rows, void* X,
                            FarWork work) const = 0;
  /// The stripe's levels down, in place, with all that node (0, 0) has before them; and back.
  virtual void columns(u32 channel, const FarStripe& stripe, void* X, FarWork work) const = 0;
  virtual void columns_back(u32 channel, const FarStripe& stripe, void* X, FarWork work) const = 0;
  /// Row j of the stripe to packed + j row_bytes, and back.
  virtual void pack_stripe(u32 channel, const FarStripe& stripe, const void* X, u8* packed, u64 row_bytes,
                           ParallelContext parallel) const = 0;
  virtual void unpack_stripe(u32 channel, const FarStripe& stripe, void* X, const u8* packed, u64 row_bytes,
                             ParallelContext parallel) const = 0;

  /// Joins the stripes of node (0, 0) from left to right, all rows side by side: row j of a stripe, width * point_bytes / 8
  /// words, to words[j]. `runs` are runs_bytes(levels), started before the first stripe; a null words[j] leaves row j out.
  /// Behind the last stripe, run_carry(j) is what belongs to the word after row j, which the caller adds there.
  virtual void start_runs(u32 levels, void* runs) const = 0;
  virtual void join_stripe(const FarStripe& stripe, std::span<void* const> X, std::span<u64* const> words,
                           void* runs, FarWork work) const = 0;
  virtual FarCarry run_carry(u32 levels, const void* runs, u64 row) const = 0;

 protected:
  FarTransform(const FarShape& shape, ProductRing ring) : shape_(shape), ring_(ring) {}

  FarShape shape_;
  ProductRing ring_;
};

/// What the shapes of a family take: functions of their arguments only, and the way to a FarTransform.
class FarFamily {
 public:
  virtual const char* id() const = 0;    ///< of the algorithm
  virtual u64 max_bits() const = 0;      ///< largest product of the algorithm
  virtual u32 least_primes() const = 0;  ///< least P of a shape
  virtual u32 most_primes() const = 0;   ///< largest P of a shape
  /// Whether there is such a shape: k is 1, 3, 5 or 7. It then serves all three rings.
  virtual bool holds(const FarShape& shape) const = 0;

  virtual u64 point_bytes(const FarShape& shape) const = 0;   ///< of an operand and of the product
  virtual u32 channels(const FarShape& shape) const = 0;      ///< of a point
  virtual u64 packed_bytes(const FarShape& shape) const = 0;  ///< of a point of a channel
  /// Bytes of the product that the shape holds: every operand and product of fewer or as many.
  u64 product_bytes(const FarShape& shape) const { return shape.points() * point_bytes(shape); }
  /// Bytes of memory: tables of the shape; a channel's node of so many levels above, or stripe; runs of a join of stripes.
  virtual u64 table_bytes(const FarShape& shape) const = 0;
  virtual u64 node_bytes(const FarShape& shape, u32 levels) const = 0;
  virtual u64 stripe_bytes(const FarShape& shape, const FarStripe& stripe) const = 0;
  virtual u64 runs_bytes(const FarShape& shape, u32 levels) const = 0;
  /// Scratch of `tasks` tasks for every call on nodes of so many levels above and on blocks; for calls on stripes.
  virtual u64 node_scratch_bytes(const FarShape& shape, u32 levels, u64 tasks) const = 0;
  virtual u64 stripe_scratch_bytes(const FarShape& shape, u32 levels, u64 tasks) const = 0;
  /// What computing a product takes, in units that only compare shapes of the family.
  virtual double cost(const FarShape& shape) const = 0;

  /// Who makes what lies above the points of a shape, from the lowest words of the operands in memory; null where that is
  /// a product like any other.
  virtual const Algorithm* short_part() const { return nullptr; }

  /// The shape at work, with tables cut from `memory`, which must stay. Throws InvalidParametersException for a shape
  /// that does not hold.
  virtual std::unique_ptr<FarTransform> make(const FarShape& shape, ProductRing ring,
                                             LinearHeapBuffer& memory) const = 0;

 protected:
  ~FarFamily() = default;
};

/// Ends a product modulo W^n - 1 or W^n + 1 of `words` words, whose last block left `carry`. Words [at, at + count) are
/// shown by load(at, count), a u64*, changed, and given back by store(at, count), at most `block` at a time and no more
/// than the carry asks for. True for a negacyclic product that is W^n: its words are then zero, whatever is stored.
template <class Load, class Store>
bool close_ring(ProductRing ring, u64 words, u64 block, FarCarry carry, Load&& load, Store&& store) {
  const auto add = [&] {  // at the begin; returns what leaves the end
    for (u64 at = 0, count; at < words && !carry.zero(); at += count) {
      count = block < words - at ? block : words - at;
      carry.add_to(load(at, count), count);
      store(at, count);
    }
  };
  if (ring == ProductRing::kNegacyclic) carry.negate();
  add();
  if (ring == ProductRing::kCyclic) add();
  if (ring != ProductRing::kNegacyclic || carry.zero()) return false;
  carry.negate();
  add();
  return !carry.zero();
}

}  // namespace orl
