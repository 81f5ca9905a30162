#include "functions/newton.h"

#include <algorithm>

#include "core/exceptions.h"
#include "core/status.h"
#include "functions/newton_level.h"
#include "multiply/algorithm_table.h"

// Errors, relative, for a level of n words over one of h = (n + 1) >> 1; c is a small number.
//
//   Induction      t has error |eps| < c W^-(h+1), and n + 1 <= 2 h + 1.
//   Newton         1/sqrt: the step leaves 3/2 eps^2; reciprocal and quotient: eps^2. Both < W^-(n+1), as
//   2(h+1) > n+1. e              holds n + 3 words, of which the top may be 0 and the next 1: an error of c
//   W^-(n+1), for 1/sqrt(w) with the factor
//                  w < W over a square truncated at W^-(n+2).
//   correction     is itself of size c W^-(h+1) and kept to h + 3 words, of which the top may be 0 and the
//   next 1. result         keeps n + 2 words, of which the top may be 1: W^-(n+1).
// So |e - 1| < W^(2-h) is missed by a wide margin, and whatever reaches it was miscomputed. Wrapped products
// are exact, so their e has the error of its operands alone.

namespace orl {

namespace {

// Up to here a level needs no transform, and the levels below it share its small buffer.
constexpr u64 kSmallWords = 9;

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

// `numbers` are cut beside what is either the level below or the level's products.
template <class W>
Need level_need(const LevelShape& shape, u64 tds, u64 numbers, const Need& below) {
  Need need;
  need.ram_bytes =
      words_bytes<W>(shape.buffer_words()) + numbers + std::max(below.ram_bytes, shape.bytes<W>(tds));
  need.out_words = shape.n + 4;
  need.table_bits = std::max(below.table_bits, shape.product_words * 8 * sizeof(W));
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

template <class W>
W* cut_buffer(LinearHeapBuffer& heap, const LevelShape& shape) {
  return heap.cut<W>(shape.buffer_words());
}

// The estimate with the error that was found taken off, half of it for a root.
template <class W>
void finish_level(const RunContext& ctx, LevelProducts<W>& products, BigFloat<W>& out, u64 p,
                  const BigFloat<W>& t, Estimate side, bool half) {
  if (side == Estimate::kExact) return keep_exact(out, p, t, ctx.parallel);
  StatusFrame status(ctx.status, " 1M ");
  if (half) products.halve_error();
  products.correct(out, t, side);
}

void check_run(const char* function, const RunContext& ctx, u64 tds, const Need& need, u64 heap_size) {
  if (ctx.parallel.tds > tds) throw InvalidParametersException(function, "tds is larger than plan.");
  if (heap_size < need.ram_bytes) throw BufferTooSmallException(function, heap_size, need.ram_bytes);
}

}  // namespace

// ---- 1/sqrt(w) ------------------------------------------------------------------------------------------

// Wrapping pays nothing here: e has its known top already in t^2, and modulo W^(n/2) that square needs a
// transform of t of its own.

template <class Store>
InvsqrtWord<Store>::InvsqrtWord(u64 p, u64 tds) : NewtonPlan<InvsqrtWord>(p, tds) {
  if (p <= kSmallWords) {
    this->need_ = small_need<W>(p, p + 4);
    return;
  }
  this->shape_ = LevelShape::plain<W>(p);
  const u64 h = this->shape_.below;
  this->below_ = std::make_unique<InvsqrtWord>(h, tds);
  this->need_ = level_need<W>(this->shape_, tds, words_bytes<W>(h + 4), this->below_->need());
}

template <class Store>
void InvsqrtWord<Store>::run(const RunContext& ctx, Frame& frame, Number& out, W w, Arena heap) const {
  constexpr const char* kFunction = "InvsqrtWord_BigFloatR::run()";
  const u64 p = this->p_;
  check_run(kFunction, ctx, this->tds_, this->need_, heap.size);
  if (!this->below_) {
    const LinearWordBuffer<W> small = cut_small<W>(heap, p);
    return InvsqrtWord_BigFloatR_E(ctx.multiply(heap), out, w, p, small);
  }
  Number t = cut_number<W>(heap, this->shape_.below + 4);
  W* const buffer = cut_buffer<W>(heap, this->shape_);
  {
    StatusFrame status(ctx.status, "R");
    this->below_->run(ctx, frame, t, w, heap);
  }
  LevelProducts<W> products(ctx.multiply(heap), this->shape_, buffer);
  {
    StatusFrame status(ctx.status, " 0M ");
    products.keep_and_square(out, t);
    out.mul_uW(w, ctx.parallel);
  }
  const Estimate side = products.error_of(out, kFunction);
  finish_level(ctx, products, out, p, t, side, true);
}

// ---- 1/sqrt(a) ------------------------------------------------------------------------------------------

template <class Store>
InvsqrtFloat<Store>::InvsqrtFloat(u64 p, u64 tds) : NewtonPlan<InvsqrtFloat>(p, tds) {
  if (p <= kSmallWords) {
    this->need_ = small_need<W>(p, p + 4);
    return;
  }
  this->shape_ = LevelShape::wrapped<W>(p, tds);
  const u64 h = this->shape_.below;
  this->below_ = std::make_unique<InvsqrtFloat>(h, tds);
  const u64 numbers = words_bytes<W>(h + 4) + words_bytes<W>(p + 4);
  this->need_ = level_need<W>(this->shape_, tds, numbers, this->below_->need());
}

template <class Store>
void InvsqrtFloat<Store>::run(const RunContext& ctx, Frame& frame, Number& out, const Number& a,
                              Arena heap) const {
  constexpr const char* kFunction = "InvsqrtFloat_BigFloatR::run()";
  const u64 p = this->p_;
  check_run(kFunction, ctx, this->tds_, this->need_, heap.size);
  if (!this->below_) {
    const LinearWordBuffer<W> small = cut_small<W>(heap, p);
    return InvsqrtFloat_BigFloatR_E(ctx.multiply(heap), out, a, p, small);
  }
  Number t = cut_number<W>(heap, this->shape_.below + 4);
  Number root = cut_number<W>(heap, p + 4);
  W* const buffer = cut_buffer<W>(heap, this->shape_);
  {
    StatusFrame status(ctx.status, "R");
    this->below_->run(ctx, frame, t, a, heap);
  }
  LevelProducts<W> products(ctx.multiply(heap), this->shape_, buffer);
  Estimate side;
  {
    // a t, an approximation of sqrt(a), of which nothing is known, and then e = a t * t.
    StatusFrame status(ctx.status, " 0M ");
    products.keep(t);
    products.multiply_long(root, a);
    side = products.error(out, root, kFunction);
  }
  finish_level(ctx, products, out, p, t, side, true);
}

// ---- 1/a ------------------------------------------------------------------------------------------------

template <class Store>
Reciprocal<Store>::Reciprocal(u64 p, u64 tds) : NewtonPlan<Reciprocal>(p, tds) {
  if (p <= kSmallWords) {
    this->need_ = small_need<W>(p, p + 4);
    return;
  }
  this->shape_ = LevelShape::wrapped<W>(p, tds);
  const u64 h = this->shape_.below;
  this->below_ = std::make_unique<Reciprocal>(h, tds);
  this->need_ = level_need<W>(this->shape_, tds, words_bytes<W>(h + 4), this->below_->need());
}

template <class Store>
void Reciprocal<Store>::run(const RunContext& ctx, Frame& frame, Number& out, const Number& a,
                            Arena heap) const {
  constexpr const char* kFunction = "Reciprocal_BigFloatR::run()";
  const u64 p = this->p_;
  check_run(kFunction, ctx, this->tds_, this->need_, heap.size);
  if (!this->below_) {
    const LinearWordBuffer<W> small = cut_small<W>(heap, p);
    return Reciprocal_BigFloatR_E(ctx.multiply(heap), out, a, p, small);
  }
  Number x0 = cut_number<W>(heap, this->shape_.below + 4);
  W* const buffer = cut_buffer<W>(heap, this->shape_);
  {
    StatusFrame status(ctx.status, "R");
    this->below_->run(ctx, frame, x0, a, heap);
  }
  LevelProducts<W> products(ctx.multiply(heap), this->shape_, buffer);
  Estimate side;
  {
    StatusFrame status(ctx.status, " 0M ");
    products.keep(x0);
    side = products.error(out, a, kFunction);
  }
  finish_level(ctx, products, out, p, x0, side, false);
}

// ---- A / B ----------------------------------------------------------------------------------------------

template <class Store>
Division<Store>::Division(u64 p, u64 tds, DivisionMemory memory)
    : NewtonPlan<Reciprocal<Store>>(p, tds), least_(memory == DivisionMemory::kLeast) {
  if (p <= kSmallWords) {
    this->need_ = small_need<W>(p, p + 4);
    this->need_.ram_bytes += words_bytes<W>(p + 4);
    return;
  }
  this->shape_ = LevelShape::wrapped<W>(p, tds);
  const u64 h = this->shape_.below;
  this->below_ = std::make_unique<Reciprocal<Store>>(h, tds);
  if (least_) {
    plan_least(tds);
    return;
  }
  u64 numbers = words_bytes<W>(h + 4);
  if (memory == DivisionMemory::kKeep)
    this->shape_.kept = 2;
  else
    numbers += words_bytes<W>(h + 3);
  if (!this->shape_.wrap) numbers += words_bytes<W>(p + 3);
  this->need_ = level_need<W>(this->shape_, tds, numbers, this->below_->need());
}

template <class Store>
void Division<Store>::run(const RunContext& ctx, Frame& frame, Number& out, const Number& a, const Number& b,
                          Arena heap) const {
  constexpr const char* kFunction = "Division_BigFloatR<wtype>::run()";
  const u64 p = this->p_;
  if (ctx.parallel.tds != this->tds_) throw InvalidParametersException(kFunction, "Mismatching tds.");
  check_run(kFunction, ctx, this->tds_, this->need_, heap.size);
  if (a.L == 0 && b.L != 0) return out.set_zero();
  StatusFrame division(ctx.status, "Large Division");
  if (!this->below_) {
    Number r = cut_number<W>(heap, p + 4);
    const LinearWordBuffer<W> small = cut_small<W>(heap, p);
    Reciprocal_BigFloatR_E(ctx.multiply(heap), r, b, p, small);
    out.set_mul_small(p + 1, a, r, ctx.multiply(heap));
    return out.truncate(p);
  }
  if (least_) return run_least(ctx, frame, out, a, b, heap);
  const u64 h = this->shape_.below;
  Number r = cut_number<W>(heap, h + 4);
  // With its transform kept r is not needed when the quotient comes.
  const bool keep = this->shape_.kept == 2;
  Number q0 = keep ? Number(r.base, r.size) : cut_number<W>(heap, h + 3);
  Number difference = this->shape_.wrap ? Number() : cut_number<W>(heap, p + 3);
  W* const buffer = cut_buffer<W>(heap, this->shape_);
  {
    StatusFrame status(ctx.status, "R");
    this->below_->run(ctx, frame, r, b, heap);
  }
  LevelProducts<W> products(ctx.multiply(heap), this->shape_, buffer);
  {
    StatusFrame status(ctx.status, " 0M ");
    products.keep(r);
    products.multiply(q0, h, a);
  }
  Estimate side;
  {
    StatusFrame status(ctx.status, " 1M ");
    products.keep(q0, keep ? 1 : 0);
    side = products.difference(out, difference, a, b, kFunction);
  }
  if (side == Estimate::kExact) return out.set_BigFloat(p, q0, ctx.parallel);
  StatusFrame status(ctx.status, " 2M ");
  if (keep)
    products.use(0);
  else
    products.keep(r);
  products.correct(out, q0, side);
}

template <class Store>
void Division<Store>::plan_least(u64 tds) {
  const u64 p = this->p_, h = this->shape_.below;
  const u64 product = p + 3 + h + 2;
  const auto scratch = [&](u64 words, u64 window) {
    return basic_table<W>().max_bounded_sizes(words, tds, window).product_bytes;
  };
  this->need_ = this->below_->need();
  this->need_.ram_bytes = 2 * words_bytes<W>(h + 4) + words_bytes<W>(p + 3) +
                          std::max({this->need_.ram_bytes, scratch(product, p + 3),
                                    words_bytes<W>(h + 4) + scratch(2 * h + 5, h)});
  this->need_.out_words = p + 4;
  this->need_.table_bits = product * 8 * sizeof(W);
}

template <class Store>
void Division<Store>::run_least(const RunContext& ctx, Frame& frame, Number& out, const Number& a,
                                const Number& b, Arena heap) const {
  const u64 p = this->p_, h = this->shape_.below;
  Number r = cut_number<W>(heap, h + 4);
  Number q0 = cut_number<W>(heap, h + 4);
  Number difference = cut_number<W>(heap, p + 3);
  {
    StatusFrame status(ctx.status, "R");
    this->below_->run(ctx, frame, r, b, heap);
  }
  {
    StatusFrame status(ctx.status, " 0M ");
    q0.set_mul(h, a, r, ctx.multiply(heap));
  }
  {
    StatusFrame status(ctx.status, " 1M ");
    out.set_mul(p + 1, b, q0, ctx.multiply(heap));
  }
  const Estimate side = subtract_product(difference, p, top_words(a, p + 2), out,
                                         "Division_BigFloatR<wtype>::run()", ctx.parallel);
  if (side == Estimate::kExact) return out.set_BigFloat(p, q0, ctx.parallel);
  StatusFrame status(ctx.status, " 2M ");
  Number d = cut_number<W>(heap, h + 4);
  d.set_mul(h + 1, difference, r, ctx.multiply(heap));
  apply_correction(out, p, q0, d, side, ctx.parallel);
}

// ---- without a frame ------------------------------------------------------------------------------------

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
