#include "constants/pi.body.h"
#include "splitting/term_series.h"

namespace orl {

TermSeries pi_terms(PiSeries series) {
  if (series == PiSeries::kChudnovsky)
    return {.name = "Pi_Chudnovsky",
            .P = {.polynomial = {545140134, 13591409}, .negative = true},
            .Q = {10939058860032000, {{1, 0, 3}}},
            .R = {1, {{6, -5}, {2, -1}, {6, -1}}},
            .alternating = true,
            .wide_P = "PR2",
            .wide_R = "PR2"};
  // The rate is lower than ln(9801^2) in the sixth decimal, as it was given: a few terms more than the sum needs.
  return {.name = "Pi_Ramanujan",
          .P = {.polynomial = {26390, 1103}},
          .Q = {3073907232, {{1, 0, 3}}},
          .R = {1, {{2, -1}, {4, -3}, {4, -1}}},
          .rate = "18.38047627747241588639166145022043732094"};
}

template <class W>
std::unique_ptr<const Series<W>> make_pi_series(PiSeries series, u64 p) {
  return make_term_series<W>(pi_terms(series), p);
}

#define ORVANE_INSTANTIATE(W)                                                           \
  template std::unique_ptr<const Series<W>> make_pi_series<W>(PiSeries, u64);           \
  template ConstantPlanPointer<RamStore<W>> make_pi<RamStore<W>>(const PiFormula&, u64, \
                                                                 const RamStore<W>::Budget&);
ORVANE_INSTANTIATE(u32)
ORVANE_INSTANTIATE(u64)
#undef ORVANE_INSTANTIATE

}  // namespace orl
