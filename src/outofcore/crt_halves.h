// Products from their residues modulo W^n - 1 and W^n + 1, W = 2^32, each a product by another scheme: transforms of half the
// length, one after the other.
//
// 1. An operand of more than n words is folded modulo both.
// 2. The product modulo W^n - 1, and that modulo W^n + 1, go to files of their own.
// 3. Both are read once, side by side; the low and the high half of the product leave together.
//
// Source   the Chinese remainder theorem (multiply/crt_combine.cpp has the formula). With c and d the residues, E the words of
//          c - d and b its borrow, t is E / 2 with a bit above; the product is d + t (W^n + 1). Bits and carries that come from
//          words not yet seen are added when all have been.
// Files    "orv_CRT_Ac.sf" and "orv_CRT_An.sf" have a folded operand, "orv_CRT_Cc.sf" and "orv_CRT_Cn.sf" the products,
//          "orv_CRT_T(Ac).sf" and the like the residues of operands while a half is made.
#pragma once

#include "outofcore/swap_product.h"

namespace orl {

/// The halves that move the fewest bytes; none in a ring, and where no scheme makes them.
std::optional<SwapPlan> plan_crt_halves(const FarFamily& family, const SwapRequest& request,
                                        const SwapBudget& budget);
/// What swap_multiply() does by this scheme. Status "CRT-CA-", "CRT-CB-", "CRT-CM-" and "CRT-CI-" while the first residue is
/// made, "CRT-NA-" and so on during the second, by schemes that have such stages.
bool run_crt_halves(const SwapWork& work);

}  // namespace orl
