// Products modulo sets of primes below 2^64 ("N64") and below 2^32 ("N32").
#pragma once

#include "multiply/algorithm.h"

namespace orl {

template <class R>
struct NttRow;

/// The algorithms "N64" and "N32": u32 and u64, in memory.
const Algorithm& n64_algorithm();
const Algorithm& n32_algorithm();
/// The shape `row` of N64 (R = u64) or N32 (u32); it need not stand in the size table. `tables` must hold the
/// NttTables of the row, under the family's id. Throws InvalidParametersException when they do not, or when
/// the primes do not suffice for the shape.
template <class R>
const Parameters& ntt_parameters(ParametersBox& out, const TransformTables* tables, const NttRow<R>& row);

}  // namespace orl
