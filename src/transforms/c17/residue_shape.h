// How a shape of the residue transforms is cut into stages, tiles and subtrees.
#pragma once

#include <algorithm>
#include <bit>

#include "transforms/c17/residue_primes.h"

namespace orl {

inline constexpr u32 kResidueBlockLevels = 12;    ///< blocks: 32 KiB, what L1 and L2 hold of two operands
inline constexpr u32 kResidueSubtreeLevels = 16;  ///< 512 KiB: two operands stay in an L2 of 2 MiB

/// Levels of the first stage of sequences of 2^n points. A tile of 2^8 rows is the largest whose columns are
/// whole cache lines in L1.
constexpr u32 residue_stage_levels(u32 n) {
  if (n <= kResidueBlockLevels) return 0;
  return std::clamp(n, kResidueSubtreeLevels + 4, kResidueSubtreeLevels + 8) - kResidueSubtreeLevels;
}

/// Doubles from one subtree of a sequence to the next. An unused cache line follows each: without it the rows
/// of a column would stand a large power of two apart and share few cache sets.
constexpr u64 residue_subtree_stride(const ResidueRow& row) {
  const u32 levels = residue_stage_levels(row.n);
  return (u64{1} << (row.n - levels)) + (levels ? 8 : 0);
}

/// Doubles of a transform.
constexpr u64 residue_doubles(const ResidueRow& row) {
  return (residue_subtree_stride(row) * row.P * row.k) << residue_stage_levels(row.n);
}

/// Levels that a subtree of m points, above a block, does in memory before its own subtrees.
constexpr u32 residue_memory_levels(u64 m) {
  const u32 above = static_cast<u32>(std::bit_width(m)) - kResidueBlockLevels;  // to half a block
  return std::min(above, u32{4});
}

/// Levels of a block, down to tiles of 64 points.
constexpr u32 residue_block_levels(u64 m) { return static_cast<u32>(std::bit_width(m)) - 7; }

/// Tables of roots for the blocks of a subtree of m points that stays in cache: two a block.
constexpr u64 residue_block_roots(u64 m) {
  u64 blocks = 1;
  while (m > u64{1} << kResidueBlockLevels) {
    const u32 levels = residue_memory_levels(m);
    blocks <<= levels;
    m >>= levels;
  }
  return 2 * blocks;
}
/// Tables from those of one subtree of a subtree of m points, above a block, to those of the next. 0: all
/// have the same.
constexpr u64 residue_roots_apart(u64 m) {
  return m > u64{1} << kResidueSubtreeLevels ? 0 : residue_block_roots(m >> residue_memory_levels(m));
}
/// Bytes of a table.
inline constexpr u64 kResidueBlockRootsBytes = 2 * sizeof(double) * ((u64{1} << kResidueBlockLevels) / 8 + 8);

/// Bytes of the tables that subtrees of m points need.
constexpr u64 residue_roots_bytes(u64 m) {
  return residue_block_roots(std::min(m, u64{1} << kResidueSubtreeLevels)) * kResidueBlockRootsBytes;
}

/// Columns of a tile, a multiple of 8: at most 2^12 points per sequence and 2^16 in all where 8 columns allow
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

/// Levels that a tile of rows goes down at once, at most.
inline constexpr u32 kResidueColumnLevels = 8;

/// Levels of the first of the passes over a tile: at most four, in registers.
constexpr u32 residue_upper_levels(u32 levels) { return levels <= 4 ? levels : (levels + 1) / 2; }

// Sums that meet no product leave their range and are reduced on the way. A pass at the root, x^M - 1, whose
// leftmost factors are 1, has more of them.

/// Whether a forward pass at the root reduces row j at its end.
constexpr bool residue_forward_reduces(u32 levels, u32 j) { return levels > 2 && j < (1u << levels) / 4; }
/// Whether an inverse pass of `levels` levels reduces row j after its step s, counted from the lowest level.
constexpr bool residue_inverse_reduces(u32 levels, u32 s, u32 j, bool at_root) {
  if (levels == 4 && s == 1) return j % 4 == 0;
  if (s + 1 < levels) return false;
  return j == 0 || (levels > 2 && j < (1u << levels) / 4) || (at_root && j % 2 == 0);
}

/// Whether an odd factor's inverse reduces what it reads: that of 5 multiplies sums of four.
constexpr bool residue_odd_reduces(u32 k) { return k == 5; }

}  // namespace orl
