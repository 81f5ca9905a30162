#include "functions/log_agm.body.h"

namespace orl {

template class Log_AGM<RamStore<u32>>;
template class Log_AGM<RamStore<u64>>;

}  // namespace orl
