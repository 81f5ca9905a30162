// The modular redundancy check: a merge is right when its results' words have the hashes that its operands'
// hashes foretell.
#pragma once

#include "numbers/exact_float.h"
#include "numbers/run_context.h"
#include "splitting/node.h"

namespace orl {

/// Compares the words of both numbers with their hashes. On a mismatch prints "BSR Merge Failure: " with the
/// terms on ctx.status and throws BSRModularCheckFailedException "Modular Redundancy Check Failed" with both
/// differences.
template <class W>
void orc_Verify_BSR(const ExactFloat<W>& A, const ExactFloat<W>& B, u64 a, u64 b, const RunContext& ctx);

/// All numbers of a node over (a, b].
template <class W>
void verify_node(const SeriesNode<W>& node, u64 a, u64 b, const RunContext& ctx);

}  // namespace orl
