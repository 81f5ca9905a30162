// Constants that are one series and a division: (a P + b Q) / (c Q) or its inverse, with P/Q the whole sum.
//
// A row is the line on the console and the terms. The terms are those of the sources, from k = 1 on, and b stands for
// the one before them:
//
//   Zeta(3), Amdeberhan, Zeilberger   "Hypergeometric series acceleration via the WZ method", Electron. J. Combin. 4,
//                                     1997
//   Zeta(3), Wedeniwski               from the WZ pairs of the same paper, 1998
//   Catalan, Pilehrood                Kh. and T. Hessami Pilehrood, "Series acceleration formulas for beta values", 2010
//   Catalan, Guillera                 "Hypergeometric identities for 10 extended Ramanujan-type series", 2008
//   Catalan, Lupas                    "Formulae for some classical constants", 2000
//   Catalan, Huvent                   2006; here nine of its squared denominators are one Q
//   Zeta(3), Catalan, Zuniga          2023
//   Log(2), Zuniga                    2023, arXiv:2506.08245
#pragma once

#include "constants/constant_plan.h"
#include "splitting/term_series.h"

namespace orl {

/// Which row.
enum class OneSeries {
  kZeta3Wedeniwski,
  kZeta3AmdeberhanZeilberger,
  kZeta3Zuniga,
  kCatalanPilehroodShort,
  kCatalanPilehroodLong,
  kCatalanGuillera,
  kCatalanLupas,
  kCatalanHuvent,
  kCatalanZuniga,
  kLog2Zuniga,
};
inline constexpr u32 kOneSeriesCount = 10;

/// A row.
struct OneSeriesRow {
  const char* line;  ///< on the console
  TermSeries terms;
};
/// The row of `which`.
OneSeriesRow one_series_row(OneSeries which);

/// A plan of the constant (power 1) or its inverse (power -1) to p words. Any other power throws
/// InvalidParametersException under the series' name, such as "Zeta3_AZ1_BigFloatR()", "Power must be 1 or -1.".
template <class Store>
ConstantPlanPointer<Store> make_one_series(OneSeries which, s32 power, u64 p,
                                           const typename Store::Budget& budget);

}  // namespace orl
