// Sums of fractions 2^(c k + d) / (a k + b) modulo 1: what a series for hexadecimal digits at an offset is
// made of.
//
// Exact    each fraction is cut off after the last limb, then added modulo 1. So a sum depends neither on the
//          instruction set nor on how its range is cut: equal calls give equal limbs everywhere.
// Threads  a call uses the calling thread alone; sums of parts of a range may be made side by side, each into
//          an accumulator of its own, and joined by bbp_add().
#pragma once

#include "core/types.h"
#include "simd/target.h"

namespace orl {

/// The terms of frac(2^(c k + d) / (a k + b)) for k = 0, 1, ...
struct BbpTerm {
  u64 a, b;       ///< the denominator a k + b: odd, 0 < a < 2^16
  s64 c, d;       ///< the exponent c k + d: -20 <= c < 0
  bool positive;  ///< the sum is added, otherwise subtracted
};

/// An accumulator is an array of limbs below 2^48, least significant first; the binary point stands above the
/// last one.
inline constexpr u32 kBbpLimbBits = 48;

/// limbs[0, limb_count) += or -= the sum over k in [first, last), modulo 1. limb_count >= 1.
/// Throws InvalidParametersException for a term outside of what BbpTerm states, and unless the range keeps
/// all denominators below 2^63 and all exponents within 2^62.
void bbp_sum(const BbpTerm& term, u64 first, u64 last, u64* limbs, u64 limb_count);
/// As above, by the kernel of a given target, which this machine must run.
void bbp_sum(simd::Target target, const BbpTerm& term, u64 first, u64 last, u64* limbs, u64 limb_count);

/// limbs += other, modulo 1; both of limb_count limbs.
void bbp_add(u64* limbs, const u64* other, u64 limb_count);

}  // namespace orl
