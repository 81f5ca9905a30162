// Intervals of lazy residues, in units of 2^48, which no prime reaches, and the capacity of a point: what a
// plan checks itself by.
#pragma once

#include "transforms/c17/residue_primes.h"
#include "transforms/common/transform_records.h"

namespace orl {

/// A product by a factor w, |w| <= 0.52 p, of an operand within `a`: half, and what the ratio's error adds.
double residue_product_bound(double a);
/// A point as a sum of P / 2 limbs times powers of two, and the largest operand of a product in the odd
/// factor's transform of k points within `bound`.
double residue_limbs_bound(u32 P);
double residue_odd_operand(double bound, u32 k);
/// Largest sum of k points, each a sum of P / 2 limbs times powers of two, before it is reduced.
double residue_split_bound(u32 P, u32 k);
/// Largest residue within a transform of 2^n points, n >= 8, and within its inverse and the odd factor's.
double residue_forward_bound(u32 n);
double residue_inverse_bound(u32 n, u32 k);
/// Largest residue in a stripe of columns (transforms/common/far_transform.h), which goes down up to 8 levels
/// between two reductions, and back, and through the odd factor.
double residue_stripe_bound(u32 k);
/// Bits of the largest coefficient, or of its absolute value, that a product of `row` can have: half of the
/// points as terms, or all where it wraps.
u32 residue_coefficient_bits(const ResidueRow& row, ProductRing ring);
/// Whether all residues and coefficients of a shape, 4 <= P <= 9, k = 1, 3, 5 or 7, stay in their range.
bool residue_row_holds(const ResidueRow& row);
/// Throws InvalidParametersException "Invalid Function Parameters:   " for a shape whose residues or
/// coefficients could leave their range.
void check_residue_bounds(const ResidueRow& row);

}  // namespace orl
