// Pieces that the Newton iterations share: how an estimate's error is read off and applied.
//
// e stands for the product that is ideally 1. Reading it off leaves |e - 1| in its place; a machine that
// computes rightly never leaves more than W^(2 - n') of it, n' being the precision of the estimate.
#pragma once

#include "core/fault_point.h"
#include "numbers/big_float.h"

namespace orl {

/// A fault site that shows the words of a number.
template <class W>
void fault_point(const char* site, const BigFloat<W>& x) {
  fault_point(site, x.T, x.L * sizeof(W));
}

/// The top `count` words of a, sharing its memory.
template <class W>
BigFloat<W> top_words(const BigFloat<W>& a, u64 count) {
  BigFloat<W> view = a;
  if (a.L > count) {
    view.T += a.L - count;
    view.exp += static_cast<s64>(a.L - count);
    view.L = count;
  }
  return view;
}

/// What top_words(a, count) leaves out, normalised.
template <class W>
BigFloat<W> words_below(const BigFloat<W>& a, u64 count) {
  BigFloat<W> view = a;
  view.L = a.L > count ? a.L - count : 0;
  view.strip_top_zeros();
  return view;
}

/// x += c, both positive, c at most as high as x and cut at the bottom of x. Throws BufferTooSmallException when a carry
/// finds no word above x's top.
template <class W>
void add_below(BigFloat<W>& x, const BigFloat<W>& c, ParallelContext parallel);

/// On which side of the ideal value an estimate's product lies.
enum class Estimate { kExact, kOver, kUnder };

/// Largest magnitude of the error of a product with an estimate of `below` words, relative to the ideal
/// value.
inline s64 error_bound(u64 below) { return 2 - static_cast<s64>(below); }
/// Throws AlgorithmFailedException for an error of magnitude `actual`; `side` is "Over-Estimate" or
/// "Under-Estimate".
[[noreturn]] void convergence_failure(const char* function, const char* side, u64 below, s64 actual);

/// e = |e - 1| and which side e was on. Throws AlgorithmFailedException for a word other than 1 at position 0
/// and for an error above W^(2 - below).
template <class W>
Estimate take_error(BigFloat<W>& e, u64 below, const char* function, ParallelContext parallel);

/// y = t - d or t + d to n + 2 words, with the sign of t; y = t for kExact. y shares no memory with either.
template <class W>
void apply_correction(BigFloat<W>& y, u64 n, const BigFloat<W>& t, const BigFloat<W>& d, Estimate side,
                      ParallelContext parallel);

/// y = t, a unit of its lowest place up: the iteration found t exact.
template <class W>
void keep_exact(BigFloat<W>& y, u64 n, const BigFloat<W>& t, ParallelContext parallel);

}  // namespace orl
