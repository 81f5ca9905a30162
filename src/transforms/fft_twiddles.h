// Twiddle factors of the floating-point FFT.
//
// A node of the transform is a polynomial modulo x^m - e(theta), with e(t) = exp(2 pi i t). A radix-R pass
// turns it into R nodes modulo x^(m/R) - e((theta + j) / R); they are kept in bit-reversed order of j, so
// that node number n of level l below a root `rho` has
//
//     theta(rho, l, n) = rho / 2^l + bitreverse(n),         bitreverse(n) = 0.b0 b1 b2 ... in binary,
//
// which depends on n alone but for the first term: one table serves every level and every size. Passes read
// the powers of e(theta / 8), bottom kernels e(theta / 16) to e(theta / 64); a record holds what one node
// needs.
//
// Tables hold the records of the root 1/4 (x^m = i, the right-angle convolution) down to kSubtreeLevels. All
// other roots are reached by rotation: theta(rho, l, n) = theta(1/4, l, n) + (rho - 1/4) / 2^l, so a record
// is the product of a table record with a base record of (rho, l). Such roots are those of the odd factors,
// (1/4 + j) / k, and, in a transform deeper than kSubtreeLevels, the roots of its subtrees.
#pragma once

#include <array>

#include "numbers/algorithm.h"

namespace orl {

/// Powers p = 1 to 7 of e(theta / 8) at index p - 1, then e(theta / 16), e(theta / 32), e(theta / 64).
struct alignas(32) FftTwiddles {
  static constexpr u32 kCount = 10;
  double re[kCount];
  double im[kCount];
};

/// An exact angle in turns; 0 <= numerator < denominator <= 2^40.
struct TurnFraction {
  u64 numerator;
  u64 denominator;
};

/// (cos, sin) of an exact angle, reduced to the first octant before rounding: within 0.51 ulp, and equal for
/// angles that symmetry makes equal.
std::array<double, 2> unit_root(TurnFraction angle);

/// Levels between the root of a subtree and its bottom blocks of kBlockPoints points.
inline constexpr u32 kFftSubtreeLevels = 8;
/// Complex points of a bottom block.
inline constexpr u32 kFftBlockPoints = 64;
inline constexpr u32 kFftBlockLevels = 6;

/// The passes of a subtree of kFftSubtreeLevels levels start at these levels (radix 8, 8, 4, bottom).
inline constexpr u32 kFftSubtreePasses = 4;
inline constexpr std::array<u32, kFftSubtreePasses> kFftSubtreePassLevels = {0, 3, 6, 8};

/// Base records of one root: those of its pass levels.
struct FftSubtreeBase {
  FftTwiddles pass[kFftSubtreePasses];
};

/// The tables of the shapes up to some size; one object a TransformTables.
class FftTables final : public FamilyTables {
 public:
  static constexpr u32 kMaxLevels = 16;
  static constexpr u32 kOdd[3] = {1, 3, 5};

  /// Bytes of all tables for shapes up to s[i] of the odd factors kOdd[i]; 0 for none.
  static u64 bytes(const std::array<u32, 3>& s);
  /// Cuts and fills what is missing.
  void grow(LinearHeapBuffer& memory, const std::array<u32, 3>& s);

  /// Whether shapes of this k and s can run.
  bool covers(u32 k, u32 s) const { return s <= built_s_[k / 2]; }

  /// The 2^level records of the root 1/4.
  const FftTwiddles* level(u32 level) const { return levels_[level]; }
  /// e(p / (4 k)) at index p - 1 for p < k: the odd factor's pass.
  const FftTwiddles& odd(u32 k) const { return odd_[k / 2]; }
  /// Base records of the root (1/4 + j) / k by level, up to kFftSubtreeLevels.
  const FftTwiddles* root_base(u32 k, u32 j) const { return root_base_[k / 2][j]; }
  /// Base records of the subtrees that begin `depth` >= 1 levels below the root (1/4 + j) / k.
  const FftSubtreeBase* subtree_base(u32 k, u32 j, u32 depth) const { return subtree_base_[k / 2][j][depth]; }

 private:
  std::array<u32, 3> built_s_{};
  std::array<const FftTwiddles*, kFftSubtreeLevels + 1> levels_{};
  FftTwiddles odd_[3] = {};
  const FftTwiddles* root_base_[3][5] = {};
  const FftSubtreeBase* subtree_base_[3][5][kMaxLevels - kFftSubtreeLevels + 1] = {};
};

}  // namespace orl
