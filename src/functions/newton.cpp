#include "functions/newton.body.h"

namespace orl {

template class InvsqrtWord<RamStore<u32>>;
template class InvsqrtWord<RamStore<u64>>;
template class InvsqrtFloat<RamStore<u32>>;
template class InvsqrtFloat<RamStore<u64>>;
template class Reciprocal<RamStore<u32>>;
template class Reciprocal<RamStore<u64>>;
template class Division<RamStore<u32>>;
template class Division<RamStore<u64>>;

}  // namespace orl
