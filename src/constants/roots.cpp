#include "constants/roots.body.h"

namespace orl {

#define ORVANE_INSTANTIATE(W)                                                                   \
  template ConstantPlanPointer<RamStore<W>> make_sqrt<RamStore<W>>(const SqrtFormula&, u64,     \
                                                                   const RamStore<W>::Budget&); \
  template ConstantPlanPointer<RamStore<W>> make_golden_ratio<RamStore<W>>(s32, u64,            \
                                                                           const RamStore<W>::Budget&);
ORVANE_INSTANTIATE(u32)
ORVANE_INSTANTIATE(u64)
#undef ORVANE_INSTANTIATE

}  // namespace orl
