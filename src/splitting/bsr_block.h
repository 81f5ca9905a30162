// The exact recursion over one range of a series, and the same under a precision limit.
//
// Plans    immutable; they state bytes of heap and words of output, and run() checks both. What a run cuts is what the
//          plan says, whatever the numbers turn out to be.
// Threads  a fork gives each half its share of tds, half of the heap and half of the output buffers.
// Memory   within a range, the left half's numbers stand at the front of the output buffers, the right half's behind
//          them, and a merge writes over both.
// Proof    every leaf's hashes come from the factors of its terms, every merge is checked (merge.h).
// In RAM only: on disks these blocks are the leaves of a recursion of another kind.
#pragma once

#include <memory>
#include <vector>

#include "splitting/merge.h"

namespace orl {

/// The exact numbers of one range.
template <class W>
class BSR_BlockT {
 public:
  /// range.b > range.a. `halving`: levels at the top whose halves run one after the other, with all threads and one
  /// heap.
  BSR_BlockT(const Series<W>& series, const TermRange& range, u64 tds, u64 halving);

  u64 heap_bytes() const { return plan_.front().heap; }
  /// Capacity of each output buffer.
  const NodeWords& out_words() const { return plan_.front().out; }
  /// No number of the range is longer, no product of the recursion longer than the second.
  u64 number_words() const { return number_words_; }
  u64 product_words() const { return product_words_; }
  /// Fills out's numbers, whose buffers hold out_words(). Throws BufferTooSmallException "BSR_BlockT::run()",
  /// BSRModularCheckFailedException.
  void run(const RunContext& ctx, SeriesNode<W>& out, LinearHeapBuffer heap) const;

 private:
  /// What any node of one depth needs.
  struct Depth {
    u64 tds;
    bool halves_in_turn;
    u64 heap;
    NodeWords out;
  };

  static bool forks(u64 tds, const TermRange& range) { return tds >= 2 && range.terms() > 999; }
  void split(const RunContext& ctx, u64 depth, const TermRange& range, SeriesNode<W>& out,
             LinearHeapBuffer heap) const;
  void fork(const RunContext& ctx, u64 depth, const TermRange& range, SeriesNode<W>& out,
            LinearHeapBuffer heap) const;
  void in_turn(const RunContext& ctx, u64 depth, const TermRange& range, SeriesNode<W>& out,
               LinearHeapBuffer heap) const;
  void descend(const RunContext& ctx, const TermRange& range, SeriesNode<W>& out,
               LinearHeapBuffer heap) const;

  const Series<W>* series_;
  TermRange range_;
  u64 number_words_;
  u64 product_words_;
  std::vector<Depth> plan_;  ///< by depth; the last one no longer forks
};

/// The numbers of one range to a limited precision.
template <class W>
class BSR_BlockB {
 public:
  static constexpr u64 kMaxLimit = u64{1} << 63;

  /// `limit`: words of precision that the range's own sum can use. A range whose numbers fit stays exact; so
  /// does one of fewer than 1000 terms, or with tds below 2.
  BSR_BlockB(const Series<W>& series, const TermRange& range, u64 tds, u64 halving, u64 limit = kMaxLimit);

  u64 heap_bytes() const { return heap_; }
  const NodeWords& out_words() const { return out_; }
  u64 number_words() const { return number_words_; }
  u64 product_words() const { return product_words_; }
  bool exact() const { return exact_ != nullptr; }
  /// Throws InvalidParametersException "BSR_BlockB::run()", "Attempted to run with a larger tds than the plan
  /// supports.", BufferTooSmallException under its name, BSRModularCheckFailedException.
  void run(const RunContext& ctx, SeriesNode<W>& out, LinearHeapBuffer heap) const;

 private:
  const Series<W>* series_;
  TermRange range_;
  u64 m_ = 0;
  u64 tds_;
  u64 limit_;
  std::unique_ptr<BSR_BlockT<W>> exact_;
  std::unique_ptr<BSR_BlockB> left_, right_;
  u64 heap_ = 0;
  NodeWords out_{};
  u64 number_words_ = 0;
  u64 product_words_ = 0;
};

}  // namespace orl
