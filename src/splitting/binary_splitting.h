// Binary splitting of a series: plans that know every buffer, runs that allocate nothing.
//
//   BSR_BlockT    exact recursion over one range: forks while threads last, then splits in place
//   BSR_BlockB    the same under a precision limit: nodes that would outgrow it are cut
//   PSR_BlockB    one block of a series: its recursion, and the fold into the fraction of the tail
//   PSR_Series    the list of blocks, walked from the last to the first, and the value at the end
//
// Plans     immutable; they state bytes of heap and words of output, and run() checks both. What a run cuts
// is what the
//           plan says, whatever the numbers turn out to be.
// Threads   a fork gives each half its share of tds, half of the heap and half of the output buffers.
// Blocks    a block ends where its numbers are as long as the precision that is still needed behind it, so
// that nothing
//           longer than that is ever multiplied. The tail's fraction T/U is cut to the precision needed at
//           the block's left end; that is the only rounding in the sum.
// Proof     every node, fold and cut carries hashes, and each merge and fold is checked (verify.h).
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "functions/proved.h"
#include "splitting/merge.h"
#include "splitting/series.h"

namespace orl {

/// Exact P, Q, R of one range.
template <class W>
class BSR_BlockT {
 public:
  /// For the terms (a, b], b > a. `levels`: further forks below the last thread. `halving`: levels at the top
  /// whose halves run one after the other, with all threads and one heap.
  BSR_BlockT(const Series<W>& series, u64 a, u64 b, u64 tds, u64 levels, u64 halving);

  u64 heap_bytes() const { return plan_.front().heap; }
  /// Capacity of each output buffer.
  u64 out_words() const { return plan_.front().out; }
  /// No number of the range is longer, no product of the recursion longer than the second.
  u64 number_words() const { return number_words_; }
  u64 product_words() const { return product_words_; }
  /// Fills out.P, out.Q and out.R, whose buffers hold out_words(). Throws BufferTooSmallException
  /// "BSR_BlockT::run()", BSRModularCheckFailedException.
  void run(const RunContext& ctx, SeriesNode<W>& out, LinearHeapBuffer heap) const;

 private:
  /// What any node of one depth needs.
  struct Depth {
    u64 tds;
    u64 levels;
    bool halves_in_turn;
    u64 heap;
    u64 out;
  };

  static bool forks(u64 tds, u64 levels, u64 a, u64 b) { return (tds >= 2 || levels > 0) && b - a > 999; }
  void split(const RunContext& ctx, u64 depth, u64 a, u64 b, SeriesNode<W>& out, LinearHeapBuffer heap) const;
  void fork(const RunContext& ctx, u64 depth, u64 a, u64 b, SeriesNode<W>& out, LinearHeapBuffer heap) const;
  void in_turn(const RunContext& ctx, u64 depth, u64 a, u64 b, SeriesNode<W>& out,
               LinearHeapBuffer heap) const;
  void descend(const RunContext& ctx, u64 a, u64 b, SeriesNode<W>& out, LinearHeapBuffer heap) const;

  const Series<W>* series_;
  u64 a_, b_;
  u64 number_words_;
  u64 product_words_;
  std::vector<Depth> plan_;  ///< by depth; the last one no longer forks
};

/// P, Q, R of one range to a limited precision.
template <class W>
class BSR_BlockB {
 public:
  static constexpr u64 kMaxLimit = u64{1} << 63;

  /// `limit`: words of precision that the range's own sum can use. A range whose numbers fit stays exact; so
  /// does one of fewer than 1000 terms, or with tds below 2.
  BSR_BlockB(const Series<W>& series, u64 a, u64 b, u64 tds, u64 levels, u64 halving, u64 limit = kMaxLimit);

  u64 heap_bytes() const { return heap_; }
  u64 out_words() const { return out_; }
  u64 number_words() const { return number_words_; }
  u64 product_words() const { return product_words_; }
  bool exact() const { return exact_ != nullptr; }
  /// Throws InvalidParametersException "BSR_BlockB::run()", "Attempted to run with a larger tds than the plan
  /// supports.", BufferTooSmallException under its name, BSRModularCheckFailedException.
  void run(const RunContext& ctx, SeriesNode<W>& out, LinearHeapBuffer heap) const;

 private:
  const Series<W>* series_;
  u64 a_, b_, m_ = 0;
  u64 tds_;
  u64 limit_;
  std::unique_ptr<BSR_BlockT<W>> exact_;
  std::unique_ptr<BSR_BlockB> left_, right_;
  u64 heap_ = 0;
  u64 out_ = 0;
  u64 number_words_ = 0;
  u64 product_words_ = 0;
};

/// The fraction T/U of the terms after an index; both zero when there are none. U lies at the start of the
/// running area, T behind it.
template <class W>
struct SeriesFraction {
  ExactFloat<W> T, U;
};

/// One block (a, b] of a series.
template <class W>
class PSR_BlockB {
 public:
  /// `p`: precision of the whole sum, which caps what is kept. The fold's products are planned for little
  /// memory; for the least with `reduced`.
  PSR_BlockB(const Series<W>& series, u64 a, u64 b, u64 p, u64 tds, u64 levels, u64 halving, bool reduced);

