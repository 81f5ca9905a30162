// Products whose operands, transforms and result are in memory at once: loaded, multiplied, proved, stored.
#pragma once

#include "outofcore/swap_product.h"

namespace orl {

/// The schemes kRam and kRamHalves; none where the memory is too small, or for halves in a ring.
std::optional<SwapPlan> plan_ram(const SwapRequest& request, const SwapBudget& budget);
/// The scheme kRam by an algorithm that need not be the table's.
std::optional<SwapPlan> plan_ram_by(const Algorithm& algorithm, const SwapRequest& request,
                                    const SwapBudget& budget);
std::optional<SwapPlan> plan_ram_halves(const SwapRequest& request, const SwapBudget& budget);

/// What swap_multiply() does by these schemes. Status "M-Fast" and, for squares, "S-Fast".
bool run_ram(const SwapWork& work);
bool run_ram_halves(const SwapWork& work);

}  // namespace orl
