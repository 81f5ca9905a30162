// How one shape of the floating-point FFT is cut into passes.
//
// A transform is a first stage, then independent branches, then (on the way
// back) a last stage.
//
//   small    the first stage is one pass of radix first_radix(): 1, 2, 4 or 8, or the odd factor. Everything
//            runs in one task, in cache.
//   blocked  kFftBlockedPoints complex points and more: two passes, first_radix() and 8, over chunks of
//            columns that stay in cache between them, so that memory is crossed once. Chunks and branches are
//            spread over tasks.
#pragma once

#include <algorithm>

#include "core/types.h"
#include "transforms/fft/fft_twiddles.h"

namespace orl {

/// Complex points from which on a transform is blocked: 512 KiB, half of a
/// usual second-level cache.
inline constexpr u64 kFftBlockedPoints = u64{1} << 15;
/// Complex points from which on branches are fetched ahead: 8 MiB.
inline constexpr u64 kFftPrefetchPoints = u64{1} << 19;
/// Radix of the second pass of a blocked transform.
inline constexpr u32 kFftSecondRadix = 8;

inline constexpr u32 kFftMaxChunkGroups = 32;

/// A branch: node `node` at `level` below the root (1/4 + root) / k, `height`
/// levels above its bottom blocks.
struct FftBranch {
  u32 root, level, height;
  u64 node;
};

/// How one shape is cut; what kernels read of it.
struct FftPlan {
  u32 k;
  u32 levels;  ///< halvings between a root of the odd factor and its bottom
               ///< blocks
  u32 w;       ///< bits per point
  const FftTables* tables;

  u64 blocks() const { return u64{k} << levels; }
  u64 complex_points() const { return blocks() * kFftBlockPoints; }
  u64 points() const { return 2 * complex_points(); }
  /// Bytes of the bits of all points.
  u64 field_bytes() const { return points() / 8 * w; }

  bool blocked() const { return complex_points() >= kFftBlockedPoints; }
  /// Whether the lower levels rotate the table of the root 1/4.
  bool rotated() const { return blocked() || (k > 1 && levels > fft_odd_root_levels(k)); }
  u32 first_radix() const { return k > 1 ? k : 1u << first_bits(); }
  u32 branches() const { return first_radix() * (blocked() ? kFftSecondRadix : 1); }
  u64 branch_points() const { return complex_points() / branches(); }
  /// The node at which branch `index` begins.
  FftBranch branch(u32 index) const {
    const u32 below = k > 1 ? 0 : first_bits();
    if (!blocked())
      return k > 1 ? FftBranch{index, 0, levels, 0} : FftBranch{0, below, levels - below, index};
    if (k > 1) return {index / kFftSecondRadix, 3, levels - 3, index % kFftSecondRadix};
    return {0, 6, levels - 6, index};
  }
  /// Level at which the subtrees of a rotated transform begin: the first at which they have no more than
  /// kFftSubtreeLevels levels. Branches may begin inside them.
  u32 subtree_depth() const { return levels > kFftSubtreeLevels ? levels - kFftSubtreeLevels : 0; }
  /// Columns of a chunk of the first and last stage, in groups of eight: enough for few bytes of scratch
  /// while the transform lies in cache, and for long enough pieces when it does not. 64 MiB of points, one
  /// thread, Zen 4: first stage 16.2 ms with 4 groups, 5.8 with 16, 4.5 with 32 (512 bytes, 2 and 4 KiB of
  /// each of 64 streams).
  u64 chunk_groups() const {
    const u64 n = complex_points();
    return n < u64{1} << 18 ? 4 : n < u64{1} << 21 ? 16 : kFftMaxChunkGroups;
  }
  u64 chunks() const { return branch_points() / (8 * chunk_groups()); }

 private:
  u32 first_bits() const { return levels < 3 ? levels : levels == 4 ? 2 : 3; }
};

}  // namespace orl
