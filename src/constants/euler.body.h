// The definition of make_euler, for the files that instantiate it for a store.
#pragma once

#include <algorithm>
#include <optional>

#include "constants/euler.h"
#include "constants/one_series.h"
#include "core/exceptions.h"
#include "core/status.h"
#include "splitting/brent_mcmillan_block.h"
#include "splitting/psr_series.body.h"
#include "splitting/stage_timer.h"

namespace orl {

/// The plan that make_euler gives.
template <class Store>
class BrentMcMillan final : public BasicConstantPlan<Store> {
 public:
  using W = typename Store::Word;
  using Number = typename Store::Number;
  using Exact = typename Store::Exact;

  /// A plan for p words.
  BrentMcMillan(const EulerFormula& formula, u64 p, const Store::Budget& budget)
      : variant_(formula.variant),
        e_(checked_exponent(formula, p)),
        p_(p),
        headline_(headline()),
        AB_(make_euler_AB<W>(e_, p)),
        sum_(*AB_, p + 2, budget, SeriesMemory::kFast, {"Series A and B", "Series A and B"}),
        quotient_(p + 2, budget),
        log_(make_one_series<Store>(OneSeries::kLog2Zuniga, 1, p + 2, budget)) {
    const u64 C_words = variant_ == EulerVariant::kRefined ? euler_C_words<W>(e_, p) : 0;
    if (C_words > 0) correction_.emplace(e_, p, C_words, budget);
    plan_need(budget);
  }

  Need need() const override { return need_; }

  u64 run(const RunContext& ctx, Store::Frame& caller, Number& out, Store::Arena heap) const override {
    if (heap.size < need_.ram_bytes) throw BufferTooSmallException(run_name(), heap.size, need_.ram_bytes);
    auto frame = caller.enter(run_name());
    frame.assert_sL("p", p_);
    frame.assert_sL("e", e_);
    ctx.status.println(headline_);
    u64 hash = 0;
    frame.stage([&] { run_AB(ctx, frame, out, hash, heap); }, out, hash);
    show_fault_point("euler sum", out);
    frame.stage([&] { subtract_log(ctx, frame, out, hash, heap); }, out, hash);
    show_fault_point("euler sum", out);
    require_hash<Number>({out, hash}, run_name(), kProductMismatch, ctx.parallel);
    return hash;
  }

 private:
  using Tail = typename BrentMcMillanBlock<Store>::Tail;

  /// C / B^2 to so many words.
  struct Correction {
    Correction(u32 e, u64 p, u64 C_words, const Store::Budget& budget)
        : words(C_words),
          inverse(C_words, budget),
          product(C_words, budget),
          series(make_euler_C<W>(e, p),
                 {.coefficients = {.P = 1, .Q = 1, .D = u64{4} << e}, .title = {.headline = "Series C"}},
                 C_words, budget) {}

    u64 words;
    ProvedDivision<Store> inverse;
    ProvedProduct<Store> product;
    PSR_Series<Store> series;
  };

  static u32 checked_exponent(const EulerFormula& formula, u64 p) {
    constexpr u32 kBits = 8 * sizeof(W);
    if (formula.e == 0) return euler_exponent(formula.variant, p, kBits);
    const std::string refusal = refused_euler_exponent(formula.variant, formula.e, p, kBits);
    if (!refusal.empty()) throw InvalidParametersException("BrentMcMillan_BigFloatR()", refusal);
    return formula.e;
  }

  const char* run_name() const {
    return variant_ == EulerVariant::kRefined ? "BrentMcMillan_Refined_BigFloatR::run()"
                                              : "BrentMcMillan_BigFloatR::run()";
  }
  std::string headline() const {
    return std::string("EulerGamma - Brent-McMillan") +
           (variant_ == EulerVariant::kRefined ? " (refined)" : "") + ": (n = 2^" + std::to_string(e_) + ")";
  }

  void plan_need(const Store::Budget& budget) {
    const auto finish = [&](auto& arena) {
      cut_tail(arena);
      arena.leave(quotient_.need());
      if (!correction_) return;
      auto rest = arena;
      cut_inverse(rest);
      rest.leave(correction_->inverse.need());
      rest.leave(correction_->product.need());
    };
    const auto series_C = [&](auto& arena) {
      if (!correction_) return;
      cut_factor(arena);
      cut_factor(arena);
      arena.leave(correction_->series.need());
      arena.leave(correction_->product.need());
    };
    const auto log = [&](auto& arena) {
      cut_log(arena);
      arena.leave(log_->need());
    };
    const u64 sum_bytes = sum_.total_bytes();
    // The division keeps what it can without deciding the memory.
    for (const DivisionMemory memory : {DivisionMemory::kLess, DivisionMemory::kLeast})
      if (Store::need_of(finish).ram_bytes > sum_bytes)
        quotient_ = ProvedDivision<Store>(p_ + 2, budget, memory);
    need_ = Need::max(Store::need_of(finish), Need::max(Store::need_of(series_C), Store::need_of(log)));
    need_.ram_bytes = std::max(need_.ram_bytes, sum_bytes);
    sum_.use_memory(need_.ram_bytes, need_);
    need_.out_words = std::max(quotient_.need().out_words, p_ + 6);
  }

  // Layouts ----------------------------------------------------------------------------------------------
  /// What the sum leaves at the start of the heap.
  template <class AnyArena>
  void cut_tail(AnyArena& arena) const {
    arena.template cut<W>(sum_.blocks().front()->tail_area_words());
  }
  template <class AnyArena>
  Number cut_inverse(AnyArena& arena) const {
    return Store::number(arena, correction_->inverse.need().out_words, "orv_I.sf");
  }
  template <class AnyArena>
  Number cut_factor(AnyArena& arena) const {
    return Store::number(
        arena, std::max(correction_->product.need().out_words, correction_->series.need().out_words),
        "orv_F.sf");
  }
  /// Log(2), which is multiplied in place.
  template <class AnyArena>
  Number cut_log(AnyArena& arena) const {
    return Store::number(arena, log_->need().out_words + 1, "orv_L.sf");
  }

