// Twiddle factors of the floating-point FFT.
//
// A node of the transform is a polynomial modulo x^m - e(theta), with e(t) =
// exp(2 pi i t). A radix-R pass turns it into R nodes modulo x^(m/R) - e((theta
// + j) / R); they are kept in bit-reversed order of j, so that node number n of
// level l below a root `rho` has
//
//     theta(rho, l, n) = rho / 2^l + bitreverse(n),    bitreverse(n) = 0.b0 b1 b2 ... in binary,
//
// which depends on n alone but for the first term: one table serves every level
// and every size. Passes read the powers of e(theta / 8), bottom kernels
// e(theta / 16) to e(theta / 64); a record holds what one node needs.
//
// Tables hold the records of the roots (1/4 + j) / k for small transforms and
// for the upper levels of large ones. The lower levels of a large transform are
// cut into subtrees of at most kFftSubtreeLevels levels, which all use the
// table of the root 1/4: theta(rho, l, n) = theta(1/4, l, n) + (rho - 1/4) /
// 2^l, so a record is the product of a table record with a base record of the
// subtree's root rho and the level. The roots of odd factors have
// fft_odd_root_levels() of their own; a small transform that is higher is a
// subtree from its root on. Tables stay far smaller than data.
#pragma once

#include <array>

#include "multiply/algorithm.h"

namespace orl {

/// What one node x^m - e(theta) needs: e(theta / 2), e(theta / 4), e(theta /
/// 8), e(theta / 8 + 1 / 8) for its passes, and e(theta / 16), e(theta / 32),
/// e(theta / 64), e(theta / 64 + 1 / 8) for the rows of a bottom block.
struct alignas(64) FftTwiddles {
  static constexpr u32 kCount = 8;
  double re[kCount];
  double im[kCount];
};

/// e(p / (4 R)) at index p - 1, for p < R: the first pass, of radix R.
struct FftPowers {
  double re[7];
  double im[7];
};
/// R is 1, 2, 3, 4, 5 or 8.
const FftPowers& fft_first_powers(u32 radix);

/// An exact angle in turns; 0 <= numerator < denominator <= 2^40.
struct TurnFraction {
  u64 numerator;
  u64 denominator;
};

/// (cos, sin) of an exact angle, reduced to the first octant before rounding:
/// within 0.51 ulp, and equal for angles that symmetry makes equal.
std::array<double, 2> unit_root(TurnFraction angle);

/// Levels between the root of a subtree and its bottom blocks of kBlockPoints
/// points.
inline constexpr u32 kFftSubtreeLevels = 8;
/// Complex points of a bottom block.
inline constexpr u32 kFftBlockPoints = 64;
inline constexpr u32 kFftBlockLevels = 6;

/// Levels below a root of an odd factor whose records are kept: upper levels of
/// large transforms need no more, and eight roots of all their levels would fill
/// half a megabyte.
constexpr u32 fft_odd_root_levels(u32 k) { return k == 3 ? 5 : 4; }

/// A subtree of the full height has passes at these levels: radix 8, 8, 4 and
/// the bottom.
inline constexpr std::array<u32, 4> kFftPassLevels = {0, 3, 6, 8};

/// The tables of the shapes up to some size; one object per TransformTables.
class FftTables final : public FamilyTables {
 public:
  static constexpr u32 kOdd[3] = {1, 3, 5};

  /// Bytes of all tables for shapes up to s[i] of the odd factors kOdd[i]; 0
  /// for none.
  static u64 bytes(const std::array<u32, 3>& s);
  /// Cuts and fills what is missing.
  void grow(LinearHeapBuffer& memory, const std::array<u32, 3>& s);

  /// Whether shapes of this k and s can run.
  bool covers(u32 k, u32 s) const { return s <= built_s_[k / 2]; }

  /// Records by level of the root (1/4 + j) / k: 2^level of them in order of
  /// the node.
  const FftTwiddles* const* root(u32 k, u32 j) const { return roots_[k / 2][j].data(); }
  /// Base records of the subtrees whose roots lie `depth` levels below the root
  /// (1/4 + j) / k, base_count(k, depth) of them per subtree: those of every
  /// level from base_level() on, or, where passes begin at its root and have the
  /// full height below them, of kFftPassLevels.
  const FftTwiddles* subtree_bases(u32 k, u32 j, u32 depth) const { return bases_[k / 2][j][depth]; }
  static constexpr u32 base_count(u32 k, u32 depth) {
    return begins_with_passes(k, depth) ? static_cast<u32>(kFftPassLevels.size())
                                        : kFftSubtreeLevels + 1 - base_level(k, depth);
  }
  static constexpr bool begins_with_passes(u32 k, u32 depth) { return depth >= (k > 1 ? 3 : 6); }
  /// The first level of such a subtree that is read: that of the branches, but for
  /// small transforms, which are one subtree.
  static constexpr u32 base_level(u32 k, u32 depth) { return k == 1 ? 6 - depth : depth > 0 ? 3 - depth : 0; }

 private:
  static constexpr u32 kMaxDepth = 8;

  std::array<u32, 3> built_s_{};
  std::array<const FftTwiddles*, kFftSubtreeLevels + 1> roots_[3][5] = {};
  const FftTwiddles* bases_[3][5][kMaxDepth + 1] = {};
};

}  // namespace orl
