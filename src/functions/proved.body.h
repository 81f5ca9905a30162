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

/// The canonical hash of the words as they stand.
template <class Number>
u64 hash_of(const Number& x, const RunContext& ctx) {
  return hash_canon(x.computed_hash(ctx.parallel));
}

/// Throws unless x still has its hash.
template <class Number>
void expect_hash(const Hashed<Number>& x, const RunContext& ctx, const char* function, const char* message) {
  if (hash_of(x.number, ctx) != hash_canon(x.hash)) throw AlgorithmFailedException(function, message);
}

}  // namespace proved

// ---- a * b ----------------------------------------------------------------------------------------------

template <class Store>
ProvedProduct<Store>::ProvedProduct(u64 p, const Budget& budget) : p_(p), budget_(budget) {
  const u64 words = 2 * (p + kBigFloatExtraPrecision);
  need_ = Store::need_of([&](auto& arena) { lay_out(arena); });
  need_.out_words = p + kBigFloatExtraPrecision;
  need_.table_bits = words * 8 * sizeof(W);
}

template <class Store>
template <class AnyArena>
typename Store::Exact ProvedProduct<Store>::lay_out(AnyArena& arena) const {
  const u64 words = 2 * (p_ + kBigFloatExtraPrecision);
  typename Store::Exact whole = Store::exact(arena, words, "orv_P.sf");
  arena.leave(Store::product_need(words, words, budget_));
  return whole;
}

