// Shapes of the algorithm "HNT": a length of L + R - 1 words, L of them by a transform modulo primes and R,
// the remainder, by the floating-point FFT.
//
// Let W = 2^32. The first part is C, the product P modulo W^L - 1, exact by residues; the second is D = P mod
// W^R, R <= L, the low words of the product of the operands' low R words. W^L - 1 and W^R have no common
// factor, so they settle P below their product: with P = H W^L + Q, Q < W^L,
//     C = H + Q                 when that is below W^L - 1, and Q mod W^R = D, so H = h = C - D (mod W^R);
//     C = H + Q - (W^L - 1)     otherwise, and H = h - 1 (mod W^R), h the same.
// In both Q = C - h (mod W^L). The subtraction borrows from W^L in the second case only: there h = H + 1 and
// C - h = Q - W^L; in the first C - h = Q. That needs H + 1 < W^R, and one word more of R than P can reach
// grants it. W^L - 1 in place of C = 0 is taken as 0: H + Q = W^L - 1 is then the second case, and H + Q
// never reaches 2 (W^L - 1).
//
// The second part rounds right while the FFT's bound for 2 R words holds, hnt_remainder_bound().
#pragma once

#include <span>

#include "transforms/vst/vst_shape.h"

namespace orl {

/// 2 R words are the FFT's largest product.
inline constexpr u32 kHntMaxRemainder = 0x6000000 / 64;

/// One row of the size table: k * 2^n points modulo P primes, and R words.
struct HntRow {
  u8 P, k, n;
  u32 remainder;

  constexpr VstRow residues() const { return {P, k, n}; }
  constexpr u64 wrapped_words() const { return residues().bits() / 32; }
  /// Bits of the product that the FFT makes, whose upper half is left out.
  constexpr u64 remainder_bits() const { return u64{64} * remainder; }
  constexpr u64 bits() const { return 32 * (wrapped_words() + remainder - 1); }
  constexpr bool operator==(const HntRow&) const = default;
};

/// In order of capacity.
std::span<const HntRow> hnt_rows();
/// First row that holds a product of `bits`. Throws LimitExceededException past the last row.
const HntRow& find_hnt_row(u64 bits);

/// Largest error of a coefficient of the remainder before it is rounded: at most 1/2.
double hnt_remainder_bound(const HntRow& row);
/// Throws InvalidParametersException "Invalid Function Parameters:   " for a remainder that is empty, longer
/// than the wrapped part or than the FFT takes, or that could round wrong.
void check_hnt_row(const HntRow& row);

}  // namespace orl
