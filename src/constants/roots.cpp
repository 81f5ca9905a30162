#include "constants/roots.body.h"

namespace orl {

template class Sqrt_Newton<RamStore<u32>>;
template class Sqrt_Newton<RamStore<u64>>;
template class GoldenRatio_Newton<RamStore<u32>>;
template class GoldenRatio_Newton<RamStore<u64>>;

}  // namespace orl
