// e and 1/e by their Taylor series: kind Hyperdescent with P(k) = 1, Q(k) = k.
//
//   series        power   value
//   plain             1   (P + Q) / Q
//   alternating       1   Q / (Q - P)
//   alternating      -1   (Q - P) / Q
//
// Source  L. Euler, Introductio in analysin infinitorum, 1748.
#pragma once

#include "constants/constant_plan.h"
#include "splitting/series.h"

namespace orl {

/// Which series: that of exp(1), or of exp(-1).
enum class ETaylor {
  kPlain,        ///< exp(1)
  kAlternating,  ///< exp(-1), and e as its inverse
};

/// A row of the table.
struct EFormula {
  ETaylor series = ETaylor::kPlain;
  s32 power = 1;
};

/// The Taylor series for its terms: 1 to p words.
template <class W>
std::unique_ptr<const Series<W>> make_e_series(ETaylor series, u64 p);

/// A plan of e (power 1) or 1/e (power -1) to p words. Throws InvalidParametersException "Power must be 1 or -1."
/// and, for power -1 without the alternating series, "Inversion not supported for non-alternating series.".
template <class Store>
ConstantPlanPointer<Store> make_e(const EFormula& formula, u64 p, const typename Store::Budget& budget);

}  // namespace orl
