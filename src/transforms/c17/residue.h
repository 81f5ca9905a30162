// Products modulo sets of primes below 2^48.
#pragma once

#include "multiply/algorithm.h"

namespace orl {

struct ResidueRow;

/// The algorithm "C17": u32 and u64, in memory.
const Algorithm& c17_algorithm();
/// The shape `row`, which need not stand in the size table (every P from 4 to 9 and k = 1, 3, 5, 7 with
/// 8 <= n is one). `tables` must hold the ResidueTables of the row, under "C17". Throws
/// InvalidParametersException when they do not, or when the bounds of the arithmetic refuse the shape. `tds`
/// tasks at most share a stage and its scratch.
const Parameters& residue_parameters(ParametersBox& out, const TransformTables* tables, const ResidueRow& row,
                                     u64 tds);

}  // namespace orl
