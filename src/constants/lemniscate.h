// The lemniscate constant 5.2441151..., the length of the lemniscate of half-width 1: 2 Pi / AGM(1, sqrt(2)).
//
//   formula     value
//   agm-pi      2 Pi / AGM(1, sqrt(2))
//   Gauss       8 ArcSinlemn(1/2) + 4 ArcSinlemn(7/23)
//   Sebah       8 ArcSinlemn(2/3) - 4 ArcSinlemn(7/137)
//   singular    11 * 33^(1/4) / sum over n >= 0 of (126 n + 5) (1/12)_n (5/12)_n / (n!)^2 (8/1331)^n
//
// Source  C. F. Gauss, diary, 30 May 1799 (agm-pi), and Nachlass, Werke III, 1866. P. Sebah. The last one is a series
//         at the singular value of complex multiplication by Z[2i], j = 66^3, as S. Ramanujan's of 1914 are; found by
//         an integer relation.
#pragma once

#include "constants/constant_plan.h"
#include "splitting/term_series.h"

namespace orl {

/// Which formula.
enum class LemniscateAlgorithm { kAgmPi, kGauss, kSebah, kSingular };

/// A formula; power -1 gives the inverse of the constant, not by Gauss and Sebah.
struct LemniscateFormula {
  LemniscateAlgorithm algorithm = LemniscateAlgorithm::kSingular;
  s32 power = 1;
};

/// The series of the singular value.
TermSeries lemniscate_terms();

/// A plan of the constant to p words. Throws InvalidParametersException "(Power = -1) is not supported for (Algorithm =
/// gauss)." and so for sebah, "Power must be 1 or -1.", "Invalid Algorithm".
template <class Store>
ConstantPlanPointer<Store> make_lemniscate(const LemniscateFormula& formula, u64 p,
                                           const typename Store::Budget& budget);

}  // namespace orl
