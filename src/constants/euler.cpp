#include "constants/euler.body.h"

namespace orl {

template ConstantPlanPointer<RamStore<u32>> make_euler<RamStore<u32>>(const EulerFormula&, u64,
                                                                      const RamStore<u32>::Budget&);
template ConstantPlanPointer<RamStore<u64>> make_euler<RamStore<u64>>(const EulerFormula&, u64,
                                                                      const RamStore<u64>::Budget&);

}  // namespace orl
