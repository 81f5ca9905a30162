#include "constants/log.body.h"

namespace orl {

template ConstantPlanPointer<RamStore<u32>> make_log_machin<RamStore<u32>>(u64, const MachinFormula&, u64,
                                                                           const RamStore<u32>::Budget&);
template ConstantPlanPointer<RamStore<u64>> make_log_machin<RamStore<u64>>(u64, const MachinFormula&, u64,
                                                                           const RamStore<u64>::Budget&);

}  // namespace orl
