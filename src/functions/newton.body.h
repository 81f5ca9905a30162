// The definitions of newton.h, for the files that instantiate them for a store.
//
// Errors, relative, for a level of n words over one of h = (n + 1) >> 1; c is a small number.
//
//   Induction      t has error |eps| < c W^-(h+1), and n + 1 <= 2 h + 1.
//   Newton         1/sqrt(w): the step leaves 3/2 eps^2; reciprocal and quotient: eps^2. Both are < W^-(n+1), as
//                  2 (h + 1) > n + 1. With eta for 1/sqrt(a) and eps for sqrt(a): eps^2/2 + eps eta and then
//                  eta^2 + the error of the new root.
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

// ---- what all plans share -------------------------------------------------------------------------------

template <class Store, class Below>
bool NewtonPlan<Store, Below>::plan_small(bool quotient) {
  using W = typename Store::Word;
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
}

template <class Store, class Below>
template <class AnyArena>
auto NewtonPlan<Store, Below>::lay_out(AnyArena& arena) const -> Store::Number {
  auto estimate = Store::number(arena, shape_.below + 4, "orv_X.sf");
  leave_parts(arena);
  return estimate;
}

template <class Store, class Below>
template <class AnyArena>
void NewtonPlan<Store, Below>::leave_parts(AnyArena arena) const {
  arena.leave(below_->need());
  LevelProducts<typename Store::Number>::lay_out(shape_, budget_.tds, arena);
}

template <class Store, class Below>
auto NewtonPlan<Store, Below>::enter(const char* function, const RunContext& ctx, Store::Frame& frame,
                                     const Store::Arena& arena) const -> Store::Frame {
  if (ctx.parallel.tds > budget_.tds) throw InvalidParametersException(function, "tds is larger than plan.");
  arena.leave(need_);
  auto own = frame.enter(function);
  own.assert_sL("p", p_);
  own.assert_sL("tds", budget_.tds);
  return own;
}

template <class Store, class Below>
template <class Argument>
void NewtonPlan<Store, Below>::run_below(const RunContext& ctx, Store::Frame& frame, Store::Number& estimate,
                                         const Argument& argument, Store::Arena arena) const {
  frame.stage(
      [&] {
        const StatusFrame status(ctx.status, "R");
        below_->run(ctx, frame, estimate, argument, arena);
      },
      estimate);
}

template <class Store, class Below>
template <Correction share, class ErrorOf>
void NewtonPlan<Store, Below>::run_level(const RunContext& ctx, Store::Frame& frame, Store::Number& out,
                                         const Store::Number& estimate, Store::Arena arena,
                                         const ErrorOf& error_of) const {
  frame.stage(
      [&] {
        LevelProducts<typename Store::Number> products(ctx, shape_, arena);
        Estimate side;
        {
          const StatusFrame status(ctx.status, " 0M ");
          side = error_of(products);
        }
        if (side == Estimate::kExact) return products.keep_exact(out, estimate);
        const StatusFrame status(ctx.status, " 1M ");
        products.correct(out, estimate, side, share);
      },
      out);
}

// ---- 1/sqrt(w) ------------------------------------------------------------------------------------------

// Wrapping pays nothing here: e has its known top already in t^2, and modulo W^(n/2) that square needs a
// transform of t of its own.

template <class Store>
InvsqrtWord<Store>::InvsqrtWord(u64 p, const Store::Budget& budget)
    : NewtonPlan<Store, InvsqrtWord>(p, budget) {
  if (this->plan_small()) return;
  this->plan_level(LevelShape::plain<typename Store::Word>(p), [&](auto& arena) { this->lay_out(arena); });
}

template <class Store>
void InvsqrtWord<Store>::run(const RunContext& ctx, Store::Frame& parent, Store::Number& out, Store::Word w,
                             Store::Arena arena) const {
  constexpr const char* kFunction = "InvsqrtWord_BigFloatR::run()";
  auto frame = this->enter(kFunction, ctx, parent, arena);
  if (!this->below_) return frame.stage([&] { small_inverse_root(ctx, out, w, this->p_, arena); }, out);
  auto t = this->lay_out(arena);
  this->run_below(ctx, frame, t, w, arena);
  this->template run_level<Correction::kHalf>(
      ctx, frame, out, t, arena, [&](auto& products) { return products.square_error(out, t, w, kFunction); });
}

// ---- sqrt(a) and 1/sqrt(a) ------------------------------------------------------------------------------

