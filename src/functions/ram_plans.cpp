// The plans of this folder for runs in memory, over both word types.
#include "functions/proved.body.h"

namespace orl {

#define ORVANE_INSTANTIATE(W)                     \
  template class InvsqrtWord<RamStore<W>>;        \
  template class RootPair<RamStore<W>>;           \
  template class SqrtFloat<RamStore<W>>;          \
  template class InvsqrtFloat<RamStore<W>>;       \
  template class Reciprocal<RamStore<W>>;         \
  template class Division<RamStore<W>>;           \
  template class ProvedProduct<RamStore<W>>;      \
  template class ProvedInvsqrtWord<RamStore<W>>;  \
  template class ProvedSqrtFloat<RamStore<W>>;    \
  template class ProvedInvsqrtFloat<RamStore<W>>; \
  template class ProvedDivision<RamStore<W>>;
ORVANE_INSTANTIATE(u32)
ORVANE_INSTANTIATE(u64)
#undef ORVANE_INSTANTIATE

}  // namespace orl
