// A logarithm as a sum of hyperbolic arc-cotangents, in the manner of Machin:
//
//     ln n = sum c_i ArcCoth(x_i),     2 ArcCoth(x) = ln((x + 1)/(x - 1)).
//
// Range   2 <= n < 2^31, 2 <= x < 2^32, |c| < 2^31: every number fits a word of either size, and x^2 fits 64
//         bits.
// Proof   a formula is right exactly when prod ((x_i + 1)/(x_i - 1))^c_i = n^2, which is an identity between
//         the exponents of primes on both sides. is_proved() decides it in integers and knows nothing of how
//         the formula was found; agrees_with_log() adds the series themselves up, which shares no step with
//         it.
#pragma once

#include <string>
#include <vector>

#include "core/types.h"

namespace orl {

/// Largest n and largest x.
inline constexpr u64 kMaxLogArgument = 2147483647;
inline constexpr u64 kMaxArcCothArgument = 4294967295;
inline constexpr s64 kMaxMachinCoefficient = 2147483647;

/// c ArcCoth(x).
struct MachinTerm {
  s64 coefficient;
  u64 x;
  friend bool operator==(const MachinTerm&, const MachinTerm&) = default;
};
/// A sum of terms, no x twice.
using MachinFormula = std::vector<MachinTerm>;

/// "-2 ArcCoth( 4801 )".
std::string to_string(const MachinTerm& term);
/// "Log(2) = 18 ArcCoth( 26 ) - 2 ArcCoth( 4801 ) + 8 ArcCoth( 8749 )".
std::string to_string(const MachinFormula& formula, u64 n);

/// What the series of ArcCoth(x) costs at a precision of `nats`, relative to the precision: the nats of its
/// unsplit terms, T ln(2 x^2) + ln T! for T = nats / ln(x^2), divided by `nats`. Every term has a share of 1
/// whatever its x, so a formula with fewer terms may win over one with larger x.
double arccoth_cost(u64 x, double nats);
/// The sum over its terms.
double cost(const MachinFormula& formula, double nats);

/// True when the formula is in range, has no x twice, and equals ln n exactly.
bool is_proved(const MachinFormula& formula, u64 n);
/// True when the sum, in double-double arithmetic by the series of ArcCoth, equals ln n to 90 bits of the sum
/// of the terms' magnitudes.
bool agrees_with_log(const MachinFormula& formula, u64 n);

/// True when one of the terms has this x.
bool has_series(const MachinFormula& formula, u64 x);
/// True when no x of one stands in the other: then no series serves both, and no fault of one term can hide
/// when the two results are compared.
bool share_no_series(const MachinFormula& a, const MachinFormula& b);

}  // namespace orl
