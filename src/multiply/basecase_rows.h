// One row of a schoolbook product: a double word as accumulator, one word at a time. T + A * w + carry cannot
// overflow it. The reference of all other kernels, and the odd ends of some.
#pragma once

#include <type_traits>

#include "core/types.h"

namespace orl {

template <class W>
using DoubleWord = std::conditional_t<sizeof(W) == 4, u64, u128>;

/// T[0, L) = A[0, L) * w. Returns the word above.
template <class W>
inline W mul_row(W* T, const W* A, u64 L, W w) {
  DoubleWord<W> carry = 0;
  for (u64 i = 0; i < L; ++i) {
    carry += DoubleWord<W>{A[i]} * w;
    T[i] = static_cast<W>(carry);
    carry >>= 8 * sizeof(W);
  }
  return static_cast<W>(carry);
}

/// T[0, L) += A[0, L) * w. Returns the word above.
template <class W>
inline W add_row(W* T, const W* A, u64 L, W w) {
  DoubleWord<W> carry = 0;
  for (u64 i = 0; i < L; ++i) {
    carry += DoubleWord<W>{A[i]} * w + T[i];
    T[i] = static_cast<W>(carry);
    carry >>= 8 * sizeof(W);
  }
  return static_cast<W>(carry);
}

}  // namespace orl
