#include "functions/agm.body.h"

namespace orl {

template class AGM2<RamStore<u32>>;
template class AGM2<RamStore<u64>>;
template class AGM1<RamStore<u32>>;
template class AGM1<RamStore<u64>>;

}  // namespace orl
