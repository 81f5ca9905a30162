// Products in two or three passes: shapes, files and stages. far_passes.h has the passes themselves.
#pragma once

#include "outofcore/swap_product.h"

namespace orl {

/// The shape that moves the fewest bytes by two passes, or by three; none where no shape fits.
std::optional<SwapPlan> plan_passes(SwapScheme scheme, const FarFamily& family, const SwapRequest& request,
                                    const SwapBudget& budget);
/// What swap_multiply() does by these schemes. Status "VST Streaming: ", and "CRT-F: " and "CRT-I: " for its stages.
bool run_passes(const SwapWork& work);

}  // namespace orl
