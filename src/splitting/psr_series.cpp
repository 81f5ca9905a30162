#include "splitting/psr_series.body.h"

namespace orl {

template class PSR_Series<RamStore<u32>>;
template class PSR_Series<RamStore<u64>>;

}  // namespace orl
