// Square roots and the golden ratio: one Newton iteration and linear steps. The iteration is proved by its
// residual, the steps behind it by the hash that the root had before that proof.
#pragma once

#include "constants/constant_plan.h"

namespace orl {

/// sqrt(n) for power 1, 1/sqrt(n) for power -1.
struct SqrtFormula {
  u64 n = 2;
  s32 power = 1;
};

/// A plan of a square root to p words, n >= 1 and of one word. Any other power throws InvalidParametersException
/// "Power must be 1 or -1.", n = 0 throws ArithmeticException "Divide by zero.".
template <class Store>
ConstantPlanPointer<Store> make_sqrt(const SqrtFormula& formula, u64 p, const typename Store::Budget& budget);

/// A plan of phi = (5v + 1)/2 for power 1, 1/phi = phi - 1 for power -1, v = 1/sqrt(5), to p words. Any other
/// power throws InvalidParametersException "Power must be 1 or -1.".
template <class Store>
ConstantPlanPointer<Store> make_golden_ratio(s32 power, u64 p, const typename Store::Budget& budget);

}  // namespace orl
