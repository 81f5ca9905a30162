// Floating-point FFT, the algorithm "FFT": products of up to 0x6000000 bits in
// double precision.
//
// Shape    k (1, 3 or 5), s and w: N = k * 2^s real points of w bits each, unsigned; a product of N * w bits
//          fits. fft_table.h lists the shapes, fft_bounds.h shows why their points round to the right
//          integer.
// Data     a real right-angle convolution: N real points are N/2 complex points x[i] + i * x[i + N/2] of a
//          polynomial modulo x^(N/2) - i. Forward transforms are left in bit-reversed order; the pointwise
//          step and the inverse read them so. A transform is 8 N bytes.
// Rounding the mode must be round-to-nearest; nothing in the program changes it.
// Threads  large shapes cut their work into ctx.parallel.tds tasks; the result does not depend on tds.
// Source   R. Crandall, B. Fagin, "Discrete weighted transforms and large-integer arithmetic", Math. Comp. 62
//          (1994): the right-angle convolution.
#pragma once

#include "multiply/algorithm.h"

namespace orl {

/// The one instance: u32 and u64 words, products in RAM.
const Algorithm& fft_algorithm();

}  // namespace orl
