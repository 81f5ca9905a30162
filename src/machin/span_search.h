// The cheapest sum of arc-cotangents over a base of primes, by branch and bound.
//
// Over a base of d primes, the vector v(x) of an argument x holds the exponents of (x + 1)/(x - 1). Finding
// sum c_i ArcCoth(x_i) = (1/2) ln prod p^t_p is finding integers c_i with sum c_i v(x_i) = t.
//
// Order    depth first over sets of independent vectors; the next is one that can clear the largest prime
//          that is left of the target, the cheapest first. A branch ends where its cost and one more argument
//          reach the best known. The vectors of a branch are kept in echelon form modulo 2^61 - 1, and the
//          target reduced by them: it vanishes when they span it.
// Proof    coefficients are solved modulo the same prime and accepted when they are small and sum c_i v(x_i)
//          = t holds in integers: a set that spans t by fractions only fails there.
#pragma once

#include <array>
#include <optional>
#include <span>
#include <vector>

#include "machin/formula.h"

namespace orl {

/// Most primes of a base: below 2^32, a million numbers are smooth over the first 14.
inline constexpr u32 kMaxBasePrimes = 14;
/// Exponents over a base, in the order of its primes; 0 behind the last. Those of a fraction are its
/// numerator's less its denominator's.
using ExponentVector = std::array<s64, kMaxBasePrimes>;

/// n's exponents in the primes of `base`; it is an internal error if n has others.
ExponentVector exponents_over(std::span<const u64> base, u64 n);

/// An argument that a search may use.
struct ArcCothCandidate {
  u64 x;
  double cost;
  ExponentVector exponents;  ///< of (x + 1)/(x - 1)
};
/// The candidate of x over a base that x^2 - 1 is smooth over.
ArcCothCandidate make_candidate(std::span<const u64> base, u64 x, double nats);

/// The formula over these candidates, without those whose coefficient is 0. Null where their vectors are
/// dependent, do not span the target, or span it by fractions or large coefficients only.
std::optional<MachinFormula> solve(std::span<const ArcCothCandidate> set, const ExponentVector& target);

/// The cheapest formula that costs less than `bound`, if the search meets one before it has tried `tries`
/// sets. Candidates stand in rising order of cost.
std::optional<MachinFormula> search_span(std::span<const ArcCothCandidate> candidates,
                                         const ExponentVector& target, double bound, u64 tries);

}  // namespace orl
