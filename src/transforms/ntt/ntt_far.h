// Products modulo sets of primes of 64 bits of numbers on disks.
#pragma once

#include "transforms/common/far_transform.h"

namespace orl {

/// "N64": a prime is a channel; 32 (P - 1) bits a point, P from 4 to 8, 8 bytes a packed residue.
const FarFamily& n64_far_family();

}  // namespace orl