  // Stages -----------------------------------------------------------------------------------------------
  /// out = A / B - C / B^2.
  void run_AB(const RunContext& ctx, Store::Frame& frame, Number& out, u64& hash, Store::Arena heap) const {
    Tail tail;
    StageTimer summing(ctx.status, "Summing Series");
    frame.stage([&] { sum_.run(ctx, frame, tail, heap); }, tail);
    summing.finish();
    auto rest = heap;
    cut_tail(rest);
    StageTimer finishing(ctx.status, "Finishing Series");
    frame.stage([&] { finish_AB(ctx, tail); }, tail);
    const Number v = Store::as_number(tail.v), b = Store::as_number(tail.b);
    frame.stage(
        [&] {
          hash = quotient_.run(ctx, frame, out, {v, tail.v.hash}, {b, tail.b.hash}, rest);
        },
        out, hash, tail);
    finishing.finish();
    if (!correction_) return;
    Number square;
    u64 square_hash = 0;
    StageTimer squaring(ctx.status, "Squaring...");
    frame.stage([&] { square_inverse(ctx, frame, tail, square, square_hash, heap); }, out, hash, square,
                square_hash);
    squaring.finish();
    frame.stage([&] { subtract_C(ctx, frame, {square, square_hash}, out, hash, heap); }, out, hash);
  }

  // b = a + N b and v = N v: A/B = v / b and 1/B = a / b.
  void finish_AB(const RunContext& ctx, Tail& tail) const {
    tail.b.mp2(2 * s64{e_}, ctx.parallel);
    tail.v.mp2(2 * s64{e_}, ctx.parallel);
    Exact a = tail.a;  // cut to what b has; a itself stays as it is
    add_exact(tail.b, a, false, ctx.parallel);
    for (const Exact* x : {&tail.a, &tail.b, &tail.v}) show_fault_point("division operand", *x);
  }

  /// square = (a / b)^2 at the start of the heap, where a lay.
  void square_inverse(const RunContext& ctx, Store::Frame& frame, const Tail& tail, Number& square,
                      u64& square_hash, Store::Arena heap) const {
    auto rest = heap;
    cut_tail(rest);
    Number inverse = cut_inverse(rest);
    Exact a = tail.a, b = tail.b;
    for (Exact* x : {&a, &b}) cut_exact(*x, correction_->words + 4, ctx.parallel);
    const Number n = Store::as_number(a), d = Store::as_number(b);
    u64 hash = 0;
    frame.stage(
        [&] {
          hash = correction_->inverse.run(ctx, frame, inverse, {n, a.hash}, {d, b.hash}, rest);
        },
        inverse, hash);
    show_fault_point("euler factor", inverse);
    square = cut_factor(heap);
    frame.stage(
        [&] {
          square_hash = correction_->product.run(ctx, frame, square, {inverse, hash}, {inverse, hash}, rest);
        },
        square, square_hash);
  }

  void subtract_C(const RunContext& ctx, Store::Frame& frame, const Hashed<Number>& square, Number& out,
                  u64& hash, Store::Arena heap) const {
    cut_factor(heap);  // the square
    Number C = cut_factor(heap);
    u64 C_hash = 0;
    frame.stage([&] { C_hash = correction_->series.run(ctx, frame, C, heap); }, C, C_hash);
    show_fault_point("euler factor", square.number);
    show_fault_point("euler factor", C);
    Number product = C;
    frame.stage(
        [&] {
          C_hash = correction_->product.run(ctx, frame, product, square, {C, C_hash}, heap);
        },
        product, C_hash);
    subtract(ctx, out, hash, Store::as_exact(product, C_hash));
  }

  /// out -= e Log(2).
  void subtract_log(const RunContext& ctx, Store::Frame& frame, Number& out, u64& hash,
                    Store::Arena heap) const {
    Number log = cut_log(heap);
    u64 log_hash = 0;
    frame.stage([&] { log_hash = log_->run(ctx, frame, log, heap); }, log, log_hash);
    show_fault_point("euler log", log);
    Exact multiple = Store::as_exact(log, log_hash);
    multiple.mul_uW(static_cast<W>(e_), ctx.parallel);
    subtract(ctx, out, hash, multiple);
  }

  /// x -= y; the hash follows.
  void subtract(const RunContext& ctx, Number& x, u64& hash, Exact y) const {
    Exact difference = Store::as_exact(x, hash);
    add_exact(difference, y, true, ctx.parallel);
    cut_exact(difference, p_ + 4, ctx.parallel);
    x = Store::as_number(difference);
    hash = difference.hash;
  }

  EulerVariant variant_;
  u32 e_;
  u64 p_;
  std::string headline_;
  std::unique_ptr<const Series<W>> AB_;
  BlockList<Store, BrentMcMillanBlock<Store>> sum_;
  ProvedDivision<Store> quotient_;
  std::optional<Correction> correction_;
  ConstantPlanPointer<Store> log_;
  Need need_;
};

/// As euler.h has it.
template <class Store>
ConstantPlanPointer<Store> make_euler(const EulerFormula& formula, u64 p,
                                      const typename Store::Budget& budget) {
  return std::make_unique<BrentMcMillan<Store>>(formula, p, budget);
}

}  // namespace orl