template <class Store>
u64 ProvedProduct<Store>::run(const RunContext& ctx, Frame& parent, Number& out, const Hashed<Number>& a,
                              const Hashed<Number>& b, Arena arena) const {
  constexpr const char* kFunction = "ProvedProduct::run()";
  if (std::max(a.number.L, b.number.L) > p_ + kBigFloatExtraPrecision)
    throw InvalidParametersException(kFunction, "An operand is longer than planned.");
  Frame frame = parent.enter(kFunction);
  frame.assert_sL("p", p_);
  typename Store::Exact whole = lay_out(arena);
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
ProvedInvsqrtWord<Store>::ProvedInvsqrtWord(u64 p, const Budget& budget)
    : root_(p, budget),
      residual_(Residual<Store>::Of::kSquare, p, budget.tds),
      need_(Need::max(root_.need(), residual_.need())) {}

template <class Store>
u64 ProvedInvsqrtWord<Store>::run(const RunContext& ctx, Frame& parent, Number& out, W w, Arena arena) const {
  Frame frame = parent.enter("ProvedInvsqrtWord::run()");
  u64 hash = 0;
  frame.stage(
      [&] {
        root_.run(ctx, frame, out, w, arena);
        hash = proved::hash_of(out, ctx);
        fault_point("inverse root", out);
      },
      out, hash);
  frame.stage([&] { residual_.check_inverse_root(ctx, out, w, arena); }, out, hash);
  return hash;
}

template <class Store>
ProvedSqrtFloat<Store>::ProvedSqrtFloat(u64 p, const Budget& budget)
    : inverse_(p, budget), square_(Residual<Store>::Of::kSquare, p, budget.tds), budget_(budget) {
  need_ = Store::need_of([&](auto& arena) { lay_out(arena); });
  need_.out_words = p + 4;
  need_.table_bits =
      std::max({inverse_.need().table_bits, square_.need().table_bits, (2 * p + 4) * 8 * sizeof(W)});
}

template <class Store>
template <class AnyArena>
auto ProvedSqrtFloat<Store>::lay_out(AnyArena& arena) const -> Number {
  const u64 p = inverse_.precision();
  arena.leave(square_.need());
  Number inverse = Store::number(arena, inverse_.need().out_words, "orv_Y.sf");
  arena.leave(inverse_.need());
  arena.leave(Store::product_need(2 * p + 4, p + 2, budget_));
  return inverse;
}

template <class Store>
u64 ProvedSqrtFloat<Store>::run(const RunContext& ctx, Frame& parent, Number& root, const Hashed<Number>& a,
                                Arena arena) const {
  constexpr const char* kFunction = "SqrtFloat_BigFloatR::run()";
  Frame frame = parent.enter(kFunction);
  Arena rest = arena;
  Number inverse = lay_out(rest);
  u64 hash = 0;
  frame.stage([&] { inverse_.run(ctx, frame, inverse, a.number, rest); }, inverse);
  frame.stage(
      [&] {
        root.set_mul(inverse_.precision(), a.number, inverse, Store::scratch(ctx, rest));
        hash = proved::hash_of(root, ctx);
        fault_point("square root", root);
      },
      root, hash);
  frame.stage(
      [&] {
        square_.check_square_root(ctx, root, a.number, arena);
        proved::expect_hash(a, ctx, kFunction, "Checksum Mismatch. Square root failed.");
      },
      root, hash);
  return hash;
}

template <class Store>
ProvedInvsqrtFloat<Store>::ProvedInvsqrtFloat(u64 p, const Budget& budget)
    : inverse_(p, budget),
      square_(Residual<Store>::Of::kSquare, p, budget.tds),
      product_(Residual<Store>::Of::kProduct, p, budget.tds),
      budget_(budget) {
  need_ = Store::need_of([&](auto& arena) { lay_out(arena); });
  need_.out_words = inverse_.need().out_words;
  need_.table_bits = std::max({inverse_.need().table_bits, square_.need().table_bits,
                               product_.need().table_bits, (2 * p + 4) * 8 * sizeof(W)});
}

template <class Store>
template <class AnyArena>
auto ProvedInvsqrtFloat<Store>::lay_out(AnyArena& arena) const -> Number {
  const u64 p = inverse_.precision();
  arena.leave(inverse_.need());
  Number root = Store::number(arena, p + 4, "orv_S.sf");
  arena.leave(Store::product_need(2 * p + 4, p + 2, budget_));
  arena.leave(square_.need());
  arena.leave(product_.need());
  return root;
}

template <class Store>
u64 ProvedInvsqrtFloat<Store>::run(const RunContext& ctx, Frame& parent, Number& out, const Hashed<Number>& a,
                                   Arena arena) const {
  constexpr const char* kFunction = "InvsqrtFloat_BigFloatR::run()";
  Frame frame = parent.enter(kFunction);
  u64 hash = 0;
  frame.stage(
      [&] {
        inverse_.run(ctx, frame, out, a.number, arena);
        hash = proved::hash_of(out, ctx);
        fault_point("inverse root", out);
      },
      out, hash);
  frame.stage(
      [&] {
        Number root = lay_out(arena);
        root.set_mul(inverse_.precision(), a.number, out, Store::scratch(ctx, arena));
        fault_point("square root", root);
        square_.check_square_root(ctx, root, a.number, arena);
        product_.check_inverse_root(ctx, out, root, arena);
        proved::expect_hash(a, ctx, kFunction, "Checksum Mismatch. Inverse root failed.");
      },
      out, hash);
  return hash;
}

// ---- A / B ----------------------------------------------------------------------------------------------

template <class Store>
ProvedDivision<Store>::ProvedDivision(u64 p, const Budget& budget, DivisionMemory memory)
    : division_(p, budget, memory),
      residual_(Residual<Store>::Of::kProduct, p, budget.tds),
      need_(Need::max(division_.need(), residual_.need())) {}

template <class Store>
u64 ProvedDivision<Store>::run(const RunContext& ctx, Frame& parent, Number& out, const Hashed<Number>& a,
                               const Hashed<Number>& b, Arena arena) const {
  constexpr const char* kFunction = "Division_BigFloatR<wtype>::run()";
  Frame frame = parent.enter("ProvedDivision::run()");
  u64 hash = 0;
  frame.stage(
      [&] {
        division_.run(ctx, frame, out, a.number, b.number, arena);
        hash = proved::hash_of(out, ctx);
        fault_point("quotient", out);
      },
      out, hash);
  frame.stage(
      [&] {
        residual_.check_quotient(ctx, out, a.number, b.number, arena);
        fault_point("dividend", a.number);
        fault_point("divisor", b.number);
        proved::expect_hash(a, ctx, kFunction, "Checksum Mismatch. Division failed.");
        proved::expect_hash(b, ctx, kFunction, "Checksum Mismatch. Division failed.");
      },
      out, hash);
  return hash;
}

}  // namespace orl
