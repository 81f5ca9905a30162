// The definitions of newton.h, for the files that instantiate them for a store.
//
// Errors, relative, for a level of n words over one of h = (n + 1) >> 1; c is a small number.
//
//   Induction      t has error |eps| < c W^-(h+1), and n + 1 <= 2 h + 1.
//   Newton         1/sqrt: the step leaves 3/2 eps^2; reciprocal and quotient: eps^2. Both are < W^-(n+1), as
//                  2 (h + 1) > n + 1.
//   e              holds n + 3 words, of which the top may be 0 and the next 1: an error of c W^-(n+1), for
//                  1/sqrt(w) with the factor w < W over a square truncated at W^-(n+2).
//   correction     is itself of size c W^-(h+1) and kept to h + 3 words, of which the top may be 0 and the
//                  next 1.
//   result         keeps n + 2 words, of which the top may be 1: W^-(n+1).
//
// So |e - 1| < W^(2-h) is missed by a wide margin, and whatever reaches it was miscomputed. Wrapped products
// are exact, so their e has the error of its operands alone.
#pragma once

#include <algorithm>

#include "core/exceptions.h"
#include "core/status.h"
#include "functions/newton.h"
#include "functions/newton_small.h"

namespace orl {

namespace newton {

// The estimate with the error that was found taken off, half of it for a root.
template <class Products, class Number>
void finish_level(const RunContext& ctx, Products& products, Number& out, const Number& t, Estimate side,
                  bool root) {
  if (side == Estimate::kExact) return products.keep_exact(out, t);
  const StatusFrame status(ctx.status, " 1M ");
  if (root) products.halve_error();
  products.correct(out, t, side);
}

}  // namespace newton

// ---- what all plans share -------------------------------------------------------------------------------

template <class Store, class Below>
bool NewtonPlan<Store, Below>::plan_small(bool quotient) {
  if (p_ > kSmallLevelWords) return false;
  need_ = Store::need_of([&](auto& arena) {
    if (quotient) cut_small_reciprocal<W>(arena, p_);
    cut_small_level<W>(arena, p_);
  });
  need_.out_words = p_ + 4;
  need_.table_bits = (2 * p_ + 8) * 8 * sizeof(W);
  return true;
}

template <class Store, class Below>
template <class Layout>
void NewtonPlan<Store, Below>::plan_level(const LevelShape& shape, const Layout& layout) {
  shape_ = shape;
  below_ = std::make_unique<Below>(shape.below, budget_);
  need_ = Store::need_of(layout);
  need_.out_words = p_ + 4;
  need_.table_bits = std::max(below_->need().table_bits, shape.product_words * 8 * sizeof(W));
}

template <class Store, class Below>
template <class AnyArena>
void NewtonPlan<Store, Below>::leave_parts(AnyArena arena) const {
  arena.leave(below_->need());
  LevelProducts<Store>::lay_out(shape_, budget_.tds, arena);
}

template <class Store, class Below>
typename Store::Frame NewtonPlan<Store, Below>::enter(const char* function, const RunContext& ctx,
                                                      Frame& frame, const Arena& arena) const {
  if (ctx.parallel.tds > budget_.tds) throw InvalidParametersException(function, "tds is larger than plan.");
  arena.leave(need_);
  Frame own = frame.enter(function);
  own.assert_sL("p", p_);
  own.assert_sL("tds", budget_.tds);
  return own;
}

// ---- 1/sqrt(w) ------------------------------------------------------------------------------------------

// Wrapping pays nothing here: e has its known top already in t^2, and modulo W^(n/2) that square needs a
// transform of t of its own.

template <class Store>
InvsqrtWord<Store>::InvsqrtWord(u64 p, const Budget& budget) : Plan(p, budget) {
  if (!this->plan_small()) this->plan_level(LevelShape::plain<W>(p), [&](auto& arena) { lay_out(arena); });
}

template <class Store>
template <class AnyArena>
auto InvsqrtWord<Store>::lay_out(AnyArena& arena) const -> Number {
  Number t = Store::number(arena, this->shape_.below + 4, "orv_X.sf");
  this->leave_parts(arena);
  return t;
}

template <class Store>
void InvsqrtWord<Store>::run(const RunContext& ctx, Frame& parent, Number& out, W w, Arena arena) const {
  constexpr const char* kFunction = "InvsqrtWord_BigFloatR::run()";
  Frame frame = this->enter(kFunction, ctx, parent, arena);
  if (!this->below_) return frame.stage([&] { small_inverse_root(ctx, out, w, this->p_, arena); }, out);
  Number t = lay_out(arena);
  frame.stage(
      [&] {
        const StatusFrame status(ctx.status, "R");
        this->below_->run(ctx, frame, t, w, arena);
      },
      t);
  frame.stage(
      [&] {
        LevelProducts<Store> products(ctx, this->shape_, arena);
        Estimate side;
        {
          const StatusFrame status(ctx.status, " 0M ");
          side = products.square_error(out, t, w, kFunction);
        }
        newton::finish_level(ctx, products, out, t, side, true);
      },
      out);
}

// ---- 1/sqrt(a) ------------------------------------------------------------------------------------------

template <class Store>
InvsqrtFloat<Store>::InvsqrtFloat(u64 p, const Budget& budget) : Plan(p, budget) {
  if (!this->plan_small())
    this->plan_level(LevelShape::wrapped<W>(p, budget.tds), [&](auto& arena) { lay_out(arena); });
}

template <class Store>
template <class AnyArena>
typename InvsqrtFloat<Store>::Numbers InvsqrtFloat<Store>::lay_out(AnyArena& arena) const {
  Numbers numbers;
  numbers.estimate = Store::number(arena, this->shape_.below + 4, "orv_X.sf");
  numbers.root = Store::number(arena, this->p_ + 4, "orv_S.sf");
  this->leave_parts(arena);
  return numbers;
}

template <class Store>
void InvsqrtFloat<Store>::run(const RunContext& ctx, Frame& parent, Number& out, const Number& a,
                              Arena arena) const {
  constexpr const char* kFunction = "InvsqrtFloat_BigFloatR::run()";
  Frame frame = this->enter(kFunction, ctx, parent, arena);
  if (!this->below_) return frame.stage([&] { small_inverse_root(ctx, out, a, this->p_, arena); }, out);
  auto [t, root] = lay_out(arena);
  frame.stage(
      [&, &estimate = t] {
        const StatusFrame status(ctx.status, "R");
        this->below_->run(ctx, frame, estimate, a, arena);
      },
      t);
  frame.stage(
      [&, &t = t, &root = root] {
        LevelProducts<Store> products(ctx, this->shape_, arena);
        Estimate side;
        {
          // a t, an approximation of sqrt(a), of which nothing is known, and then e = a t * t.
          const StatusFrame status(ctx.status, " 0M ");
          products.keep(t);
          products.multiply_long(root, a);
          side = products.error(out, root, kFunction);
        }
        newton::finish_level(ctx, products, out, t, side, true);
      },
      out);
}

// ---- 1/a ------------------------------------------------------------------------------------------------

template <class Store>
Reciprocal<Store>::Reciprocal(u64 p, const Budget& budget) : Plan(p, budget) {
  if (!this->plan_small())
    this->plan_level(LevelShape::wrapped<W>(p, budget.tds), [&](auto& arena) { lay_out(arena); });
}

template <class Store>
template <class AnyArena>
auto Reciprocal<Store>::lay_out(AnyArena& arena) const -> Number {
  Number x0 = Store::number(arena, this->shape_.below + 4, "orv_X.sf");
  this->leave_parts(arena);
  return x0;
}

template <class Store>
void Reciprocal<Store>::run(const RunContext& ctx, Frame& parent, Number& out, const Number& a,
                            Arena arena) const {
  constexpr const char* kFunction = "Reciprocal_BigFloatR::run()";
  Frame frame = this->enter(kFunction, ctx, parent, arena);
  if (!this->below_) return frame.stage([&] { small_reciprocal(ctx, out, a, this->p_, arena); }, out);
  Number x0 = lay_out(arena);
  frame.stage(
      [&] {
        const StatusFrame status(ctx.status, "R");
        this->below_->run(ctx, frame, x0, a, arena);
      },
      x0);
  frame.stage(
      [&] {
        LevelProducts<Store> products(ctx, this->shape_, arena);
        Estimate side;
        {
          const StatusFrame status(ctx.status, " 0M ");
          products.keep(x0);
          side = products.error(out, a, kFunction);
        }
        newton::finish_level(ctx, products, out, x0, side, false);
      },
      out);
}

// ---- A / B ----------------------------------------------------------------------------------------------

template <class Store>
Division<Store>::Division(u64 p, const Budget& budget, DivisionMemory memory)
    : Plan(p, budget), memory_(memory) {
  if (this->plan_small(true)) return;
  LevelShape shape = LevelShape::wrapped<W>(p, budget.tds);
  shape.dividend = true;
  if (memory == DivisionMemory::kKeep) shape.kept = 2;
  this->plan_level(shape, [&](auto& arena) {
    lay_out(arena);
    if (memory == DivisionMemory::kLeast) lay_out_correction(arena);
  });
  // This way makes the largest product in one piece.
  if (memory == DivisionMemory::kLeast) this->need_.table_bits = (p + 3 + shape.below + 2) * 8 * sizeof(W);
}

template <class Store>
template <class AnyArena>
typename Division<Store>::Numbers Division<Store>::lay_out(AnyArena& arena) const {
  const u64 p = this->p_, h = this->shape_.below;
  const bool least = memory_ == DivisionMemory::kLeast;
  Numbers numbers;
  numbers.reciprocal = Store::number(arena, h + 4, "orv_R.sf");
  // Where its transform is kept the reciprocal is not needed when the quotient comes, and makes room for it.
  if (memory_ != DivisionMemory::kKeep) numbers.quotient = Store::number(arena, h + 3, "orv_Q.sf");
  if (!least) {
    this->leave_parts(arena);
    return numbers;
  }
  numbers.difference = Store::number(arena, p + 3, "orv_D.sf");
  arena.leave(this->below_->need());
  arena.leave(Store::product_need(p + 3 + h + 2, p + 3, this->budget_));
  return numbers;
}

template <class Store>
template <class AnyArena>
auto Division<Store>::lay_out_correction(AnyArena& arena) const -> Number {
  const u64 h = this->shape_.below;
  Number d = Store::number(arena, h + 4, "orv_C.sf");
  arena.leave(Store::product_need(2 * h + 5, h, this->budget_));
  return d;
}

template <class Store>
void Division<Store>::run(const RunContext& ctx, Frame& parent, Number& out, const Number& a, const Number& b,
                          Arena arena) const {
  constexpr const char* kFunction = "Division_BigFloatR<wtype>::run()";
  const u64 p = this->p_;
  if (ctx.parallel.tds != this->budget_.tds) throw InvalidParametersException(kFunction, "Mismatching tds.");
  Frame frame = this->enter(kFunction, ctx, parent, arena);
  if (a.L == 0 && b.L != 0) return out.set_zero();
  const StatusFrame division(ctx.status, "Large Division");
  if (!this->below_) return frame.stage([&] { small_quotient(ctx, out, a, b, p, arena); }, out);
  if (memory_ == DivisionMemory::kLeast) return run_least(ctx, frame, out, a, b, arena);
  Numbers numbers = lay_out(arena);
  const bool keep = memory_ == DivisionMemory::kKeep;
  Number& r = numbers.reciprocal;
  Number& q0 = keep ? r : numbers.quotient;
  frame.stage(
      [&] {
        const StatusFrame status(ctx.status, "R");
        this->below_->run(ctx, frame, r, b, arena);
      },
      r);
  LevelProducts<Store> products(ctx, this->shape_, arena);
  frame.stage(
      [&] {
        const StatusFrame status(ctx.status, " 0M ");
        products.keep(r);
        products.multiply(q0, this->shape_.below, a);
      },
      r, q0);
  frame.stage(
      [&] {
        Estimate side;
        {
          const StatusFrame status(ctx.status, " 1M ");
          products.keep(q0, keep ? 1 : 0);
          side = products.difference(out, a, b, kFunction);
        }
        const StatusFrame status(ctx.status, " 2M ");
        if (keep)
          products.use(0);
        else
          products.keep(r);
        products.correct(out, q0, side);
      },
      out);
}

template <class Store>
void Division<Store>::run_least(const RunContext& ctx, Frame& frame, Number& out, const Number& a,
                                const Number& b, Arena arena) const {
  const u64 p = this->p_, h = this->shape_.below;
  Numbers numbers = lay_out(arena);
  Number &r = numbers.reciprocal, &q0 = numbers.quotient, &difference = numbers.difference;
  frame.stage(
      [&] {
        const StatusFrame status(ctx.status, "R");
        this->below_->run(ctx, frame, r, b, arena);
      },
      r);
  frame.stage(
      [&] {
        const StatusFrame status(ctx.status, " 0M ");
        q0.set_mul(h, a, r, Store::scratch(ctx, arena));
      },
      r, q0);
  frame.stage(
      [&] {
        const StatusFrame status(ctx.status, " 1M ");
        out.set_mul(p + 1, b, q0, Store::scratch(ctx, arena));
        fault_point("quotient times divisor", out);
      },
      r, q0, out);
  frame.stage(
      [&] {
        const Estimate side =
            subtract_product(difference, p, a, out, "Division_BigFloatR<wtype>::run()", ctx.parallel);
        const StatusFrame status(ctx.status, " 2M ");
        Arena rest = arena;
        Number d = lay_out_correction(rest);
        if (side != Estimate::kExact) d.set_mul(h + 1, difference, r, Store::scratch(ctx, rest));
        fault_point("newton correction", d);
        apply_correction(out, p, q0, d, side, ctx.parallel);
      },
      out);
}

}  // namespace orl
