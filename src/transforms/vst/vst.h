// Products modulo sets of primes below 2^48, all primes of a point kept together.
#pragma once

#include "multiply/algorithm.h"

namespace orl {

struct VstShape;

/// The algorithm "VST": u32 and u64, in memory.
const Algorithm& vst_algorithm();
/// The shape `shape`, which need not stand in the size table. `tables` must hold the VstTables of the shape,
/// under "VST". Throws InvalidParametersException when they do not, or when the shape's blocks or bounds
/// refuse it.
const Parameters& vst_parameters(ParametersBox& out, const TransformTables* tables, VstShape shape);

}  // namespace orl
