// The vector kernels of "N64" for numbers on disks, beside those of ntt_kernels.h; one table a target.
#pragma once

#include "transforms/ntt/ntt_kernels.h"

namespace orl {

/// One instruction set's functions. Columns and positions are multiples of 8.
struct NttFarKernels {
  /// Levels, 1 to 4, of columns [begin, end) of rows `stride` apart, from node 1 of the modulus' roots; and back.
  void (*columns)(const NttModulus<u64>&, u64* x, u64 stride, u32 levels, u64 begin, u64 end);
  void (*columns_back)(const NttModulus<u64>&, u64* x, u64 stride, u32 levels, u64 begin, u64 end);
  /// The odd factor of one modulus over positions [begin, end); that of position i of sequence t stands at
  /// x + t stride + (i - begin). And back, with the scale.
  void (*odd)(const NttPlan<u64>&, const NttModulus<u64>&, u64* x, u64 stride, u64 begin, u64 end);
  void (*odd_back)(const NttPlan<u64>&, const NttModulus<u64>&, u64* x, u64 stride, u64 begin, u64 end);
};

/// The kernels that a target runs.
const NttFarKernels& ntt_far_kernels(simd::Target target);

}  // namespace orl