  u64 a() const { return a_; }
  u64 b() const { return b_; }
  u64 tds() const { return tds_; }
  /// Words kept of the fraction behind the block, and of the fraction that it returns.
  u64 tail_words() const { return tail_words_; }
  u64 kept_words() const { return kept_words_; }
  u64 product_words() const { return product_words_; }
  /// Pieces that the tail's fraction is folded in; one transform serves both products with U when it is one.
  u64 pieces() const { return fold_.pieces; }
  /// Plans the fold as fast as `bytes` allow, which hold the block as it is.
  void use_memory(u64 bytes);
  /// Words of the running area, and bytes of heap beside it.
  u64 area_words() const { return area_words_; }
  u64 heap_bytes() const { return heap_; }
  u64 total_bytes() const { return LinearHeapBuffer::cut_bytes<W>(area_words_) + heap_; }
  const BSR_BlockB<W>& recursion() const { return recursion_; }

  /// fraction = that of the terms after a(), from that of the terms after b(), in the running area of
  /// area_words().
  void run(const RunContext& ctx, SeriesFraction<W>& fraction, W* area, LinearHeapBuffer heap) const;

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
  Fold plan_fold(u64 pieces, bool direct) const;
  void use(const Fold& fold);
  void fold(const RunContext& ctx, SeriesFraction<W>& fraction, SeriesNode<W>& node, W* area,
            LinearHeapBuffer heap) const;
  void multiply(const RunContext& ctx, ExactFloat<W>& product, const ExactFloat<W>& x, const ExactFloat<W>& u,
                LinearHeapBuffer heap) const;

  const Series<W>* series_;
  u64 a_, b_;
  u64 tds_;
  u64 tail_words_, kept_words_;
  BSR_BlockB<W> recursion_;
  u64 q_at_, p_at_, r_at_, t_at_;  ///< the running area: U | Q | P | R | T
  u64 area_words_;
  Fold fold_;
  u64 product_words_;
  u64 heap_;
};

/// Outer coefficients: value = (P * p + Q * q) / (D * q) for the sum p/q. P is not zero, D is positive.
struct SeriesCoefficients {
  s64 P = 1;
  s64 Q = 0;
  u64 D = 1;
};

/// The value of a whole series at a precision of p words, or its inverse.
template <class Store>
class PSR_Series {
 public:
  using W = typename Store::Word;
  using Number = typename Store::Number;
  using Arena = typename Store::Arena;
  using Frame = typename Store::Frame;

  /// power 1 gives the value, -1 its inverse; any other throws InvalidParametersException "PSR_SeriesB()",
  /// "Power must be 1 or -1.". `reduced` plans blocks of at most half the precision, each folded in two
  /// parts. Coefficients fit a word.
  PSR_Series(std::unique_ptr<const Series<W>> series, const SeriesCoefficients& coefficients, s32 power,
             u64 p, u64 tds, bool reduced = false);

  Need need() const { return need_; }
  u64 precision() const { return p_; }
  const Series<W>& series() const { return *series_; }
  const std::vector<std::unique_ptr<PSR_BlockB<W>>>& blocks() const { return blocks_; }
  /// How much larger than the precision the numbers of the whole range would be.
  double expansion_factor() const { return expansion_; }

  /// out = the value; out holds need().out_words. Throws BufferTooSmallException "PSR_SeriesB::run()" and
  /// what blocks and the division throw.
  void run(const RunContext& ctx, Frame& frame, Number& out, Arena heap) const;
  void run(const RunContext& ctx, Number& out, Arena heap) const;
  /// The sum's fraction P/Q alone, to p + 2 words or a few more; numbers lie in `heap`. For tests and
  /// measurements.
  void run_fraction(const RunContext& ctx, SeriesFraction<W>& fraction, Arena heap) const;

 private:
  void plan_blocks(bool reduced);
  void sum_blocks(const RunContext& ctx, SeriesFraction<W>& fraction, Arena heap) const;
  void finish(const RunContext& ctx, Frame& frame, SeriesFraction<W>& fraction, Number& out,
              Arena heap) const;

  std::unique_ptr<const Series<W>> series_;
  SeriesCoefficients coefficients_;
  bool inverse_;
  u64 p_;
  u64 tds_;
  std::vector<std::unique_ptr<PSR_BlockB<W>>> blocks_;
  double expansion_ = 0;
  std::string headline_;    ///< the line on the console, made here because a run allocates nothing
  u64 fraction_words_ = 0;  ///< longest T or U of the whole sum
  ProvedDivision<Store> division_;
  Need need_;
};

template <class W>
using PSR_SeriesB = PSR_Series<RamStore<W>>;

}  // namespace orl
