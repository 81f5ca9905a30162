// ArcCoth(x) = sum over k >= 0 of 1 / ((2k + 1) x^(2k + 1)), a series of kind CommonP2B3 with y = x^2:
//
//   P(k) = 1,  Q(k) = y (2k + 1),  R(k) = 2k + 1,     c ArcCoth(x) = (c P + c Q) / (x Q)
//
// Q of a range is y^(b - a) times R; the power is as long as what it would save.
// Source  N. Mercator, Logarithmotechnia, 1668; binary splitting as in kind.h.
#pragma once

#include "splitting/outer_sum.h"
#include "splitting/series.h"

namespace orl {

/// The series for its terms: 1 to p words. 2 <= x < 2^32: throws InvalidParametersException
/// "Series_ArcCoth_Base()", "Argument is too small." or "Argument is too large.".
template <class W>
std::unique_ptr<const Series<W>> make_arccoth_series(u64 x, u64 p);

/// What makes c ArcCoth(x) of the series' sum.
SeriesCoefficients arccoth_coefficients(s64 c, u64 x);

}  // namespace orl
