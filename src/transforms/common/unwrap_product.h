// A product that is longer than its transform, from its residue modulo W^n - 1 and its lowest words.
#pragma once

#include "core/types.h"
#include "threads/parallelizer.h"

namespace orl {

/// T[0, n + m), W = 2^32: a product below W^(n + m), 0 < m < n, of which T[0, n) holds the residue modulo W^n - 1, where
/// W^n - 1 stands for 0 too, and low[0, m] the lowest m + 1 words, which are lost. False when no product has both:
/// then one of the two is wrong.
bool unwrap_product(u32* T, u64 n, u32* low, u64 m, ParallelContext parallel);

}  // namespace orl
