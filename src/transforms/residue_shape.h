// How a shape of the residue transforms is cut into stages, tiles and subtrees.
#pragma once

#include <algorithm>
#include <bit>

#include "transforms/residue_primes.h"

namespace orl {

inline constexpr u32 kResidueBlockLevels = 12;    ///< blocks: 32 KiB, what L1 and L2 hold of two operands
inline constexpr u32 kResidueSubtreeLevels = 15;  ///< 256 KiB: two operands stay in L2

/// Levels of the first stage of sequences of 2^n points. A tile of 2^8 rows is the largest whose columns are
/// whole cache lines in L1.
constexpr u32 residue_stage_levels(u32 n) {
  if (n <= kResidueBlockLevels) return 0;
  return std::clamp(n, kResidueSubtreeLevels + 4, kResidueSubtreeLevels + 8) - kResidueSubtreeLevels;
}

/// Levels that a subtree of m points, above a block, does in memory before its own subtrees.
constexpr u32 residue_memory_levels(u64 m) {
  const u32 above = static_cast<u32>(std::bit_width(m)) - kResidueBlockLevels;  // to half a block
  return std::min(above, u32{4});
}

/// Columns of a tile, a multiple of 8: at most 2^12 points a sequence and 2^16 in all where 8 columns allow
/// it.
constexpr u64 residue_tile_columns(const ResidueRow& row) {
  const u64 rows = u64{1} << residue_stage_levels(row.n);
  u64 columns = std::min<u64>(256, (u64{1} << row.n) / rows / 8);  // little beside the transform itself
  while (columns > 8 && (rows * columns > 4096 || rows * columns * row.P * row.k > 65536)) columns /= 2;
  return columns;
}

/// Bytes of a task's tile; 0 for a shape without stages.
constexpr u64 residue_tile_bytes(const ResidueRow& row) {
  const u32 levels = residue_stage_levels(row.n);
  return levels ? (sizeof(double) * row.P * row.k * residue_tile_columns(row)) << levels : 0;
}

/// Where an inverse pass of `levels` levels reduces row j after its step s, counted from the lowest level:
/// sums that met no product would leave their range.
constexpr bool residue_inverse_reduces(u32 levels, u32 s, u32 j) {
  if (levels == 4 && s == 1) return j % 4 == 0;
  if (s + 1 < levels) return false;
  return j == 0 || (levels > 2 && j < (1u << levels) / 4);
}

}  // namespace orl
