#include "functions/proved.body.h"

namespace orl {

template class ProvedProduct<RamStore<u32>>;
template class ProvedProduct<RamStore<u64>>;
template class ProvedInvsqrtWord<RamStore<u32>>;
template class ProvedInvsqrtWord<RamStore<u64>>;
template class ProvedSqrtFloat<RamStore<u32>>;
template class ProvedSqrtFloat<RamStore<u64>>;
template class ProvedInvsqrtFloat<RamStore<u32>>;
template class ProvedInvsqrtFloat<RamStore<u64>>;
template class ProvedDivision<RamStore<u32>>;
template class ProvedDivision<RamStore<u64>>;

}  // namespace orl
