// The vector kernels of "C17" for numbers on disks (transforms/common/far_transform.h), one table a target: a prime at a
// time, residues in natural order, packed as fields of 48 bits.
//
// A packed residue is r + 2^47 for the reduced residue r, |r| <= p / 2 + 1 < 2^47; eight of them are 48 bytes.
#pragma once

#include "transforms/c17/residue_kernels.h"

namespace orl {

/// Rows of one prime's residues: row j of sequence t, t < odd, begins at x + t sequence_stride + j row_stride.
struct ResidueColumns {
  double* x;
  u64 row_stride, sequence_stride;
  /// The position in its sequence of column 0 of row 0, and from a row's to the next one's.
  u64 position, position_stride;
  u32 odd;     ///< k where the odd factor comes before the levels, or 1
  u32 levels;  ///< 0 to kResidueColumnLevels
  u64 node;    ///< of what the rows are
  u64 tile_columns;

  u64 rows() const { return u64{1} << levels; }
  /// Bytes of a tile.
  u64 tile_bytes() const { return (sizeof(double) * odd * tile_columns) << levels; }
};

/// Primes [first, last) of a set.
struct ResiduePrimes {
  u32 first, last;
};

/// One instruction set's functions. Counts, columns and positions are multiples of 8.
struct ResidueFarKernels {
  /// Reduced residues of the `count` points of `a`, zeros behind its end, modulo some primes of the plan: those
  /// modulo prime r to out + (r - first) stride.
  void (*split)(const ResiduePlan&, ResiduePrimes, OperandBytes a, u64 count, double* out, u64 stride);
  /// `count` residues, |x| <= 15 * 2^48, packed, and back.
  void (*pack)(const ResidueModulus&, const double* x, u64 count, u8* packed);
  void (*unpack)(const u8* packed, u64 count, double* x);
  /// Columns [begin, end) of prime r in place: the odd factor and the levels, from reduced residues; and back, to reduced
  /// ones. `tile` holds tile_bytes().
  void (*columns)(const ResiduePlan&, u32 r, const ResidueColumns&, u64 begin, u64 end, double* tile);
  void (*columns_back)(const ResiduePlan&, u32 r, const ResidueColumns&, u64 begin, u64 end, double* tile);
};

/// The kernels that a target runs.
const ResidueFarKernels& residue_far_kernels(simd::Target target);

}  // namespace orl
