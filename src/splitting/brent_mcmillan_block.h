// One block of the series of kind BrentMcMillanAB: its recursion, and the fold into the sum of the terms behind it.
//
// Tail     The terms behind a block leave three numbers in place of a node's D, T and V: a = D^3, b = D T and v = V, up
//          to one common factor. Their ratios are all that a sum depends on, and the fold is linear in them.
// Fold     a' = D^3 a     b' = D T a + D b     v' = V a + D v + C b     with a block D, C, T, V.
// Cut      Every number keeps the words that are needed at the block's left end. All are positive, so no digit
//          cancels.
// Memory   An area holds a | b | v | V | T | D | C. Each product is made beside it and then takes the place of what is
//          used up: D T that of T, D^3 that of D and C.
// Proof    The fold's results must have the hashes that those of the tail and of the block give them.
#pragma once

#include "numbers/ram_store.h"
#include "splitting/block_list.h"
#include "splitting/brent_mcmillan.h"
#include "splitting/bsr_block.h"

namespace orl {

/// The sum of the terms after an index; all zero when there are none.
template <class Store>
struct BrentMcMillanTail {
  typename Store::Exact a, b, v;
};

template <class Store>
class BrentMcMillanBlock;

/// In RAM.
template <class W>
class BrentMcMillanBlock<RamStore<W>> {
 public:
  using Frame = typename RamStore<W>::Frame;
  using Tail = BrentMcMillanTail<RamStore<W>>;

  /// A plan for the terms of `range`.
  BrentMcMillanBlock(const Series<W>& series, const TermRange& range, const BlockShape& shape);

  /// The most nats of a block of a sum to p words.
  static DoubleDouble largest(u64 p, SeriesMemory memory);

  u64 a() const { return range_.a; }
  u64 b() const { return range_.b; }
  /// Words kept of the tail's numbers.
  u64 kept_words() const { return kept_words_; }
  /// Words at the start of the heap in which a run leaves the tail.
  u64 tail_area_words() const { return at_.V; }
  u64 product_words() const;
  /// Plans the fold as fast as `bytes` allow, which hold the block as it is.
  void use_memory(u64 bytes);
  u64 total_bytes() const { return total_bytes_; }
  const BSR_BlockB<W>& recursion() const { return recursion_; }

  /// tail = that of the terms after a(), from that of the terms after b(), whose numbers a run of the next block left
  /// in `heap`. Throws BufferTooSmallException "BrentMcMillanBlock::run()", BSRModularCheckFailedException.
  void run(const RunContext& ctx, Frame& frame, Tail& tail, LinearHeapBuffer heap) const;

 private:
  using Kind = BrentMcMillanAB<W>;
  /// Places in the area; `end` is its length.
  struct Places {
    u64 a = 0, b = 0, v = 0, V = 0, T = 0, D = 0, C = 0, end = 0;
  };
  /// Words of a block's numbers as the fold takes them, and of its products.
  struct FoldWords {
    u64 D = 0, C = 0, T = 0, V = 0, square = 0, cube = 0, DT = 0;
    u64 with_D = 0;   ///< of the products of D and C with the tail
    u64 with_a = 0;   ///< of those with a
    u64 product = 0;  ///< of the longest one
  };
  struct Memory {
    W* area;
    W* product;
    LinearHeapBuffer heap;
  };

  Places make_places() const;
  FoldWords make_fold_words() const;
  void use(bool kept_transforms);
  /// The running area; the recursion, or a product and its scratch, get the rest.
  template <class Arena>
  W* cut_area(Arena& arena) const;
  void recurse(const RunContext& ctx, Tail& tail, SeriesNode<W>& node, const Memory& memory) const;
  void take_own_products(const RunContext& ctx, SeriesNode<W>& node, ExactFloat<W>& cube,
                         const Memory& memory) const;
  void fold_D(const RunContext& ctx, Tail& tail, const SeriesNode<W>& node, const Memory& memory) const;
  void fold_a(const RunContext& ctx, Tail& tail, const SeriesNode<W>& node, const ExactFloat<W>& cube,
              const Memory& memory) const;
  /// Moves x to a place of the area, cut to what is kept.
  void put(const RunContext& ctx, ExactFloat<W>& x, u64 place, u64 end, const Memory& memory) const;
  /// x += y at x's place, to the words that are kept.
  void add(const RunContext& ctx, ExactFloat<W>& x, ExactFloat<W>& y, u64 place, const Memory& memory) const;

  const Series<W>* series_;
  TermRange range_;
  u64 tds_;
  u64 tail_words_, kept_words_;
  BSR_BlockB<W> recursion_;
  FoldWords words_;
  Places at_;
  bool kept_transforms_ = false;  ///< whether products with a common factor share its transform
  u64 fold_bytes_ = 0;
  u64 total_bytes_ = 0;
};

}  // namespace orl
