// Products of numbers on disks of which a large part is made modulo primes and a remainder in floating point.
#pragma once

#include "transforms/common/far_transform.h"

namespace orl {

/// "HNT": the transforms of "VST", and the "FFT" for what lies above their length. The latter takes its operands in memory:
/// a remainder of more than kHntMaxRemainder words (hnt_shape.h), or more than there is memory for, is made by longer
/// transforms of the former.
const FarFamily& hnt_far_family();

}  // namespace orl