template <class Store>
RootPlan<Store>::RootPlan(u64 p, const Store::Budget& budget)
    : NewtonPlan<Store, RootPair<Store>>(p, budget) {
  if (this->plan_small(true)) return;
  this->plan_level(LevelShape::of_root<typename Store::Word>(p, budget.tds),
                   [&](auto& arena) { lay_out(arena); });
}

template <class Store>
template <class AnyArena>
auto RootPlan<Store>::lay_out(AnyArena& arena) const -> Estimates {
  const u64 words = this->shape_.below + 4;
  Estimates estimates;
  estimates.root = Store::number(arena, words, "orv_S.sf");
  estimates.inverse = Store::number(arena, words, "orv_X.sf");
  this->leave_parts(arena);
  return estimates;
}

template <class Store>
void RootPlan<Store>::run_below(const RunContext& ctx, Store::Frame& frame, Estimates& estimates,
                                const Number& a, Store::Arena arena) const {
  frame.stage(
      [&] {
        const StatusFrame status(ctx.status, "R");
        this->below_->run(ctx, frame, {estimates.root, estimates.inverse}, a, arena);
      },
      estimates.root, estimates.inverse);
}

template <class Store>
void RootPlan<Store>::improve(const RunContext& ctx, Products& products, Number& root,
                              const Estimates& estimates, const Number& a, const char* function) const {
  Estimate side;
  {
    const StatusFrame status(ctx.status, " 0M ");
    side = products.square_difference(root, a, estimates.root, function);
  }
  const StatusFrame status(ctx.status, " 1M ");
  products.keep(estimates.inverse);
  products.correct(root, estimates.root, side, Correction::kHalf);
}

template <class Store>
RootPair<Store>::RootPair(u64 p, const Store::Budget& budget) : RootPlan<Store>(p, budget) {}

template <class Store>
void RootPair<Store>::run(const RunContext& ctx, Store::Frame& parent, const Roots& roots, const Number& a,
                          Store::Arena arena) const {
  constexpr const char* kFunction = "InvsqrtFloat_BigFloatR::run()";
  auto frame = this->enter(kFunction, ctx, parent, arena);
  if (!this->below_)
    return frame.stage([&] { small_roots(ctx, roots.root, roots.inverse, a, this->p_, arena); }, roots.root,
                       roots.inverse);
  auto estimates = this->lay_out(arena);
  this->run_below(ctx, frame, estimates, a, arena);
  frame.stage(
      [&] {
        LevelProducts<Number> products(ctx, this->shape_, arena);
        this->improve(ctx, products, roots.root, estimates, a, kFunction);
        const StatusFrame status(ctx.status, " 2M ");
        const Estimate side = products.error(roots.inverse, roots.root, kFunction);
        if (side == Estimate::kExact) return products.keep_exact(roots.inverse, estimates.inverse);
        products.correct(roots.inverse, estimates.inverse, side);
      },
      roots.root, roots.inverse);
}

template <class Store>
SqrtFloat<Store>::SqrtFloat(u64 p, const Store::Budget& budget) : RootPlan<Store>(p, budget) {}

template <class Store>
void SqrtFloat<Store>::run(const RunContext& ctx, Store::Frame& parent, Store::Number& out,
                           const Store::Number& a, Store::Arena arena) const {
  constexpr const char* kFunction = "SqrtFloat_BigFloatR::run()";
  auto frame = this->enter(kFunction, ctx, parent, arena);
  if (!this->below_) return frame.stage([&] { small_root(ctx, out, a, this->p_, arena); }, out);
  auto estimates = this->lay_out(arena);
  this->run_below(ctx, frame, estimates, a, arena);
  frame.stage(
      [&] {
        LevelProducts<typename Store::Number> products(ctx, this->shape_, arena);
        this->improve(ctx, products, out, estimates, a, kFunction);
      },
      out);
}

template <class Store>
InvsqrtFloat<Store>::InvsqrtFloat(u64 p, const Store::Budget& budget) : roots_(p, budget) {
  need_ = Store::need_of([&](auto& arena) { lay_out(arena); });
  need_.out_words = roots_.need().out_words;
}

template <class Store>
template <class AnyArena>
auto InvsqrtFloat<Store>::lay_out(AnyArena& arena) const -> Store::Number {
  auto root = Store::number(arena, roots_.need().out_words, "orv_S.sf");
  arena.leave(roots_.need());
  return root;
}

