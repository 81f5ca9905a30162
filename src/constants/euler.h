// Euler's constant by the method of Brent and McMillan: euler_series.h has the formulas.
//
// Series A and B are one sum of kind BrentMcMillanAB, whose quotient is divided out once. C / B^2 is needed to half of
// the precision at most, so 1/B is a division of that length, and C a series of its own. Log(2) is another series
// (one_series.h).
#pragma once

#include "constants/constant_plan.h"
#include "constants/euler_series.h"

namespace orl {

/// Which formula, and n = 2^e.
struct EulerFormula {
  EulerVariant variant = EulerVariant::kRefined;
  u32 e = 0;  ///< 0: the smallest one that serves
};

/// A plan of Euler's constant to p words. Throws InvalidParametersException "BrentMcMillan_BigFloatR()" with
/// refused_euler_exponent() when it has something against e.
template <class Store>
ConstantPlanPointer<Store> make_euler(const EulerFormula& formula, u64 p,
                                      const typename Store::Budget& budget);

}  // namespace orl
