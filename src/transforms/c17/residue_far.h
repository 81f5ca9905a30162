// Products modulo sets of primes below 2^48 of numbers on disks.
#pragma once

#include "transforms/common/far_transform.h"

namespace orl {

/// "C17": a prime is a channel; 24 (P - 1) bits a point, P from 4 to 9, 48 bits a packed residue.
const FarFamily& c17_far_family();

}  // namespace orl
