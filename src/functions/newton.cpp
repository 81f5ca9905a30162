#include "functions/newton.h"

#include <algorithm>
#include <string>

#include "frame/exceptions.h"
#include "frame/status.h"
#include "functions/newton_steps.h"
#include "numbers/transform.h"

// Errors, relative, for a level of n words over one of h = (n + 1) >> 1; c is a small number.
//
//   Induction      t has error |eps| < c W^-(h+1), and n + 1 <= 2 h + 1.
//   Newton         1/sqrt: the step leaves 3/2 eps^2; reciprocal and quotient: eps^2. Both < W^-(n+1), as
//   2(h+1) > n+1. e              holds n + 3 words, of which the top may be 0 and the next 1: an error of c
//   W^-(n+1), for 1/sqrt(w) with the factor
//                  w < W over a square truncated at W^-(n+2).
//   correction     is itself of size c W^-(h+1) and kept to h + 3 words, of which the top may be 0 and the
//   next 1. result         keeps n + 2 words, of which the top may be 1: W^-(n+1).
// So |e - 1| < W^(2-h) is missed by a wide margin, and whatever reaches it was miscomputed.

namespace orl {

namespace {

// Up to here a level needs no transform, and the levels below it share its small buffer.
constexpr u64 kSmallWords = 9;

u64 level_below(u64 n) { return (n + 1) >> 1; }

template <class W>
u64 words_bytes(u64 words) {
  return LinearHeapBuffer::cut_bytes<W>(words);
}

template <class W>
Need small_need(u64 n, u64 out_words) {
  Need need;
  need.ram_bytes = words_bytes<W>(newton_small_words(n)) + BigFloat<W>::mul_scratch(n + 1, 1);
  need.out_words = out_words;
  need.table_bits = (2 * n + 8) * 8 * sizeof(W);
  return need;
}

// Numbers of a level beside what is either the level below or its products.
template <class W>
Need level_need(u64 n, u64 tds, u64 number_bytes, u64 kept, const Need& below, u64 out_words) {
  const u64 product = 2 * (level_below(n) + 2);
  Need need;
  need.ram_bytes = number_bytes + std::max(below.ram_bytes, TransformHelper<W>::bytes(product, tds, kept));
  need.out_words = out_words;
  need.table_bits = std::max(below.table_bits, product * 8 * sizeof(W));
  return need;
}

template <class W>
LinearWordBuffer<W> cut_small(LinearHeapBuffer& heap, u64 n) {
  const u64 words = newton_small_words(n);
  return {heap.cut<W>(words), words};
}

template <class W>
BigFloat<W> cut_number(LinearHeapBuffer& heap, u64 words) {
  return BigFloat<W>(heap.cut<W>(words), words);
}

void check_run(const char* function, const RunContext& ctx, u64 tds, const Need& need, u64 heap_size) {
  if (ctx.parallel.tds > tds) throw InvalidParametersException(function, "tds is larger than plan.");
  if (heap_size < need.ram_bytes) throw BufferTooSmallException(function, heap_size, need.ram_bytes);
}

}  // namespace

// ---- 1/sqrt(w)
// ----------------------------------------------------------------------------------------------

template <class Store>
InvsqrtWord<Store>::InvsqrtWord(u64 p, u64 tds) : p_(p), tds_(tds) {
  if (p <= kSmallWords) {
    need_ = small_need<W>(p, p + 4);
    return;
  }
  const u64 h = level_below(p);
  below_ = std::make_unique<InvsqrtWord>(h, tds);
  need_ = level_need<W>(p, tds, words_bytes<W>(h + 4) + words_bytes<W>(h + 3), 1, below_->need_, p + 4);
}

template <class Store>
void InvsqrtWord<Store>::run(const RunContext& ctx, Frame& frame, Number& out, W w, Arena heap) const {
  constexpr const char* kFunction = "InvsqrtWord_BigFloatR::run()";
  using Transform = typename Store::Transform;
  check_run(kFunction, ctx, tds_, need_, heap.size);
  if (!below_) {
    const LinearWordBuffer<W> small = cut_small<W>(heap, p_);
    return InvsqrtWord_BigFloatR_E(ctx.multiply(heap), out, w, p_, small);
  }
  const u64 h = below_->p_;
  Number t = cut_number<W>(heap, h + 4);
  Number d = cut_number<W>(heap, h + 3);
  {
    StatusFrame status(ctx.status, "R");
    below_->run(ctx, frame, t, w, heap);
  }
  const typename Transform::Helper helper(ctx.multiply(heap), 2 * (h + 2), 1);
  Transform kept;
  {
    StatusFrame status(ctx.status, " 0M ");
    Transform::sqr_rx_xf(helper, out, p_ + 1, t, kept);
    out.mul_uW(w, ctx.parallel);
  }
  const Estimate side = take_error(out, h, kFunction, ctx.parallel);
  if (side == Estimate::kExact) return keep_exact(out, p_, t, ctx.parallel);
  {
    StatusFrame status(ctx.status, " 1M ");
    out.mp2(-1, ctx.parallel);
    Transform::mul_rf_xf(helper, d, h + 1, top_words(out, h + 2), kept);
  }
  apply_correction(out, p_, t, d, side, ctx.parallel);
}

// ---- 1/sqrt(a)
// ----------------------------------------------------------------------------------------------

template <class Store>
InvsqrtFloat<Store>::InvsqrtFloat(u64 p, u64 tds) : p_(p), tds_(tds) {
  if (p <= kSmallWords) {
    need_ = small_need<W>(p, p + 4);
    return;
  }
  const u64 h = level_below(p);
  below_ = std::make_unique<InvsqrtFloat>(h, tds);
  const u64 numbers = words_bytes<W>(h + 4) + words_bytes<W>(h + 3) + words_bytes<W>(p + 4);
  need_ = level_need<W>(p, tds, numbers, 1, below_->need_, p + 4);
}

template <class Store>
void InvsqrtFloat<Store>::run(const RunContext& ctx, Frame& frame, Number& out, const Number& a,
                              Arena heap) const {
  constexpr const char* kFunction = "InvsqrtFloat_BigFloatR::run()";
  using Transform = typename Store::Transform;
  check_run(kFunction, ctx, tds_, need_, heap.size);
  if (!below_) {
    const LinearWordBuffer<W> small = cut_small<W>(heap, p_);
    return InvsqrtFloat_BigFloatR_E(ctx.multiply(heap), out, a, p_, small);
  }
  const u64 h = below_->p_;
  Number t = cut_number<W>(heap, h + 4);
  Number d = cut_number<W>(heap, h + 3);
  Number root = cut_number<W>(heap, p_ + 4);
  {
    StatusFrame status(ctx.status, "R");
    below_->run(ctx, frame, t, a, heap);
  }
  const typename Transform::Helper helper(ctx.multiply(heap), 2 * (h + 2), 1);
  Transform kept;
  {
    // a t, an approximation of sqrt(a), and then e = a t * t: t is transformed once for four products.
    StatusFrame status(ctx.status, " 0M ");
    kept.forward(helper, h, t);
    mul_in_halves(helper, root, p_, h, a, kept, d);
    mul_in_halves(helper, out, p_, h, root, kept, d);
  }
  const Estimate side = take_error(out, h, kFunction, ctx.parallel);
  if (side == Estimate::kExact) return keep_exact(out, p_, t, ctx.parallel);
  {
    StatusFrame status(ctx.status, " 1M ");
    out.mp2(-1, ctx.parallel);
    Transform::mul_rf_xf(helper, d, h + 1, top_words(out, h + 2), kept);
  }
  apply_correction(out, p_, t, d, side, ctx.parallel);
}

// ---- 1/a
// ----------------------------------------------------------------------------------------------------

template <class Store>
Reciprocal<Store>::Reciprocal(u64 p, u64 tds) : p_(p), tds_(tds) {
  if (p <= kSmallWords) {
    need_ = small_need<W>(p, p + 4);
    return;
  }
  const u64 h = level_below(p);
  below_ = std::make_unique<Reciprocal>(h, tds);
  need_ = level_need<W>(p, tds, words_bytes<W>(h + 4) + words_bytes<W>(h + 3), 1, below_->need_, p + 4);
}

template <class Store>
void Reciprocal<Store>::run(const RunContext& ctx, Frame& frame, Number& out, const Number& a,
                            Arena heap) const {
  constexpr const char* kFunction = "Reciprocal_BigFloatR::run()";
  using Transform = typename Store::Transform;
  check_run(kFunction, ctx, tds_, need_, heap.size);
  if (!below_) {
    const LinearWordBuffer<W> small = cut_small<W>(heap, p_);
    return Reciprocal_BigFloatR_E(ctx.multiply(heap), out, a, p_, small);
  }
  const u64 h = below_->p_;
  Number x0 = cut_number<W>(heap, h + 4);
  Number d = cut_number<W>(heap, h + 3);
  {
    StatusFrame status(ctx.status, "R");
    below_->run(ctx, frame, x0, a, heap);
  }
  const typename Transform::Helper helper(ctx.multiply(heap), 2 * (h + 2), 1);
  Transform kept;
  {
    StatusFrame status(ctx.status, " 0M ");
    kept.forward(helper, h, x0);
    mul_in_halves(helper, out, p_, h, a, kept, d);
  }
  const Estimate side = take_error(out, h, kFunction, ctx.parallel);
  if (side == Estimate::kExact) return keep_exact(out, p_, x0, ctx.parallel);
  {
    StatusFrame status(ctx.status, " 1M ");
    Transform::mul_rf_xf(helper, d, h + 1, top_words(out, h + 2), kept);
  }
  apply_correction(out, p_, x0, d, side, ctx.parallel);
}

// ---- A / B
// --------------------------------------------------------------------------------------------------

namespace {

// The words at the higher of the two tops must agree within one.
template <class W>
void check_tops(const char* function, const BigFloat<W>& a, const BigFloat<W>& product) {
  const s64 top = std::max(a.magnitude(), product.magnitude()) - 1;
  const W top_a = a.word_at(top);
  const W top_b = product.word_at(top);
  if (top_a - top_b <= 1 || top_b - top_a <= 1) return;
  throw AlgorithmFailedException(function, "Convergence Failure:\n    topA = " + std::to_string(top_a) +
                                               "\n    topB = " + std::to_string(top_b));
}

// difference = |a - product|; tells which is larger.
template <class W>
Estimate subtract(BigFloat<W>& difference, u64 n, const BigFloat<W>& a, const BigFloat<W>& product,
                  ParallelContext parallel) {
  const int order = BigFloat<W>::cmp(a, product);
  if (order == 0) return Estimate::kExact;
  if (order > 0)
    difference.set_usub(n + 1, a, product, parallel);
  else
    difference.set_usub(n + 1, product, a, parallel);
  return order > 0 ? Estimate::kUnder : Estimate::kOver;
}

}  // namespace

template <class Store>
Division<Store>::Division(u64 p, u64 tds) : p_(p), tds_(tds) {
  if (p <= kSmallWords) {
    need_ = small_need<W>(p, p + 4);
    need_.ram_bytes += words_bytes<W>(p + 4);
    return;
  }
  const u64 h = level_below(p);
  reciprocal_ = std::make_unique<Reciprocal<Store>>(h, tds);
  const u64 numbers = words_bytes<W>(h + 4) + 2 * words_bytes<W>(h + 3) + words_bytes<W>(p + 4);
  need_ = level_need<W>(p, tds, numbers, 1, reciprocal_->need(), p + 4);
}

template <class Store>
void Division<Store>::run(const RunContext& ctx, Frame& frame, Number& out, const Number& a, const Number& b,
                          Arena heap) const {
  constexpr const char* kFunction = "Division_BigFloatR<wtype>::run()";
  using Transform = typename Store::Transform;
  if (ctx.parallel.tds != tds_) throw InvalidParametersException(kFunction, "Mismatching tds.");
  check_run(kFunction, ctx, tds_, need_, heap.size);
  if (a.L == 0 && b.L != 0) return out.set_zero();
  StatusFrame division(ctx.status, "Large Division");
  if (!reciprocal_) {
    Number r = cut_number<W>(heap, p_ + 4);
    const LinearWordBuffer<W> small = cut_small<W>(heap, p_);
    Reciprocal_BigFloatR_E(ctx.multiply(heap), r, b, p_, small);
    out.set_mul_small(p_ + 1, a, r, ctx.multiply(heap));
    return out.truncate(p_);
  }
  const u64 h = reciprocal_->precision();
  Number r = cut_number<W>(heap, h + 4);
  Number q0 = cut_number<W>(heap, h + 3);
  Number d = cut_number<W>(heap, h + 3);
  Number difference = cut_number<W>(heap, p_ + 3);
  {
    StatusFrame status(ctx.status, "R");
    reciprocal_->run(ctx, frame, r, b, heap);
  }
  // r is transformed twice, before and after q0: its transform kept throughout would save less than a tenth
  // of the time and take a third more memory.
  const typename Transform::Helper helper(ctx.multiply(heap), 2 * (h + 2), 1);
  Transform kept;
  {
    StatusFrame status(ctx.status, " 0M ");
    kept.forward(helper, h, r);
    Transform::mul_rf_xf(helper, q0, h, top_words(a, h + 2), kept);
  }
  {
    StatusFrame status(ctx.status, " 1M ");
    kept.forward(helper, h, q0);
    mul_in_halves(helper, out, p_, h, b, kept, d);
  }
  const Number dividend = top_words(a, p_ + 2);
  check_tops(kFunction, dividend, out);
  const Estimate side = subtract(difference, p_, dividend, out, ctx.parallel);
  if (side == Estimate::kExact) return out.set_BigFloat(p_, q0, ctx.parallel);
  {
    StatusFrame status(ctx.status, " 2M ");
    kept.forward(helper, h, r);
    Transform::mul_rf_xf(helper, d, h + 1, top_words(difference, h + 2), kept);
  }
  apply_correction(out, p_, q0, d, side, ctx.parallel);
}

// ---- without a frame
// ----------------------------------------------------------------------------------------

template <class Store>
void InvsqrtWord<Store>::run(const RunContext& ctx, Number& out, W w, Arena heap) const {
  Frame frame;
  run(ctx, frame, out, w, heap);
}
template <class Store>
void InvsqrtFloat<Store>::run(const RunContext& ctx, Number& out, const Number& a, Arena heap) const {
  Frame frame;
  run(ctx, frame, out, a, heap);
}
template <class Store>
void Reciprocal<Store>::run(const RunContext& ctx, Number& out, const Number& a, Arena heap) const {
  Frame frame;
  run(ctx, frame, out, a, heap);
}
template <class Store>
void Division<Store>::run(const RunContext& ctx, Number& out, const Number& a, const Number& b,
                          Arena heap) const {
  Frame frame;
  run(ctx, frame, out, a, b, heap);
}

template class InvsqrtWord<RamStore<u32>>;
template class InvsqrtWord<RamStore<u64>>;
template class InvsqrtFloat<RamStore<u32>>;
template class InvsqrtFloat<RamStore<u64>>;
template class Reciprocal<RamStore<u32>>;
template class Reciprocal<RamStore<u64>>;
template class Division<RamStore<u32>>;
template class Division<RamStore<u64>>;

}  // namespace orl
