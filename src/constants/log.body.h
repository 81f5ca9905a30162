// The definitions of log.h, for the files that instantiate them for a store.
#pragma once

#include <cstdlib>

#include "constants/arccoth.h"
#include "constants/log.h"
#include "constants/series_sum.body.h"

namespace orl {

/// As log.h has it.
template <class Store>
ConstantPlanPointer<Store> make_log_machin(u64 n, const MachinFormula& formula, u64 p,
                                           const typename Store::Budget& budget) {
  using W = typename Store::Word;
  std::vector<SeriesTerm<W>> terms;
  for (const MachinTerm& term : formula)
    terms.push_back({make_arccoth_series<W>(term.x, p + 1),
                     arccoth_coefficients(std::abs(term.coefficient), term.x), term.coefficient < 0});
  return make_series_sum<Store>({"Log_Machin_BigFloatR::run()", to_string(formula, n)}, std::move(terms), p,
                                budget);
}

}  // namespace orl
