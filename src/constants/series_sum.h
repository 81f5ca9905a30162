// A constant that is a sum of several series' values, with signs: c_1 S_1 - c_2 S_2 + ...
//
// Order    one series after the other, each with the whole heap; the running sum lies in the result. What a
//          series computes stands beside it until it is added.
// Proof    each value comes with the hash that its division was proved by. The hash of the running sum
//          follows from theirs and from what a sum cuts off, and is compared with the words at the end.
#pragma once

#include <string>
#include <vector>

#include "constants/constant_plan.h"
#include "splitting/outer_sum.h"
#include "splitting/series.h"

namespace orl {

/// A summand: the value of a series, added or subtracted. The value itself is positive.
template <class W>
struct SeriesTerm {
  std::unique_ptr<const Series<W>> series;
  SeriesCoefficients coefficients;
  bool subtracted = false;
  SeriesMemory memory = SeriesMemory::kFast;
};

/// What a sum says of itself.
struct SeriesSumNames {
  const char* run;       ///< the name of run() in exceptions
  std::string headline;  ///< the line on the console
};

/// A plan of the sum to p words, from series for p + 1 words. At least one term; the sum is not much smaller
/// than its largest summand.
template <class Store>
ConstantPlanPointer<Store> make_series_sum(SeriesSumNames names,
                                           std::vector<SeriesTerm<typename Store::Word>> terms, u64 p,
                                           const typename Store::Budget& budget);

}  // namespace orl
