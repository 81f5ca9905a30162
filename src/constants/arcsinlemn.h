// ArcSinlemn(x/y) = integral of dt / sqrt(1 - t^4) from 0 to x/y
//                 = x/y sum over k >= 0 of binom(2k, k) / (4^k (4k + 1)) (x/y)^(4k),
// a series of kind CommonP2B3:
//
//   P(k) = R(k) = (2k - 1)(4k - 3) x^4,  Q(k) = 2k (4k + 1) y^4,     c ArcSinlemn(x/y) = (c x P + c x Q) / (y Q)
//
// Source  C. F. Gauss, Nachlass, Werke III, 1866.
#pragma once

#include "splitting/term_series.h"

namespace orl {

/// The series with c ArcSinlemn(x/y) as its value, c > 0. x^4 and y^4 fit 64 bits, or for a run with words of 32 bits
/// these: throws InvalidParametersException "ArcSinlemn_Series_BigFloatR()", "x^4 does not fit into a machine word.",
/// "y^4 does not fit into a machine word." or, unless x/y is in (0, 3/4), "Convergence is too slow: N / D < 0.75".
template <class W>
TermSeries arcsinlemn_terms(s64 c, u64 x, u64 y);

}  // namespace orl
