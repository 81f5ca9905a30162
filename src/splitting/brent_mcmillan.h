// The kind of the two series by which Brent and McMillan compute Euler's constant, summed together.
//
// With N = 4^e, a node over (a, b] has
//
//   D = product of k     C = D * sum of 1/k                                          over a < k <= b
//   T = D^2 * sum of N^(k - 1) / (product of j^2)     V = D^3 * sum of (H_k - H_a) N^(k - 1) / (product of j^2)
//
// where the product is over a < j <= k and H_k = 1 + 1/2 + .. + 1/k. Joining (a, m] to (m, b]:
//
//   D = D_L D_R     C = C_L D_R + C_R D_L     T = T_L D_R^2 + T_R     V = V_L D_R^3 + D_L V_R + C_L D_R T_R
//
// The powers of N are in the exponents of T and V from the leaf on, so no join multiplies by one.
// Source  R. P. Brent, E. M. McMillan, "Some new algorithms for high-precision computation of Euler's constant", Math.
//         Comp. 34, 1980, for the series.
#pragma once

#include "splitting/kind.h"

namespace orl {

/// Nodes of four numbers, of which V is the longest.
template <class W>
class BrentMcMillanAB final : public SeriesKind<W> {
 public:
  static constexpr u32 kD = 0, kC = 1, kT = 2, kV = 3;

  const char* name() const override { return "BrentMcMillanAB"; }
  u32 numbers() const override { return 4; }
  bool subtracts(bool, u64) const override { return false; }
  u64 merge_scratch(const NodeWords& product, const NodeWords& right, u64 tds) const override;
  void merge(const RunContext& ctx, bool subtract, SeriesNode<W>& left, const SeriesNode<W>& right,
             LinearHeapBuffer scratch) const override;
};

/// The kind itself.
template <class W>
const BrentMcMillanAB<W>& brent_mcmillan_AB();

}  // namespace orl
