#include "splitting/psr_series.body.h"

namespace orl {

bool is_inverse(const char* function, s32 power) {
  if (power != 1 && power != -1) throw InvalidParametersException(function, "Power must be 1 or -1.");
  return power == -1;
}

template class PSR_Series<RamStore<u32>>;
template class PSR_Series<RamStore<u64>>;

}  // namespace orl
