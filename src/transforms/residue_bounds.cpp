#include "transforms/residue_bounds.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "frame/exceptions.h"

namespace orl {
namespace {

constexpr double kReduced = 0.51;
constexpr double kLargest = 8.0;  // 8 * 2^48 = 2^51: quotients below 2^50, sums exact

}  // namespace

// |a w / p - q| <= 1/2 + |a| 2^-54 (ratio) + 2^-53, a < 2^48 a_p.
double residue_product_bound(double a) { return 0.5 + std::ldexp(a, -6); }

double residue_forward_bound(u32 levels) {
  // Passes that begin with a reduction take the lower half to kReduced; a level then adds one product. Below
  // the last of them stand at most twelve levels.
  double bound = kReduced, largest = kReduced;
  for (u32 level = 0; level < std::min<u32>(levels, 4 + 9); ++level) {
    bound += residue_product_bound(largest);
    largest = std::max(largest, bound);
  }
  return largest;
}

double residue_inverse_bound(u32 levels) {
  // A pass of l levels sums 2^l residues; its first outputs, which have met no product, are reduced, the
  // others are sums of at most two or four products.
  const double products = 4 * residue_product_bound(2.0);
  return std::min(levels, 4u) == 4 ? 16 * products / 4 : 4 * products / 4;
}

u32 residue_coefficient_bits(const ResidueRow& row) {
  return static_cast<u32>(2 * row.point_bits() + static_cast<u64>(std::bit_width(row.points() / 2 - 1)));
}

void check_residue_bounds(const ResidueRow& row) {
  const ResidueSet& set = residue_set(row.P, row.k);
  const u32 modulus_bits = 64 * set.words - static_cast<u32>(std::countl_zero(set.modulus[set.words - 1]));
  double modulus = 0;
  for (u32 i = 0; i < set.P; ++i) modulus += std::log2(static_cast<double>(residue_primes()[set.prime[i]].p));
  const double coefficient =
      2.0 * static_cast<double>(row.point_bits()) + std::log2(static_cast<double>(row.points() / 2));
  if (row.n > set.e || modulus_bits > 512 || coefficient + 1 > modulus ||
      residue_forward_bound(row.n) > kLargest)
    throw InvalidParametersException("C17", "Invalid Function Parameters:   ");
}

}  // namespace orl
