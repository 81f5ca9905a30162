// Two formulas of one logarithm: one computes it, the other verifies the result.
//
// Both are looked for anew for the precision that is asked for, since what is cheapest depends on it, and
// held against the stored ones; the cheaper of the two stands. No x stands in both. Each is proved in
// integers and added up in double-double before anybody sees it.
#pragma once

#include "machin/formula.h"
#include "machin/stored_formulas.h"

namespace orl {

/// The formulas of ln n for a precision of `nats`, n in [2, 2^31); at most a fraction of a second each. Says
/// on the output what it is doing, how long that took, and when a search has beaten `stored`. Throws
/// AlgorithmFailedException "Unable to derive formula." or that of require_verified().
LogFormulas generate_log_formulas(u64 n, double nats,
                                  std::span<const StoredLogFormulas> stored = stored_log_formulas());

/// Throws AlgorithmFailedException "Unable to verify correctness of formula." with the number of the formula,
/// 0 or 1, that is not proved or does not add up to ln n.
void require_verified(const LogFormulas& formulas, u64 n);

}  // namespace orl
