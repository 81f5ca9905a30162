// How a product of numbers on disks will be made: a pure function of its lengths, the memory and the array.
//
// Schemes, the cheapest in traffic first; S are the bytes of the product:
//
//   in memory     both operands, both transforms and the product are in memory at once
//   halves        the product from its residues modulo W^n - 1 and W^n + 1, written over the operands
//   prime groups  a prime's transforms fit in memory, those of all primes do not: residues stream to files and back
//   two passes    one transform does not fit: columns, rows, columns
//   three passes  nor do the stripes of two passes with pieces that are worth a seek
//   CRT halves    residues modulo W^n - 1 and W^n + 1, each a product by a scheme above, where the disks are short
//
// Words     of 32 bits: a number of 64-bit words has twice as many.
// Memory    exact: run_swap_product() cuts memory_bytes from what it is given, and no more.
// Disks     disk_bytes are those of the files that a product makes for itself, beside operands and result.
#pragma once

#include <memory>
#include <optional>

#include "outofcore/pass_shape.h"
#include "transforms/common/far_transform.h"

namespace orl {

/// In the order in which plans try them.
enum class SwapScheme : u8 { kRam, kRamHalves, kPrimeGroups, kTwoPasses, kThreePasses, kCrtHalves };
inline constexpr u32 kSwapSchemes = 6;

/// A product, or a square where b_words is 0, both lengths 1 at least otherwise.
struct SwapRequest {
  u64 a_words = 0, b_words = 0;
  /// The words that are wanted: [skip, len) of the product, len <= a_words + b_words. In a ring: the least n, which no
  /// operand exceeds; the plan says which n it is, and the words are [0, n).
  u64 skip = 0, len = 0;
  ProductRing ring = ProductRing::kPlain;
  /// The second operand comes as a SwapKept, whose transforms the schemes in passes take as they are.
  bool kept = false;

  bool square() const { return b_words == 0; }
  /// Words of both operands together: of the whole product, outside a ring.
  u64 product_words() const { return a_words + (square() ? a_words : b_words); }
};

/// The whole product of operands of so many words; the whole square for b_words 0.
SwapRequest whole_product(u64 a_words, u64 b_words);

/// What a product may take.
struct SwapBudget {
  u64 memory_bytes = 0;
  u64 bytes_per_seek = 4096;  ///< pieces are not smaller where that can be
  u64 row_bytes = 4096;       ///< of the array: stores of whole rows read nothing
  u64 tds = 1;
  u64 disk_bytes = ~u64{0};  ///< room for the files that a product makes for itself
};

/// Schemes in memory: an algorithm of the table, and areas.
struct RamCut {
  const Algorithm* algorithm = nullptr;
  u64 bits = 0;           ///< what the algorithm is asked for
  u64 area_words = 0;     ///< operands, one behind the other, then the product
  u64 table_bytes = 0;    ///< of the algorithm's tables
  u64 scratch_bytes = 0;  ///< of transforms and scratch together
};

/// Prime groups: the channels of a group are in memory at once. Index 0 is the first operand or its file, 1 the second.
struct PrimeGroupCut {
  u32 group_channels = 0;
  /// The next group's residues are loaded, and the last one's stored, while a group is computed.
  bool overlapped = false;
  u64 back_bytes = 0;     ///< the second operand's transforms, or the packed residues of a square
  u64 staging_bytes = 0;  ///< blocks and packed residues that are loaded
  /// Points of a block while operands are split, while residues of a group are moved, and while the product is joined.
  u64 split_points = 0, move_points = 0, join_points = 0;
  u64 section_bytes[2] = {};  ///< of a channel in a file
};

/// How one product goes, and what it takes.
struct SwapPlan {
  SwapScheme scheme = SwapScheme::kRam;
  SwapRequest request;
  u64 ring_words = 0;  ///< n; 0 outside a ring
  u64 tds = 1;         ///< tasks that scratch is planned for
  RamCut ram;
  FarShape shape;  ///< of the transforms, for the schemes that are not in memory
  PrimeGroupCut groups;
  PassShape passes;
  /// CRT halves: the products modulo W^n - 1 and W^n + 1. Else, where words are above the shape: the product modulo W^n - 1,
  /// and that of the lowest words.
  std::shared_ptr<const SwapPlan> half[2];
  u64 above_words = 0;       ///< of the product, above those of the shape
  u64 half_block_bytes = 0;  ///< of the blocks in which both are joined
  u64 sink_bytes = 0;        ///< of one of the two blocks through which the product leaves

  u64 memory_bytes = 0;
  u64 disk_bytes = 0;
  u64 bytes_read = 0, bytes_written = 0;  ///< of files
  double cost = 0;                        ///< of computing, in units that compare shapes of a family

  u64 traffic() const { return bytes_read + bytes_written; }
  /// Words of the product that are made, all of which are hashed.
  u64 made_words() const { return ring_words ? ring_words : request.product_words(); }
  /// The words that reach the sink's number.
  u64 wanted_words() const { return ring_words ? ring_words : request.len - request.skip; }
};

/// The plan by one scheme that moves the fewest bytes; none where the scheme cannot make the product in this memory.
/// `family` null: schemes in memory alone.
std::optional<SwapPlan> plan_swap_product(SwapScheme scheme, const FarFamily* family,
                                          const SwapRequest& request, const SwapBudget& budget);
/// The plan that moves the fewest bytes. Throws BufferTooSmallException with the least memory of all schemes' plans where
/// the memory is too small for each.
SwapPlan plan_swap_product(const FarFamily* family, const SwapRequest& request, const SwapBudget& budget);

/// A plan of a product that is made of other products, and what they may take beside its sink.
struct ComposedPlan {
  SwapPlan plan;
  SwapBudget rest;
};

/// The beginning of such a plan, with the smallest sink; none where the memory does not hold that.
std::optional<ComposedPlan> begin_composed(SwapScheme scheme, const SwapRequest& request,
                                           const SwapBudget& budget);

/// The least shape of P primes and odd factor k for the request; none where the family has none.
std::optional<FarShape> least_far_shape(const FarFamily& family, const SwapRequest& request, u32 P, u32 k);

/// The largest block of at most `bytes` bytes whose stores read nothing before: a multiple of row_bytes, or else of 4096,
/// and 4096 bytes at least.
u64 swap_block_bytes(const SwapBudget& budget, u64 bytes);
/// Bytes of a block through which a product leaves; plans of all schemes have it as their sink_bytes.
u64 swap_sink_bytes(const SwapBudget& budget, u64 wanted_words);

}  // namespace orl
