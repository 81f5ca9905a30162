// Pi and 1/Pi by the series of the Chudnovskys or of Ramanujan, times 1/sqrt(x).
//
//   series     power   value
//   Chudnovsky     1   4270934400 Q / (P + 13591409 Q) / sqrt(10005)
//   Chudnovsky    -1   (P + 13591409 Q) / (426880 Q) / sqrt(10005)
//   Ramanujan      1   9801 Q / (P + 1103 Q) / sqrt(8)
//   Ramanujan     -1   (4 P + 4412 Q) / (9801 Q) / sqrt(2)
//
// with P, Q of the whole sum. No product is longer than about 1.4 p words: those of the
// largest block with the fraction behind it.
// Source  D. and G. Chudnovsky, "Approximations and complex multiplication according to Ramanujan", 1988.
//         S. Ramanujan, "Modular equations and approximations to Pi", Quart. J. Math. 45, 1914.
#pragma once

#include "constants/constant_plan.h"
#include "splitting/psr_block.h"
#include "splitting/term_series.h"

namespace orl {

/// Whose series.
enum class PiSeries { kChudnovsky, kRamanujan };

/// Which of the table's rows, and how large the blocks of its series may be.
struct PiFormula {
  PiSeries series = PiSeries::kChudnovsky;
  s32 power = 1;
  SeriesMemory memory = SeriesMemory::kFast;
};

/// The terms of a series of Pi.
TermSeries pi_terms(PiSeries series);

/// A series of Pi for its terms: 1 to p words. For tests and measurements of the splitting itself.
template <class W>
std::unique_ptr<const Series<W>> make_pi_series(PiSeries series, u64 p);

/// A plan of Pi (power 1) or 1/Pi (power -1) to p words. Any other power throws InvalidParametersException
/// "Pi_Series_BigFloatR()", "Power must be 1 or -1.".
template <class Store>
ConstantPlanPointer<Store> make_pi(const PiFormula& formula, u64 p, const typename Store::Budget& budget);

}  // namespace orl
