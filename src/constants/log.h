// Log(n) of a whole number by a Machin-like formula: the sum of c ArcCoth(x) over its terms. Log(2) has a series of its
// own as well, which takes two thirds of the time (one_series.h).
#pragma once

#include "constants/constant_plan.h"
#include "machin/formula.h"

namespace orl {

/// A plan of ln n to p words by a formula that is proved. Throws as make_arccoth_series does.
template <class Store>
ConstantPlanPointer<Store> make_log_machin(u64 n, const MachinFormula& formula, u64 p,
                                           const typename Store::Budget& budget);

}  // namespace orl
