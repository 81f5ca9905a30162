#include "constants/log_agm_alone.body.h"

namespace orl {

#define ORVANE_INSTANTIATE(W)                \
  template class Log_AGM_alone<RamStore<W>>; \
  template ConstantPlanPointer<RamStore<W>> make_log_agm<RamStore<W>>(u64, u64, const RamStore<W>::Budget&);
ORVANE_INSTANTIATE(u32)
ORVANE_INSTANTIATE(u64)
#undef ORVANE_INSTANTIATE

}  // namespace orl
