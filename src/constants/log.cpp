#include "constants/log.body.h"

namespace orl {

TermSeries log2_terms() {
  return {.name = "Log2_Zuniga_BSR",
          .P = {.polynomial = {1794, 1497}},
          .Q = {216, {{6, 1}, {6, 5}}},
          .R = {1, {{1, 0}, {2, -1}}},
          .outer = {.P = 1, .Q = 1497, .D = 2160}};
}

#define ORVANE_INSTANTIATE(W)                                                                            \
  template ConstantPlanPointer<RamStore<W>> make_log_machin<RamStore<W>>(u64, const MachinFormula&, u64, \
                                                                         const RamStore<W>::Budget&);    \
  template ConstantPlanPointer<RamStore<W>> make_log2<RamStore<W>>(u64, const RamStore<W>::Budget&);
ORVANE_INSTANTIATE(u32)
ORVANE_INSTANTIATE(u64)
#undef ORVANE_INSTANTIATE

}  // namespace orl
