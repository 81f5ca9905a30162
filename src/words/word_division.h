// Division of long arrays by one word: remainders from the top, then quotient words from the bottom.
//
// Dividing from the top alone is one chain of dependent products. Here residues are found first, by folding
// words with powers of the base, which is cheap; they give the remainder that enters each of four stretches.
// Quotient words then follow from the bottom up without any correction (Hensel division): with c the
// remainder that leaves a stretch, q = (a - c) / d modulo W = 2^64, and c becomes the high word of q * d and
// the borrow. A stretch must end on the remainder that entered it, which checks the whole. Source: T.
// Jebelean, "An algorithm for exact division", J. Symbolic Computation 15 (1993).
//
// Arrays are L 64-bit words of any alignment, at T and A; T may equal A. Everywhere top < d.
#pragma once

#include "core/types.h"
#include "words/shoup_divider.h"

namespace orl {

/// Fewer words than this are not worth the start.
inline constexpr u64 kLeastFoldedWords = 16;
inline constexpr u64 kLeastHenselWords = 28;

/// Remainders by d.
class WordFold {
 public:
  /// Precomputes powers of the base modulo the divisor.
  explicit WordFold(const ShoupDivider<u64>& divider);
  const ShoupDivider<u64>& divider() const { return divider_; }
  /// The remainder of top * W^L + A[at, at + L).
  u64 mod(const void* A, u64 at, u64 L, u64 top) const;

 private:
  ShoupDivider<u64> divider_;
  u64 w2_, w3_, w4_, w5_;  // powers of W modulo d
};

/// Quotients by d. Throws AlgorithmFailedException "Mismatching block residuals." under `function` when a
/// stretch does not end as it must.
class WordDivision {
 public:
  /// For any number of arrays.
  explicit WordDivision(const ShoupDivider<u64>& divider);

  /// T = the quotient of top * W^L + A, L >= 1; returns the remainder.
  u64 divide(void* T, const void* A, u64 L, u64 top, const char* function) const;
  /// T = the quotient of top * W^L, L >= 1; returns the remainder.
  u64 extend(void* T, u64 L, u64 top, const char* function) const;

 private:
  template <bool zeros>
  u64 divide_odd(void* T, const void* A, u64 L, u64 top, const char* function) const;
  template <bool zeros>
  void four_quotients(void* T, const void* A, u64 at, u64 length, u64* carries) const;

  int shift_;  // d = odd * 2^shift
  WordFold odd_;
  u64 inverse_;  // 1 / odd modulo W
};

}  // namespace orl
