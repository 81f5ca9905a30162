#include "constants/log.body.h"

namespace orl {

#define ORVANE_INSTANTIATE(W)                                                                            \
  template ConstantPlanPointer<RamStore<W>> make_log_machin<RamStore<W>>(u64, const MachinFormula&, u64, \
                                                                         const RamStore<W>::Budget&);
ORVANE_INSTANTIATE(u32)
ORVANE_INSTANTIATE(u64)
#undef ORVANE_INSTANTIATE

}  // namespace orl
