// Two neighbouring nodes into one, by the rule of the kind:
//
//   CommonP2B3     P = P_L Q_R + R_L P_R    Q = Q_L Q_R    R = R_L R_R
//   Hyperdescent   P = P_L Q_R + P_R        Q = Q_L Q_R
//
// with a minus where the series subtracts. Results are written over the left node's buffers, in which the
// right node may lie as well: all operands are read before a result is written. Q_R and, where it pays, R_L
// are transformed once for their two products. The merge is proved by the hashes before it returns; "merge
// operand" and "merge result" are its fault points.
#pragma once

#include "numbers/run_context.h"
#include "splitting/series.h"

namespace orl {

/// Bytes of scratch of a merge whose products are at most `product_words` long, and whose right node's
/// numbers are at most `right_words` long.
template <class W>
u64 merge_scratch(SeriesKind kind, u64 product_words, u64 right_words, u64 tds);

/// left = left (a, m] and right (m, b]. left's buffers hold left.X.L + right.X.L words and one more for P.
/// Throws BSRModularCheckFailedException, BufferTooSmallException.
template <class W>
void merge_nodes(const Series<W>& series, u64 a, u64 m, u64 b, const RunContext& ctx, SeriesNode<W>& left,
                 SeriesNode<W>& right, LinearHeapBuffer scratch);

/// Keeps the top `words` words of x. The hash is reduced by that of the words that go, so that what it proves
/// still comes from the operands.
template <class W>
void cut_exact(ExactFloat<W>& x, u64 words, ParallelContext parallel);

/// x += y or x -= y, in x's buffer. Words of y below the lowest of x are cut off y: where numbers have been
/// cut, they are no more than x has lost already; exact numbers have none.
template <class W>
void add_exact(ExactFloat<W>& x, ExactFloat<W>& y, bool subtract, ParallelContext parallel);

/// Shows x's words to the fault seam.
template <class W>
void show_fault_point(const char* site, const ExactFloat<W>& x);

}  // namespace orl
