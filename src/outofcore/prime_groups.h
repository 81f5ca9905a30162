// Products by groups of primes: the transforms of a group fit in memory, those of all primes do not.
//
// 1. Each operand is read once and split to residues of all channels. Those of the first group stay in memory, the others
//    go to a file, packed, a section for each channel.
// 2. Group by group: residues of both operands are loaded, transformed, multiplied and transformed back, and those of the
//    product stored, all but those of the last group.
// 3. The residues of all channels are read side by side and joined to words, from the lowest up.
//
// Overlapped, the next group's residues are loaded while one is worked on, and the last one's stored while the next one's
// first operand is transformed: its memory is that of two transforms and of the packed residues of two operands.
//
// Files     "orv_Ta.sf" has the residues of the first operand and then those of the product, "orv_Tb.sf" those of the second.
//           No two products of an array run at the same time.
// Traffic   with P channels, g in a group and tau bytes of residues per byte: 2 S + 4 tau (1 - g / P) S, at most 10 S for
//           primes below 2^48, where tau is 2 P / (P - 1).
#pragma once

#include "outofcore/swap_product.h"

namespace orl {

/// The shape and the groups that move the fewest bytes; none where not one channel fits.
std::optional<SwapPlan> plan_prime_groups(const FarFamily& family, const SwapRequest& request,
                                          const SwapBudget& budget);
/// What swap_multiply() does by this scheme. Status "VST Streaming: ".
bool run_prime_groups(const SwapWork& work);

}  // namespace orl
