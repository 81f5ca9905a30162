#include "constants/log_agm_alone.body.h"

namespace orl {

template class Log_AGM_alone<RamStore<u32>>;
template class Log_AGM_alone<RamStore<u64>>;

}  // namespace orl
