// Products whose length is split in two: a large part modulo primes, a remainder in floating point.
#pragma once

#include "multiply/algorithm.h"

namespace orl {

struct HntRow;

/// The algorithm "HNT": u32 and u64, in memory.
const Algorithm& hnt_algorithm();
/// The shape `row`, which need not stand in the size table. `tables` must hold the HntTables of the row,
/// under "HNT", before the shape runs. Throws InvalidParametersException when the row is no shape.
const Parameters& hnt_parameters(ParametersBox& out, const TransformTables* tables, const HntRow& row,
                                 u64 tds);

}  // namespace orl
