#include "constants/constant_plan.h"

#include "core/exceptions.h"

namespace orl {

s32 checked_power(const char* function, s32 power) {
  if (power != 1 && power != -1) throw InvalidParametersException(function, "Power must be 1 or -1.");
  return power;
}

template <class Number>
void require_hash(const Number& x, u64 hash, const char* function, ParallelContext parallel) {
  if (hash_canon(x.computed_hash(parallel)) != hash_canon(hash))
    throw AlgorithmFailedException(function, "Checksum Mismatch. Multiplication Failed.");
}

template void require_hash(const RamStore<u32>::Number&, u64, const char*, ParallelContext);
template void require_hash(const RamStore<u64>::Number&, u64, const char*, ParallelContext);

}  // namespace orl
