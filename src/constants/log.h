// Log(n) of a whole number by a Machin-like formula, the sum of c ArcCoth(x) over its terms; Log(2) by a series of its
// own, which takes two thirds of the time.
#pragma once

#include "constants/constant_plan.h"
#include "machin/formula.h"
#include "splitting/term_series.h"

namespace orl {

/// A plan of ln n to p words by a formula that is proved. Throws as make_arccoth_series does.
template <class Store>
ConstantPlanPointer<Store> make_log_machin(u64 n, const MachinFormula& formula, u64 p,
                                           const typename Store::Budget& budget);

/// J. Zuniga's series of Log(2), 2023 (arXiv:2506.08245).
TermSeries log2_terms();

/// A plan of ln 2 to p words by that series.
template <class Store>
ConstantPlanPointer<Store> make_log2(u64 p, const typename Store::Budget& budget);

}  // namespace orl
