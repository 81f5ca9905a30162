// One block of a series: its recursion, and the fold into the fraction of the terms behind it.
//
// Fold     T' = P U + X T and U' = Q U with a block P, Q, R and the fraction T/U of the terms behind it,
//          where X is what the kind multiplies P_R by; minus where the series subtracts.
// Cut      T' and U' keep the words that are needed at the block's left end: the only rounding in a sum.
// Memory   in RAM a running area holds U | Q | P | X | T. Each product of the fold is made beside it and then
//          takes the place of its operands: X T that of both, P U + X T that of P, X and T, Q U that of U and
//          Q.
// Proof    the fold's results must have the hashes that those of T, U, P, Q and X give them.
#pragma once

#include <algorithm>

#include "numbers/ram_store.h"
#include "splitting/block_list.h"
#include "splitting/bsr_block.h"

namespace orl {

/// The fraction T/U of the terms after an index; both zero when there are none.
template <class Store>
struct SeriesFraction {
  typename Store::Exact T, U;
};

template <class Store>
class PSR_Block;

/// In RAM. The series' kind is a FractionKind.
template <class W>
class PSR_Block<RamStore<W>> {
 public:
  using Frame = typename RamStore<W>::Frame;
  using Fraction = SeriesFraction<RamStore<W>>;
  using Tail = Fraction;

  /// A plan for the terms of `range`.
  PSR_Block(const Series<W>& series, const TermRange& range, const BlockShape& shape);

  /// The most nats of a block of a sum to p words.
  static DoubleDouble largest(u64 p, SeriesMemory memory) {
    return words_to_nats<W>(memory == SeriesMemory::kReduced ? std::max<u64>(p / 2, 1) : p);
  }

  u64 a() const { return range_.a; }
  u64 b() const { return range_.b; }
  /// Words kept of the fraction behind the block, and of the fraction that it returns.
  u64 tail_words() const { return tail_words_; }
  u64 kept_words() const { return kept_words_; }
  u64 product_words() const { return product_words_; }
  /// Pieces that the tail's fraction is folded in; one transform serves both products with U when it is one.
  u64 pieces() const { return fold_.pieces; }
  /// Plans the fold as fast as `bytes` allow, which hold the block as it is.
  void use_memory(u64 bytes);
  u64 total_bytes() const { return total_bytes_; }
  const BSR_BlockB<W>& recursion() const { return recursion_; }

  /// fraction = that of the terms after a(), from that of the terms after b(), which lies at the start of
  /// `heap`, U before T, and stays there. Throws BufferTooSmallException "PSR_BlockB::run()",
  /// BSRModularCheckFailedException.
  void run(const RunContext& ctx, Frame& frame, Fraction& fraction, LinearHeapBuffer heap) const;

 private:
  /// How the products with T and U are made.
  struct Fold {
    u64 pieces = 1;               ///< that T and U are taken in
    bool direct = false;          ///< with U transformed once for both of its products
    u64 sum_words = 0;            ///< of a whole product and its sum
    u64 piece_product_words = 0;  ///< of a product with a piece
    u64 scratch_bytes = 0;        ///< of such a product
    u64 bytes = 0;                ///< in all
  };
  struct Memory {
    W* area;  ///< the running area
    LinearHeapBuffer heap;
  };

  Fold plan_fold(u64 pieces, bool direct) const;
  void use(const Fold& fold);
  /// The running area; the recursion and then the fold get the rest.
  template <class Arena>
  W* cut_area(Arena& arena) const;
  void recurse(const RunContext& ctx, Fraction& fraction, SeriesNode<W>& node, const Memory& memory) const;
  void fold(const RunContext& ctx, Frame& frame, Fraction& fraction, SeriesNode<W>& node,
            Memory memory) const;
  void multiply_in_pieces(const MultiplyContext& ctx, ExactFloat<W>& product, const ExactFloat<W>& x,
                          const ExactFloat<W>& u, W* aside) const;

  const Series<W>* series_;
  const FractionKind<W>* kind_;
  TermRange range_;
  u64 tds_;
  u64 tail_words_, kept_words_;
  BSR_BlockB<W> recursion_;
  u64 q_at_, p_at_, x_at_, t_at_;  ///< in the running area
  u64 area_words_;
  Fold fold_;
  u64 product_words_;
  u64 total_bytes_;
};

template <class W>
using PSR_BlockB = PSR_Block<RamStore<W>>;

}  // namespace orl