template <class Store>
void InvsqrtFloat<Store>::run(const RunContext& ctx, Store::Frame& frame, Store::Number& out,
                              const Store::Number& a, Store::Arena arena) const {
  auto root = lay_out(arena);
  roots_.run(ctx, frame, {root, out}, a, arena);
}

// ---- 1/a ------------------------------------------------------------------------------------------------

template <class Store>
Reciprocal<Store>::Reciprocal(u64 p, const Store::Budget& budget) : NewtonPlan<Store, Reciprocal>(p, budget) {
  if (!this->plan_small())
    this->plan_level(LevelShape::wrapped<typename Store::Word>(p, budget.tds),
                     [&](auto& arena) { this->lay_out(arena); });
}

template <class Store>
void Reciprocal<Store>::run(const RunContext& ctx, Store::Frame& parent, Store::Number& out,
                            const Store::Number& a, Store::Arena arena) const {
  constexpr const char* kFunction = "Reciprocal_BigFloatR::run()";
  auto frame = this->enter(kFunction, ctx, parent, arena);
  if (!this->below_) return frame.stage([&] { small_reciprocal(ctx, out, a, this->p_, arena); }, out);
  auto x0 = this->lay_out(arena);
  this->run_below(ctx, frame, x0, a, arena);
  this->template run_level<Correction::kWhole>(ctx, frame, out, x0, arena, [&](auto& products) {
    products.keep(x0);
    return products.error(out, a, kFunction);
  });
}

// ---- A / B ----------------------------------------------------------------------------------------------

template <class Store>
Division<Store>::Division(u64 p, const Store::Budget& budget, DivisionMemory memory)
    : NewtonPlan<Store, Reciprocal<Store>>(p, budget), memory_(memory) {
  if (this->plan_small(true)) return;
  LevelShape shape = LevelShape::wrapped<typename Store::Word>(p, budget.tds);
  shape.dividend = true;
  if (memory == DivisionMemory::kKeep) shape.kept = 2;
  this->plan_level(shape, [&](auto& arena) {
    lay_out(arena);
    if (memory == DivisionMemory::kLeast) lay_out_correction(arena);
  });
}

template <class Store>
template <class AnyArena>
auto Division<Store>::lay_out(AnyArena& arena) const -> Numbers {
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
auto Division<Store>::lay_out_correction(AnyArena& arena) const -> Store::Number {
  const u64 h = this->shape_.below;
  auto d = Store::number(arena, h + 4, "orv_C.sf");
  arena.leave(Store::product_need(2 * h + 5, h, this->budget_));
  return d;
}

template <class Store>
void Division<Store>::run(const RunContext& ctx, Store::Frame& parent, Store::Number& out,
                          const Store::Number& a, const Store::Number& b, Store::Arena arena) const {
  constexpr const char* kFunction = "Division_BigFloatR<wtype>::run()";
  const u64 p = this->p_;
  if (ctx.parallel.tds != this->budget_.tds) throw InvalidParametersException(kFunction, "Mismatching tds.");
  auto frame = this->enter(kFunction, ctx, parent, arena);
  if (a.L == 0 && b.L != 0) return out.set_zero();
  const StatusFrame division(ctx.status, "Large Division");
  if (!this->below_) return frame.stage([&] { small_quotient(ctx, out, a, b, p, arena); }, out);
  if (memory_ == DivisionMemory::kLeast) return run_least(ctx, frame, out, a, b, arena);
  Numbers numbers = lay_out(arena);
  const bool keep = memory_ == DivisionMemory::kKeep;
  auto& r = numbers.reciprocal;
  auto& q0 = keep ? r : numbers.quotient;
  this->run_below(ctx, frame, r, b, arena);
  LevelProducts<typename Store::Number> products(ctx, this->shape_, arena);
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
void Division<Store>::run_least(const RunContext& ctx, Store::Frame& frame, Store::Number& out,
                                const Store::Number& a, const Store::Number& b, Store::Arena arena) const {
  const u64 p = this->p_, h = this->shape_.below;
  Numbers numbers = lay_out(arena);
  auto &r = numbers.reciprocal, &q0 = numbers.quotient, &difference = numbers.difference;
  this->run_below(ctx, frame, r, b, arena);
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
        auto rest = arena;
        auto d = lay_out_correction(rest);
        if (side != Estimate::kExact) d.set_mul(h + 1, difference, r, Store::scratch(ctx, rest));
        fault_point("newton correction", d);
        apply_correction(out, p, q0, d, side, ctx.parallel);
      },
      out);
}

}  // namespace orl
