// Two neighbouring nodes into one, by the rule of the kind, and proved before it returns.
#pragma once

#include "numbers/run_context.h"
#include "splitting/series.h"

namespace orl {

/// The terms (a, b] of a series.
struct TermRange {
  u64 a = 0;
  u64 b = 0;
  u64 terms() const { return b - a; }
};

/// left = left (range.a, m] and right (m, range.b], as SeriesKind::merge has it. "merge operand" and "merge result" are
/// its fault points. Throws BSRModularCheckFailedException when a result's words have not the hash that the operands'
/// hashes give it, BufferTooSmallException.
template <class W>
void merge_nodes(const Series<W>& series, const TermRange& range, u64 m, const RunContext& ctx,
                 SeriesNode<W>& left, SeriesNode<W>& right, LinearHeapBuffer scratch);

/// Shows every number of a node to the fault seam.
template <class W>
void show_node(const char* site, const SeriesNode<W>& node);

}  // namespace orl
