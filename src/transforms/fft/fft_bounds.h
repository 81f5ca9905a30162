// How many bits a point of the floating-point FFT may carry.
//
// Let u = 2^-53, N points of w bits, M = N / 2 complex points, n = log2(M) levels, and C = M * 2^(2 w), which
// no coefficient of a product of N points reaches. Results are rounded to the nearest integer, so a product
// is exact when every coefficient's error stays below 1/2.
//
// One level. A butterfly forms z = w b (a product, then a multiply-add for each of the two parts) and a + z,
// a - z. A rounding of x is taken as independent of the others and uniform in [-u |x|, u |x|], its variance
// u^2 x^2 / 3; this is the worst mantissa. In units of u^2, as shares of |b|^2:
//     products      1/6    (of b's parts with either part of w, whose squares add up to 1)
//     multiply-adds 1/3
//     twiddle       1/6    (each part off by up to u / 2), or 2/3 for one that is the product of two factors:
//                          the rows of bottom blocks and the subtrees of large transforms
// so at most 7/6 in z, which enters both results; the two sums add 1/3 of each result's square. With |a| and
// |b| alike on average, a level adds (7/6 + 2/3) / 2 < 1 to the relative variance of the energy. Odd radices
// stand for log2(3) and log2(5) levels and have fewer roundings than these. Two forward transforms, the
// pointwise product (at most 2) and the inverse make
//     sigma = u sqrt(3 n + 2)
// the relative standard deviation of what is rounded. The scale 1 / M is exact or off by u / 2, applied in
// the same multiply-add that rounds: far below sigma.
//
// A coefficient. When operands are far from random (all points alike, the case of largest coefficients) the
// energy runs along one path of nodes and roundings repeat themselves over whole columns: errors are then
// proportional to the coefficients, and sigma C is the standard deviation of the largest. When points are
// random the error spreads evenly over the N results: sigma C / sqrt(3) at most for each (the root mean
// square of a triangle of height C), and the largest of N such, for N up to 2^23, is about 5.6 times
// that, 3.2 sigma C; but random points have a mean of half of their largest value, so C is then four times
// too large. Both cases stay within
//     3 sigma C,
// which must not exceed 1/2.
//
// Folded products. A middle product has one operand of up to N points, twice the energy of N / 2 of them, and
// coefficients of at most N / 2 terms all the same: errors are sqrt(2) times as large, against the same C. A
// row folds only where 3 sqrt(2) sigma C <= 1/2.
//
// This is a model, not a proof: a bound that takes every rounding at its worst gives 3.6 at 24576 points of 17
// bits, seven times what rounds right, and points near their largest with random low bits come to 3.2 sigma C.
// What decides is the last stage, which looks at every coefficient as it rounds it and refuses the product
// beyond kFftErrorLimit. (A change by whole numbers it cannot see; hashes and residuals of what is made of the
// product do.) Tests measure every row with constant, periodic, nearly largest,
// two-valued and random points, plain and folded: the largest errors are 0.22 (81920 points of 16 bits, where the
// model says 0.41) and, of those that fold, 0.28 (2^16 points of 16 bits, 0.45).
#pragma once

#include <cmath>

#include "core/types.h"

namespace orl {

/// Largest distance of a coefficient from an integer that is taken for rounding.
inline constexpr double kFftErrorLimit = 0.4;
/// Bits that rounded coefficients may have.
inline constexpr u32 kFftLargestBits = 51;

namespace fft_bounds_detail {
/// 3 n + 2, with n rounded up.
constexpr u64 roundings(u64 points) {
  u64 n = 0;
  while (u64{1} << n < points / 2) ++n;
  return 3 * n + 2;
}
}  // namespace fft_bounds_detail

/// Three standard deviations of the largest coefficient's error, in units of the last place of the result, for
/// products of `points` points of w bits.
inline double fft_error_bound(u64 points, u32 w) {
  const double largest = std::ldexp(static_cast<double>(points / 2), static_cast<int>(2 * w) - 53);
  return 3 * largest * std::sqrt(static_cast<double>(fft_bounds_detail::roundings(points)));
}

/// The same for folded products.
inline double fft_folded_error_bound(u64 points, u32 w) {
  return std::sqrt(2.0) * fft_error_bound(points, w);
}

/// Whether fft_error_bound() is at most 1/2: (3 u C)^2 (3 n + 2) <= 1/4.
constexpr bool fft_rounds_safely(u64 points, u32 w) {
  const u128 c = static_cast<u128>(points / 2) << (2 * w);  // below 2^50 for all that can pass
  if (c >> 50) return false;
  return 36 * fft_bounds_detail::roundings(points) * c * c <= static_cast<u128>(1) << 106;
}
/// Whether fft_folded_error_bound() is.
inline bool fft_folds_safely(u64 points, u32 w) { return fft_folded_error_bound(points, w) <= 0.5; }

}  // namespace orl
