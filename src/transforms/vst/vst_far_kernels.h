// The vector kernels of "VST" for numbers on disks, beside those of vst_kernels.h; one table a target.
#pragma once

#include "transforms/vst/vst_kernels.h"

namespace orl {

/// Rows of a stripe: row j of the i-th of its sequences begins at x + i sequence_stride + j row_stride doubles, and is as many
/// rows of eight points as it has columns / 8.
struct VstStripe {
  double* x;
  u64 row_stride, sequence_stride;
  u32 sequences;  ///< k, and then the odd factor comes before the levels; or 1
  u32 sequence;   ///< the first of them
  u32 levels;     ///< to be done, of rows that are subtrees of `node` at `level`
  u32 level;
  u64 node;
};

/// One instruction set's functions.
struct VstFarKernels {
  /// Reduced residues of the `count` points of `a`, zeros behind its end: rows of eight points one after the other.
  void (*split)(const VstPlan&, OperandBytes a, u64 count, double* out);
  /// VstKernels::first_stage() of reduced residues of points in place of words.
  void (*start)(const VstPlan&, double* F, u64 begin, u64 end);
  /// Rows of eight points [begin, end) of each row of a stripe, and back. Residues come reduced.
  void (*columns)(const VstPlan&, const VstStripe&, u64 begin, u64 end);
  void (*columns_back)(const VstPlan&, const VstStripe&, u64 begin, u64 end);
};

/// The kernels that a target runs.
const VstFarKernels& vst_far_kernels(simd::Target target);

}  // namespace orl
