// Karatsuba multiplication over given kernels and cutoffs; basecase.h is the front, tests lower the cutoffs.
//
// Scratch  R(n) words for squares and products of equal lengths n, 2n + R(n) for unequal ones, n the shorter
//          (karatsuba_words gives R). The halves are h = L / 2 low words and g = L - h high words. The middle
//          product goes to tmp[0, 2g) and is made while T holds nothing but the differences, and the high
//          product is made while the low half of T is free; both find their own scratch there, since R(g) <=
//          2g - 2 <= 2h. So only the low product needs R(h) words more, and R(L) = 2g + R(h) is exact.
#pragma once

#include <algorithm>
#include <type_traits>

#include "core/types.h"
#include "multiply/basecase_kernels.h"
#include "words/words.h"

namespace orl {

/// R: the lengths of the middle products down the halving sequence.
constexpr u64 karatsuba_words(u64 n, u64 cutoff) {
  u64 words = 0;
  for (; n >= cutoff; n /= 2) words += (n + 1) & ~u64{1};
  return words;
}

template <class W>
struct Karatsuba {
  const BasecaseKernels<W>& kernels;
  u64 sqr_cutoff;  ///< from 2
  u64 mul_cutoff;  ///< from 2

  /// By the kernel below the cutoff, by Karatsuba above. Arguments as in basecase.h.
  void sqr(W* T, const W* A, u64 L, W* tmp) const {
    if (L < sqr_cutoff)
      kernels.sqr(T, A, L);
    else
      sqrK(T, A, L, tmp);
  }

  /// As sqr().
  void elm(W* T, const W* A, const W* B, u64 L, W* tmp) const {
    if (L < mul_cutoff)
      kernels.elm(T, A, B, L);
    else
      elmK(T, A, B, L, tmp);
  }

  /// As sqr(), operands of any two lengths.
  void mul(W* T, const W* A, u64 AL, const W* B, u64 BL, W* tmp) const {
    if (AL < BL) {
      std::swap(A, B);
      std::swap(AL, BL);
    }
    if (BL < mul_cutoff)
      kernels.mul(T, A, AL, B, BL);
    else
      mulK(T, A, AL, B, BL, tmp);
  }

  /// L >= 2.
  void sqrK(W* T, const W* A, u64 L, W* tmp) const {
    const u64 h = L / 2, g = L - h;
    difference(T, A, h, g);
    sqr(tmp, T, g, T + g);
    sqr(T + 2 * h, A + h, g, T);
    sqr(T, A, h, tmp + 2 * g);
    combine<true>(T, h, g, tmp);
  }

  /// L >= 2.
  void elmK(W* T, const W* A, const W* B, u64 L, W* tmp) const {
    const u64 h = L / 2, g = L - h;
    const bool a_negative = difference(T, A, h, g);
    const bool b_negative = difference(T + g, B, h, g);
    elm(tmp, T, T + g, g, T + 2 * g);
    elm(T + 2 * h, A + h, B + h, g, T);
    elm(T, A, B, h, tmp + 2 * g);
    if (a_negative == b_negative)
      combine<true>(T, h, g, tmp);
    else
      combine<false>(T, h, g, tmp);
  }

  /// AL >= BL >= 2. Slices of BL words of A from the bottom. A slice's product lands on the high half of the
  /// one before, which is kept aside and added back: s = BL words. A last slice of r < s words is a product
  /// of its own with the roles changed; its scratch fits in s + R(s), by induction over r + (s mod r) <= s.
  void mulK(W* T, const W* A, u64 AL, const W* B, u64 BL, W* tmp) const {
    elm(T, A, B, BL, tmp);
    u64 done = BL;
    for (; AL - done >= BL; done += BL) {
      bp_copy(tmp, T + done, BL);
      elm(T + done, A + done, B, BL, tmp + BL);
      add_low(T + done, tmp, BL, 2 * BL);
    }
    if (const u64 rest = AL - done; rest != 0) {
      bp_copy(tmp, T + done, BL);
      mul(T + done, B, BL, A + done, rest, tmp + BL);
      add_low(T + done, tmp, BL, BL + rest);
    }
  }

 private:
  using Signed = std::make_signed_t<W>;

  // T[0, L) += S[0, n); the sum is known to fit.
  static void add_low(W* T, const W* S, u64 n, u64 L) {
    const W carry = bp_add(T, T, S, n);
    bp_carry<W>(carry, T + n, L - n);
  }

  // D[0, g) = |A[0, h) - A[h, h + g)|, g = h or h + 1. True when the high part is larger.
  static bool difference(W* D, const W* A, u64 h, u64 g) {
    const W* low = A;
    const W* high = A + h;
    const W top = g > h ? high[h] : 0;
    u64 i = h;
    while (top == 0 && i > 0 && low[i - 1] == high[i - 1]) --i;
    const bool negative = top != 0 || (i > 0 && low[i - 1] < high[i - 1]);
    const W borrow = negative ? bp_sub(D, high, low, h) : bp_sub(D, low, high, h);
    if (g > h) D[h] = top - borrow;
    return negative;
  }

  // T holds z0 in [0, 2h) and z2 in [2h, 2h + 2g). Adds z0 + z2 -+ M, which is not negative, at word h. The
  // sums run through M[0, 2g) by whole arrays: three passes of vector adds take half the time of
  // one pass with two accumulators that reads each word once.
  template <bool kSubtract>
  static void combine(W* T, u64 h, u64 g, W* M) {
    Signed above = 0;
    if constexpr (kSubtract) {
      Signed borrow = static_cast<Signed>(bp_sub(M, T, M, 2 * h));
      for (u64 i = 2 * h; i < 2 * g; ++i) {
        const W m = M[i];
        M[i] = static_cast<W>(W{0} - m - static_cast<W>(borrow));
        borrow = m != 0 || borrow != 0;
      }
      above -= borrow;
    } else {
      const W carry = bp_add(M, M, T, 2 * h);
      above += bp_carry<W>(static_cast<Signed>(carry), M + 2 * h, 2 * g - 2 * h);
    }
    above += static_cast<Signed>(bp_add(M, M, T + 2 * h, 2 * g));
    above += static_cast<Signed>(bp_add(T + h, T + h, M, 2 * g));
    bp_carry<W>(above, T + h + 2 * g, h);
  }
};

}  // namespace orl
