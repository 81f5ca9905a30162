// Products modulo sets of primes below 2^48.
#pragma once

#include "numbers/algorithm.h"

namespace orl {

class AlgorithmRegistry;

/// The algorithm "C17": u32 and u64, in memory.
const Algorithm& c17_algorithm();
void register_c17(AlgorithmRegistry& registry);

}  // namespace orl
