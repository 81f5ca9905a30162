// The low levels of Newton iterations: plain products on small word buffers, in one thread.
//
// A level of at most kSmallLevelWords words and all levels below it are one step of the plans of newton.h.
#pragma once

#include "memory/linear_buffer.h"
#include "numbers/big_float.h"
#include "numbers/run_context.h"

namespace orl {

/// Up to here a level needs no transform.
inline constexpr u64 kSmallLevelWords = 9;

/// Words of the small buffer that the _E functions of `n` words cut from: both scratch numbers of every
/// level.
u64 newton_small_words(u64 n);

/// y = 1/sqrt(w) to n words; y holds n + 4 words. Throws ArithmeticException "Divide by zero." for w = 0,
/// AlgorithmFailedException when an iteration does not converge.
template <class W>
void InvsqrtWord_BigFloatR_E(const MultiplyContext& ctx, BigFloat<W>& y, W w, u64 n,
                             LinearWordBuffer<W> small);

/// y = 1/sqrt(a) to n words for a > 0; y holds n + 4 words. Failures as above.
template <class W>
void InvsqrtFloat_BigFloatR_E(const MultiplyContext& ctx, BigFloat<W>& y, const BigFloat<W>& a, u64 n,
                              LinearWordBuffer<W> small);

/// y = 1/a to n words, with the sign of a; y holds n + 4 words. Failures as above.
template <class W>
void Reciprocal_BigFloatR_E(const MultiplyContext& ctx, BigFloat<W>& y, const BigFloat<W>& a, u64 n,
                            LinearWordBuffer<W> small);

/// What the four functions below cut from an arena: the small buffer, and scratch of their products.
template <class W, class Arena>
LinearWordBuffer<W> cut_small_level(Arena& arena, u64 n) {
  const u64 words = newton_small_words(n);
  W* const small = arena.template cut<W>(words);
  arena.leave(BigFloat<W>::mul_scratch(n + 1, 1));
  return {small, words};
}
/// A quotient needs a number beside them.
template <class W, class Arena>
BigFloat<W> cut_small_reciprocal(Arena& arena, u64 n) {
  return BigFloat<W>(arena.template cut<W>(n + 4), n + 4);
}

/// The _E functions in memory of an arena.
template <class W>
void small_inverse_root(const RunContext& ctx, BigFloat<W>& y, W w, u64 n, LinearHeapBuffer heap) {
  const LinearWordBuffer<W> small = cut_small_level<W>(heap, n);
  InvsqrtWord_BigFloatR_E(ctx.multiply(heap), y, w, n, small);
}
template <class W>
void small_inverse_root(const RunContext& ctx, BigFloat<W>& y, const BigFloat<W>& a, u64 n,
                        LinearHeapBuffer heap) {
  const LinearWordBuffer<W> small = cut_small_level<W>(heap, n);
  InvsqrtFloat_BigFloatR_E(ctx.multiply(heap), y, a, n, small);
}
/// root = sqrt(a), y = 1/sqrt(a).
template <class W>
void small_roots(const RunContext& ctx, BigFloat<W>& root, BigFloat<W>& y, const BigFloat<W>& a, u64 n,
                 LinearHeapBuffer heap) {
  small_inverse_root(ctx, y, a, n, heap);
  root.set_mul_small(n + 1, a, y, ctx.multiply(heap));
  root.truncate(n);
}
/// root = sqrt(a).
template <class W>
void small_root(const RunContext& ctx, BigFloat<W>& root, const BigFloat<W>& a, u64 n,
                LinearHeapBuffer heap) {
  BigFloat<W> y = cut_small_reciprocal<W>(heap, n);
  small_roots(ctx, root, y, a, n, heap);
}
template <class W>
void small_reciprocal(const RunContext& ctx, BigFloat<W>& y, const BigFloat<W>& a, u64 n,
                      LinearHeapBuffer heap) {
  const LinearWordBuffer<W> small = cut_small_level<W>(heap, n);
  Reciprocal_BigFloatR_E(ctx.multiply(heap), y, a, n, small);
}
/// q = a / b to n words; q holds n + 4.
template <class W>
void small_quotient(const RunContext& ctx, BigFloat<W>& q, const BigFloat<W>& a, const BigFloat<W>& b, u64 n,
                    LinearHeapBuffer heap) {
  BigFloat<W> r = cut_small_reciprocal<W>(heap, n);
  small_reciprocal(ctx, r, b, n, heap);
  q.set_mul_small(n + 1, a, r, ctx.multiply(heap));
  q.truncate(n);
}

}  // namespace orl
