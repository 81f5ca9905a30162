// Basecase/Karatsuba multiplication as an algorithm of the multiplication front: id "BKT", products up to
// 0x10000 bits, no tables. Its forward transform is a copy of the operand.
#pragma once

#include "multiply/algorithm.h"

namespace orl {

class AlgorithmRegistry;

/// The instance for W = u32 or u64.
template <class W>
const Algorithm& basecase_algorithm();

/// Adds "BKT" with its two instances in RAM.
void register_basecase(AlgorithmRegistry& registry);

}  // namespace orl
