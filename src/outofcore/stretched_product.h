// Products that are a little longer than a shape, by that shape: the product modulo W^n - 1, and a short product of the lowest
// words, which says what lies above n words (transforms/common/unwrap_product.h). The next shape is up to an eighth longer,
// and so is what it moves.
#pragma once

#include "outofcore/swap_product.h"

namespace orl {

/// The whole product by a shape that holds all but a small part of it, with the scheme for the ring; none where there is no
/// such shape, or for windows and rings.
std::optional<SwapPlan> plan_stretched(SwapScheme scheme, const FarFamily& family, const SwapRequest& request,
                                       const SwapBudget& budget);
/// What swap_multiply() does for plans with above_words.
bool run_stretched(const SwapWork& work);

}  // namespace orl
