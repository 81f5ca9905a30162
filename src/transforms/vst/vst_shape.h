// Shapes of the algorithm "VST": how k * 2^n points modulo P primes lie in memory and how they are walked.
//
// A row is eight consecutive points: eight residues of each prime in turn, P cache lines. A sequence of 2^n
// points is cut by the first stage into 2^a subtrees; subtrees above 2^c points are cut into 2^b each until
// they have 2^c points, which fit in cache with all their primes. Every subtree is followed by one unused
// row: without it the rows of a column would stand a large power of two apart and share a few cache sets.
#pragma once

#include <span>

#include "transforms/c17/residue_primes.h"

namespace orl {

inline constexpr u32 kVstRow = 8;         // points
inline constexpr u32 kVstTileLevels = 6;  // what is multiplied in registers: 64 points
inline constexpr u32 kVstMaxLevels = 8;   // of a pass over memory

/// Levels of the first of the passes that take `levels` levels, 1 to 8: at most four, in registers.
constexpr u32 vst_pass_levels(u32 levels) { return levels <= 4 ? levels : (levels + 1) / 2; }

/// One row of the size table; a, b, c are 0 where the defaults are to be taken.
struct VstRow {
  u8 P, k, n, a = 0, b = 0, c = 0;
  constexpr ResidueRow row() const { return {P, k, n}; }
  constexpr u64 bits() const { return row().bits(); }
};

/// A row, and how its levels are cut into passes.
struct VstShape {
  ResidueRow row;
  u32 a, b, c;

  /// Fills what `row` leaves open. Throws InvalidParametersException "Invalid Function Parameters:   " when
  /// the blocks do not make up the levels, exceed those of the prime set, or when residues could leave their
  /// range.
  explicit VstShape(const VstRow& row);

  u64 bits() const { return row.bits(); }
  u64 length() const { return u64{1} << row.n; }
  u64 children() const { return u64{1} << a; }
  /// Rows of a subtree of 2^levels points, with the unused ones.
  u64 stride(u32 levels) const {
    u64 rows = (u64{1} << (c - 3)) + 1;
    for (u32 l = c; l < levels; l += b) rows = (rows << b) + 1;
    return rows;
  }
  /// Where row `index` of a subtree of 2^levels points stands.
  u64 place(u32 levels, u64 index) const {
    u64 at = 0;
    for (; levels > c; levels -= b) {
      const u64 child = index >> (levels - b - 3);
      at += child * stride(levels - b);
      index -= child << (levels - b - 3);
    }
    return at + index;
  }
  u32 child_levels() const { return row.n - a; }
  u64 row_doubles() const { return u64{kVstRow} * row.P; }
  u64 doubles() const { return row.k * children() * stride(child_levels()) * row_doubles(); }
  bool operator==(const VstShape& o) const {
    return row.P == o.row.P && row.k == o.row.k && row.n == o.row.n && a == o.a && b == o.b && c == o.c;
  }

 private:
  struct Unchecked {};
  VstShape(const VstRow& from, Unchecked);
  bool holds() const;
  friend bool vst_row_holds(const VstRow& row);
};

/// Whether there is a VstShape of this row.
bool vst_row_holds(const VstRow& row);

/// In order of capacity.
std::span<const VstRow> vst_rows();

/// Largest residue on the way through a transform of this shape, in units of the prime.
double vst_largest_residue(const VstShape& shape);

}  // namespace orl
