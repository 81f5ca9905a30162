// Products modulo sets of primes below 2^48 of numbers on disks, all primes of a point kept together.
#pragma once

#include "transforms/common/far_transform.h"

namespace orl {

/// "VST": one channel; the points of "C17", whose residues are packed prime by prime for eight points at a time.
const FarFamily& vst_far_family();

}  // namespace orl
