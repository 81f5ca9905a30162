// The kinds of series: how many numbers a node has, and the rule that joins two neighbouring nodes.
//
//   CommonP2B3     P = P_L Q_R + R_L P_R    Q = Q_L Q_R    R = R_L R_R
//   Hyperdescent   P = P_L Q_R + P_R        Q = Q_L Q_R
//
// with a minus where the series subtracts. Both are rows of FractionKind: P = P_L Q_R + X_L P_R, where X is a
// number of the node or 1. A kind with a rule of another shape derives from SeriesKind; the recursion, the
// merge and its proof (merge.h) know nothing but this interface.
// Source  E. A. Karatsuba, 1991, and B. Haible, T. Papanikolaou, "Fast multiprecision evaluation of series of
//         rational numbers", ANTS 1998, for the splitting.
#pragma once

#include "numbers/run_context.h"
#include "splitting/node.h"

namespace orl {

template <class W>
class SeriesKind {
 public:
  virtual ~SeriesKind() = default;

  /// "CommonP2B3", as the console names it.
  virtual const char* name() const = 0;
  /// Numbers of a node, at most kMaxNodeNumbers.
  virtual u32 numbers() const = 0;
  /// Whether the rule takes the second summand off: a left part of `left_terms` terms, in a series whose
  /// terms alternate or do not. Merges and the fold of a block into its tail ask it alike.
  virtual bool subtracts(bool alternating, u64 left_terms) const = 0;

  /// Bytes of scratch of a merge: no product of two neighbours is longer than `product`, no number of the
  /// right one longer than `right`.
  virtual u64 merge_scratch(const NodeWords& product, const NodeWords& right, u64 tds) const = 0;
  /// left = left joined to right, over left's buffers, in which the right node may lie as well: all operands
  /// are read before a result is written. Each buffer holds left[i].L + right[i].L words and one for a carry.
  /// Hashes follow from those of the operands.
  virtual void merge(const RunContext& ctx, bool subtract, SeriesNode<W>& left, const SeriesNode<W>& right,
                     LinearHeapBuffer scratch) const = 0;
};

/// Nodes P, Q and, where X is R, R.
template <class W>
class FractionKind final : public SeriesKind<W> {
 public:
  /// What P_R is multiplied by: number `factor` of the left node, kNone for 1.
  static constexpr u32 kNone = ~u32{0};

  /// `numbers`: 2 or 3; `factor`: which of them X is, or kNone.
  constexpr FractionKind(const char* name, u32 numbers, u32 factor)
      : name_(name), numbers_(numbers), factor_(factor) {}

  const char* name() const override { return name_; }
  u32 numbers() const override { return numbers_; }
  u32 factor() const { return factor_; }
  bool subtracts(bool alternating, u64 left_terms) const override { return alternating && (left_terms & 1); }
  u64 merge_scratch(const NodeWords& product, const NodeWords& right, u64 tds) const override;
  void merge(const RunContext& ctx, bool subtract, SeriesNode<W>& left, const SeriesNode<W>& right,
             LinearHeapBuffer scratch) const override;

 private:
  bool has_R() const { return numbers_ == 3; }
  void merge_direct(bool subtract, SeriesNode<W>& left, const SeriesNode<W>& right,
                    ParallelContext parallel) const;
  void merge_by_transforms(const RunContext& ctx, bool subtract, SeriesNode<W>& left,
                           const SeriesNode<W>& right, LinearHeapBuffer scratch) const;

  const char* name_;
  u32 numbers_;
  u32 factor_;
};

/// P/Q = sum of P(k)/Q(k) * prod over a < j < k of R(j)/Q(j).
template <class W>
const FractionKind<W>& common_P2B3();
/// P/Q = sum of P(k) / prod over a < j <= k of Q(j).
template <class W>
const FractionKind<W>& hyperdescent();

}  // namespace orl
