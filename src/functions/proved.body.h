// The definitions of proved.h, for the files that instantiate them for a store.
#pragma once

#include <algorithm>

#include "core/exceptions.h"
#include "functions/newton.body.h"
#include "functions/proved.h"
#include "functions/proved_window.h"
#include "words/hash.h"

namespace orl {

namespace proved {

/// The stage that makes `out`, a `name`, by make(). Returns the hash of its words as they then are.
template <class Frame, class Number, class Make>
u64 run_hashed(const RunContext& ctx, Frame& frame, const char* name, Number& out, const Make& make) {
  u64 hash = 0;
  frame.stage(
      [&] {
        make();
        hash = hash_of(out, ctx.parallel);
        fault_point(name, out);
      },
      out, hash);
  return hash;
}

}  // namespace proved

// ---- a * b ----------------------------------------------------------------------------------------------

template <class Store>
ProvedProduct<Store>::ProvedProduct(u64 p, const Store::Budget& budget) : p_(p), budget_(budget) {
  need_ = Store::need_of([&](auto& arena) { lay_out(arena); });
  need_.out_words = p + kBigFloatExtraPrecision;
}

template <class Store>
template <class AnyArena>
auto ProvedProduct<Store>::lay_out(AnyArena& arena) const -> Store::Exact {
  const u64 words = 2 * (p_ + kBigFloatExtraPrecision);
  auto whole = Store::exact(arena, words, "orv_P.sf");
  arena.leave(Store::product_need(words, words, budget_));
  return whole;
}

template <class Store>
u64 ProvedProduct<Store>::run(const RunContext& ctx, Store::Frame& parent, Store::Number& out,
                              const Hashed<typename Store::Number>& a,
                              const Hashed<typename Store::Number>& b, Store::Arena arena) const {
  constexpr const char* kFunction = "ProvedProduct::run()";
  if (std::max(a.number.L, b.number.L) > p_ + kBigFloatExtraPrecision)
    throw InvalidParametersException(kFunction, "An operand is longer than planned.");
  auto frame = parent.enter(kFunction);
  frame.assert_sL("p", p_);
  auto whole = lay_out(arena);
  u64 hash = 0;
  frame.stage(
      [&] {
        multiply_hashed(whole, a, b, Store::scratch(ctx, arena));
        hash = take_window(out, p_, whole, kFunction, ctx);
      },
      out, hash);
  return hash;
}

// ---- roots ----------------------------------------------------------------------------------------------

template <class Store>
ProvedInvsqrtWord<Store>::ProvedInvsqrtWord(u64 p, const Store::Budget& budget)
    : root_(p, budget),
      residual_(ResidualOf::kSquare, p, budget.tds),
      need_(Need::max(root_.need(), residual_.need())) {}

template <class Store>
u64 ProvedInvsqrtWord<Store>::run(const RunContext& ctx, Store::Frame& parent, Store::Number& out,
                                  Store::Word w, Store::Arena arena) const {
  auto frame = parent.enter("ProvedInvsqrtWord::run()");
  u64 hash =
      proved::run_hashed(ctx, frame, "inverse root", out, [&] { root_.run(ctx, frame, out, w, arena); });
  frame.stage([&] { residual_.check_inverse_root(ctx, out, w, arena); }, out, hash);
  return hash;
}

template <class Store>
ProvedSqrtFloat<Store>::ProvedSqrtFloat(u64 p, const Store::Budget& budget)
    : root_(p, budget),
      square_(ResidualOf::kSquare, p, budget.tds),
      need_(Need::max(root_.need(), square_.need())) {}

template <class Store>
u64 ProvedSqrtFloat<Store>::run(const RunContext& ctx, Store::Frame& parent, Store::Number& root,
                                const Hashed<typename Store::Number>& a, Store::Arena arena) const {
  constexpr const char* kFunction = "SqrtFloat_BigFloatR::run()";
  auto frame = parent.enter("ProvedSqrtFloat::run()");
  u64 hash = proved::run_hashed(ctx, frame, "square root", root,
                                [&] { root_.run(ctx, frame, root, a.number, arena); });
  frame.stage(
      [&] {
        square_.check_square_root(ctx, root, a.number, arena);
        require_hash(a, kFunction, "Checksum Mismatch. Square root failed.", ctx.parallel);
      },
      root, hash);
  return hash;
}

template <class Store>
ProvedInvsqrtFloat<Store>::ProvedInvsqrtFloat(u64 p, const Store::Budget& budget)
    : roots_(p, budget),
      square_(ResidualOf::kSquare, p, budget.tds),
      product_(ResidualOf::kProduct, p, budget.tds) {
  need_ = Store::need_of([&](auto& arena) { lay_out(arena); });
  need_.out_words = roots_.need().out_words;
}

template <class Store>
template <class AnyArena>
auto ProvedInvsqrtFloat<Store>::lay_out(AnyArena& arena) const -> Store::Number {
  auto root = Store::number(arena, roots_.need().out_words, "orv_S.sf");
  for (const Need& need : {roots_.need(), square_.need(), product_.need()}) arena.leave(need);
  return root;
}

template <class Store>
u64 ProvedInvsqrtFloat<Store>::run(const RunContext& ctx, Store::Frame& parent, Store::Number& out,
                                   const Hashed<typename Store::Number>& a, Store::Arena arena) const {
  constexpr const char* kFunction = "InvsqrtFloat_BigFloatR::run()";
  auto frame = parent.enter("ProvedInvsqrtFloat::run()");
  auto root = lay_out(arena);
  u64 hash = 0;
  frame.stage(
      [&] {
        roots_.run(ctx, frame, {root, out}, a.number, arena);
        hash = hash_of(out, ctx.parallel);
        fault_point("square root", root);
        fault_point("inverse root", out);
      },
      root, out, hash);
  frame.stage(
      [&] {
        square_.check_square_root(ctx, root, a.number, arena);
        product_.check_inverse_root(ctx, out, root, arena);
        require_hash(a, kFunction, "Checksum Mismatch. Inverse root failed.", ctx.parallel);
      },
      out, hash);
  return hash;
}

// ---- A / B ----------------------------------------------------------------------------------------------

template <class Store>
ProvedDivision<Store>::ProvedDivision(u64 p, const Store::Budget& budget, DivisionMemory memory)
    : division_(p, budget, memory),
      residual_(ResidualOf::kProduct, p, budget.tds),
      need_(Need::max(division_.need(), residual_.need())) {}

template <class Store>
u64 ProvedDivision<Store>::run(const RunContext& ctx, Store::Frame& parent, Store::Number& out,
                               const Hashed<typename Store::Number>& a,
                               const Hashed<typename Store::Number>& b, Store::Arena arena) const {
  constexpr const char* kFunction = "Division_BigFloatR<wtype>::run()";
  auto frame = parent.enter("ProvedDivision::run()");
  u64 hash = proved::run_hashed(ctx, frame, "quotient", out,
                                [&] { division_.run(ctx, frame, out, a.number, b.number, arena); });
  frame.stage(
      [&] {
        residual_.check_quotient(ctx, out, a.number, b.number, arena);
        fault_point("dividend", a.number);
        fault_point("divisor", b.number);
        require_hash(a, kFunction, "Checksum Mismatch. Division failed.", ctx.parallel);
        require_hash(b, kFunction, "Checksum Mismatch. Division failed.", ctx.parallel);
      },
      out, hash);
  return hash;
}

}  // namespace orl
