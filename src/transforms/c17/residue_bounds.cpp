#include "transforms/c17/residue_bounds.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>

#include "core/exceptions.h"
#include "transforms/c17/residue_shape.h"

namespace orl {
namespace {

// Every plan of a product asks for bounds, for one of few lengths.
constexpr u32 kMinLevels = 8, kMaxLevels = 48;
using ByLevels = std::array<double, kMaxLevels + 1>;

constexpr double kReduced = 0.51;
// Quotients of operands of products stay below 2^51, where rounding by 1.5 * 2^52 works: 0.52 * 15 < 2^3.
constexpr double kLargest = 15;
constexpr double kLargestSum = 31;         // of what is only summed and reduced: below 2^53, so exact
constexpr double kEstimateMargin = 0.001;  // 2^-0.001 / 2 < 1/2 - 2^-12

double forward_levels(double bound, u32 levels) {
  for (; levels > 0; --levels) bound += residue_product_bound(bound);
  return bound;
}

using Rows = std::array<double, 16>;
double largest_of(const Rows& rows, u32 levels) {
  return *std::max_element(rows.begin(), rows.begin() + (1u << levels));
}

// One pass at the root over 2^levels rows within `bound`, step by step; returns the largest result and raises
// `largest`.
double forward_root_pass(double bound, u32 levels, double& largest) {
  Rows row;
  row.fill(bound);
  const u32 rows = 1u << levels;
  for (u32 half = rows / 2; half; half /= 2)
    for (u32 j = 0; j < rows; ++j)
      if (!(j & half)) {
        const double sum = row[j] + (j < half ? row[j + half] : residue_product_bound(row[j + half]));
        row[j] = row[j + half] = sum;
        largest = std::max(largest, sum);
      }
  for (u32 j = 0; j < rows; ++j)
    if (residue_forward_reduces(levels, j)) row[j] = kReduced;
  return largest_of(row, levels);
}

// One pass on the way back, at the root or elsewhere; results as those of the forward pass.
double inverse_pass(double bound, u32 levels, bool at_root, double& largest) {
  Rows row;
  row.fill(bound);
  const u32 rows = 1u << levels;
  for (u32 s = 0; s < levels; ++s)
    for (u32 j = 0; j < rows; ++j)
      if (const u32 other = j | 1u << s; other != j) {
        const double sum = row[j] + row[other];
        largest = std::max(largest, sum);
        row[j] = residue_inverse_reduces(levels, s, j, at_root) ? kReduced : sum;
        row[other] = residue_inverse_reduces(levels, s, other, at_root) ? kReduced
                     : at_root && j >> s == 0                           ? sum
                                                                        : residue_product_bound(sum);
      }
  return largest_of(row, levels);
}

// The largest value of a forward transform of 2^n points.
double forward_bound(u32 n) {
  // The stage, then passes in memory that reduce their lower rows, then the block.
  const u32 stage = residue_stage_levels(n);
  double bound = kReduced, largest = 0;
  if (stage) {
    const u32 upper = residue_upper_levels(stage);
    bound = std::max(forward_levels(bound, upper), forward_root_pass(bound, upper, largest));
    bound = forward_levels(bound, stage - upper);
  }
  u32 left = n - stage;
  while (left > kResidueBlockLevels) {
    const u32 levels = residue_memory_levels(u64{1} << left);
    bound = forward_levels(kReduced + residue_product_bound(bound), levels - 1);
    left -= levels;
  }
  return std::max(largest, forward_levels(bound, left - 3));
}

// The largest value of an inverse transform of k 2^n points.
double inverse_bound(u32 n, u32 k) {
  double bound = kReduced, largest = 0;
  const u32 stage = residue_stage_levels(n);
  u32 memory = 0, block = n - stage;
  for (; block > kResidueBlockLevels; ++memory) block -= residue_memory_levels(u64{1} << block);
  for (block -= 3; block >= 3; block -= 3) bound = inverse_pass(bound, 3, false, largest);
  if (block) bound = inverse_pass(bound, block, false, largest);
  // Passes of other lengths follow in any order; each is taken as often as it could be.
  for (u32 levels = 1; levels <= 4; ++levels)
    for (u32 i = 0; i < memory + 2; ++i) bound = std::max(bound, inverse_pass(bound, levels, false, largest));
  if (stage) bound = std::max(bound, inverse_pass(bound, residue_upper_levels(stage), true, largest));
  largest = std::max(largest, bound);
  if (residue_odd_reduces(k)) bound = kReduced;
  return std::max({largest, residue_odd_operand(bound, k),
                   bound + (k - 1) * residue_product_bound(residue_odd_operand(bound, k))});
}

// The largest value of transforms of columns, in stripes.
double stripe_bound(u32 k) {
  double largest = 0;
  for (u32 levels = 1; levels <= kResidueColumnLevels; ++levels)
    for (const bool at_root : {false, true}) {
      const u32 upper = residue_upper_levels(levels), lower = levels - upper;
      const double down =
          at_root ? forward_root_pass(kReduced, upper, largest) : forward_levels(kReduced, upper);
      const double up = lower ? inverse_pass(kReduced, lower, false, largest) : kReduced;
      const double bound = inverse_pass(up, upper, at_root, largest);
      largest =
          std::max({largest, forward_levels(std::max(down, forward_levels(kReduced, upper)), lower), bound});
    }
  // The odd factor's inverse takes what is reduced.
  return std::max({largest, residue_odd_operand(kReduced, k),
                   kReduced + (k - 1) * residue_product_bound(residue_odd_operand(kReduced, k)),
                   k * kReduced});
}

}  // namespace

// |a w / p - q| <= 1/2 + |a w / p| 2^-52, |w / p| <= 0.52, |a| <= 2^48 a.
double residue_product_bound(double a) { return 0.5 + 0.52 * (a / 16); }

double residue_split_bound(u32 P, u32 k) { return k * residue_limbs_bound(P); }
double residue_limbs_bound(u32 P) { return 1 + (P / 2 - 1) * residue_product_bound(1); }
double residue_odd_operand(double bound, u32 k) { return k == 1 ? 0 : k == 5 ? 4 * bound : 2 * bound; }

double residue_forward_bound(u32 n) {
  static const auto bounds = [] {
    ByLevels table{};
    for (u32 levels = kMinLevels; levels <= kMaxLevels; ++levels) table[levels] = forward_bound(levels);
    return table;
  }();
  return bounds.at(n);
}

double residue_inverse_bound(u32 n, u32 k) {
  static const auto bounds = [] {
    std::array<ByLevels, 4> table{};
    for (u32 odd = 0; odd < table.size(); ++odd)
      for (u32 levels = kMinLevels; levels <= kMaxLevels; ++levels)
        table[odd][levels] = inverse_bound(levels, 2 * odd + 1);
    return table;
  }();
  return bounds.at(k / 2).at(n);
}

double residue_stripe_bound(u32 k) {
  static const std::array<double, 4> bounds = {stripe_bound(1), stripe_bound(3), stripe_bound(5),
                                               stripe_bound(7)};
  return bounds.at(k / 2);
}

u32 residue_coefficient_bits(const ResidueRow& row, ProductRing ring) {
  const u64 terms = ring == ProductRing::kPlain ? row.points() / 2 : row.points();
  return static_cast<u32>(2 * row.point_bits() + static_cast<u64>(std::bit_width(terms - 1)));
}

bool residue_row_holds(const ResidueRow& row) {
  const ResidueSet& set = residue_set(row);
  const u32 modulus_bits = 64 * set.words - static_cast<u32>(std::countl_zero(set.modulus[set.words - 1]));
  // All forms: N terms of either sign, within the modulus by the 2^-12 of it that the join's estimate asks
  // for.
  const double coefficient =
      2.0 * static_cast<double>(row.point_bits()) + std::log2(static_cast<double>(row.points()));
  return row.n >= kMinLevels && row.n <= set.e && modulus_bits <= 512 &&
         coefficient + 1 + kEstimateMargin <= set.modulus_log2 && residue_forward_bound(row.n) <= kLargest &&
         residue_inverse_bound(row.n, row.k) <= kLargest &&
         residue_split_bound(row.P, row.k) <= kLargestSum &&
         residue_odd_operand(residue_limbs_bound(row.P), row.k) <= kLargest &&
         residue_stripe_bound(row.k) <= kLargest;
}

void check_residue_bounds(const ResidueRow& row) {
  if (!residue_row_holds(row)) throw InvalidParametersException("C17", "Invalid Function Parameters:   ");
}

}  // namespace orl
