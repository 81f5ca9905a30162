#include "functions/power.body.h"

namespace orl {

template class Power_uL<RamStore<u32>>;
template class Power_uL<RamStore<u64>>;
template class Power_nL<RamStore<u32>>;
template class Power_nL<RamStore<u64>>;

}  // namespace orl
