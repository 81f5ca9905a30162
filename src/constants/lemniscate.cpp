#include "constants/lemniscate.body.h"

namespace orl {

TermSeries lemniscate_terms() {
  return {.name = "Lemniscate_Singular",
          .P = {.polynomial = {126, 5}},
          .Q = {23958, {{1, 0, 2}}},
          .R = {1, {{12, -11}, {12, -7}}},
          .outer = {.P = 1, .Q = 5, .D = 11}};
}

template ConstantPlanPointer<RamStore<u32>> make_lemniscate<RamStore<u32>>(const LemniscateFormula&, u64,
                                                                           const RamStore<u32>::Budget&);
template ConstantPlanPointer<RamStore<u64>> make_lemniscate<RamStore<u64>>(const LemniscateFormula&, u64,
                                                                           const RamStore<u64>::Budget&);

}  // namespace orl
