#include "transforms/residue_bounds.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "frame/exceptions.h"

namespace orl {
namespace {

constexpr double kReduced = 0.51;
constexpr double kLargest = 8;      // 8 * 2^48 = 2^51: quotients below 2^50, sums exact
constexpr double kLargestSum = 16;  // of what is only summed and reduced: below 2^52, so exact
constexpr u32 kBlockLevels = 12;    // blocks of at most 2^12 points are in cache and use passes of two levels

}  // namespace

// |a w / p - q| <= 1/2 + |a| 2^-54 (ratio) + 2^-53, a < 2^48 a_p.
double residue_product_bound(double a) { return 0.5 + std::ldexp(a, -6); }

double residue_split_bound(u32 P, u32 k) { return k * (kReduced + (P / 2 - 1) * residue_product_bound(1)); }

double residue_forward_bound(u32 n) {
  double bound = kReduced;  // of the points, which only grows
  const auto levels = [&](u32 count) {
    for (; count > 0; --count, --n) bound += residue_product_bound(bound);
  };
  if (n > kBlockLevels) levels(4);
  double largest = bound;
  // Passes that begin with a reduction leave the lower half within kReduced and a product.
  const auto reduced_levels = [&](u32 count) {
    bound = kReduced + residue_product_bound(bound);
    --n;
    levels(count - 1);
    largest = std::max(largest, bound);
  };
  while (n > kBlockLevels) reduced_levels(4);
  if (n % 2 == 0) reduced_levels(1);
  levels(n - 3);
  return std::max(largest, bound);
}

double residue_inverse_bound(u32 n) {
  const auto product = residue_product_bound;
  double bound = kReduced, largest = 8 * product(kReduced);  // the sum of eight products at the end of a tree
  u32 level = 3, block = n;
  while (block > kBlockLevels) block -= 4;
  for (; level + 2 <= block; level += 2) {
    largest = std::max(largest, 4 * bound);
    bound = std::max(2 * product(2 * bound), product(4 * bound));
  }
  if (level < block) {
    largest = std::max(largest, 2 * bound);
    bound = std::max(kReduced, product(2 * bound));
    ++level;
  }
  for (; level < n; level += 4) {
    // Sums of four points are reduced; those of two points and two products grow for two levels more.
    const double sums = 4 * std::max(2 * product(2 * bound), product(4 * bound));
    largest = std::max({largest, 4 * bound, sums});
    bound = std::max(2 * product(sums / 2), product(sums));
  }
  return std::max(largest, bound);
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
  if (row.n < 8 || row.n > set.e || modulus_bits > 512 || coefficient + 1 > modulus ||
      residue_forward_bound(row.n) > kLargest || residue_inverse_bound(row.n) > kLargest ||
      residue_split_bound(row.P, row.k) > kLargestSum)
    throw InvalidParametersException("C17", "Invalid Function Parameters:   ");
}

}  // namespace orl
