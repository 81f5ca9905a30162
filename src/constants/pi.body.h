// The definition of make_pi, for the files that instantiate it for a store.
#pragma once

#include <algorithm>

#include "constants/final_product.h"
#include "constants/pi.h"
#include "core/exceptions.h"
#include "core/status.h"
#include "splitting/psr_series.body.h"
#include "splitting/stage_timer.h"

namespace orl {

/// The plan that make_pi gives.
template <class Store>
class Pi_Series final : public BasicConstantPlan<Store> {
 public:
  /// A plan for p words.
  Pi_Series(const PiFormula& formula, u64 p, const Store::Budget& budget)
      : kind_(formula.series),
        row_(row_of(formula)),
        series_(make_pi_series<typename Store::Word>(formula.series, p + 2), value_of(formula), p + 2,
                budget),
        root_(p + 1, budget),
        product_(kRun, p + 1, budget) {
    need_ = Store::need_of([&](auto& arena) {
      arena.leave(series_.need());
      cut_root(arena);
    });
    need_.out_words = std::max({series_.need().out_words, root_.need().out_words, product_.need().out_words});
  }

  Need need() const override { return need_; }

  u64 run(const RunContext& ctx, Store::Frame& caller, Store::Number& out, Store::Arena heap) const override {
    if (heap.size < need_.ram_bytes) throw BufferTooSmallException(kRun, heap.size, need_.ram_bytes);
    auto frame = caller.enter(kRun);
    ctx.status.println(kind_ == PiSeries::kChudnovsky ? "Pi - Chudnovsky (1989):" : "Pi - Ramaunjan (1910):");
    u64 hash = 0, root_hash = 0;
    frame.stage([&] { hash = series_.run(ctx, frame, out, heap); }, out, hash);
    auto root = cut_root(heap);
    {
      StageTimer timer(ctx.status, "InvSqrt...");
      frame.stage([&] { root_hash = root_.run(ctx, frame, root, row_.x, heap); }, out, hash, root, root_hash);
      timer.finish();
    }
    StageTimer timer(ctx.status, "Large Multiply...");
    frame.stage([&] { hash = product_.run(ctx, frame, out, hash, {root, root_hash}, heap); }, out, hash);
    timer.finish();
    return hash;
  }

 private:
  static constexpr const char* kRun = "Pi_Series_BigFloatR::run()";

  /// A row of the table in pi.h.
  struct Row {
    SeriesCoefficients coefficients;
    u32 x;  ///< the number under the root
  };
  static Row row_of(const PiFormula& formula) {
    const bool pi = !is_inverse("Pi_Series_BigFloatR()", formula.power);
    if (formula.series == PiSeries::kChudnovsky)
      return {{.P = 1, .Q = 13591409, .D = u64{pi ? 4270934400u : 426880u}}, 10005};
    if (pi) return {{.P = 1, .Q = 1103, .D = 9801}, 8};
    return {{.P = 4, .Q = 4412, .D = 9801}, 2};
  }
  // The series' own power is the opposite of the constant's: it is D Q / (a P + b Q) that Pi takes.
  static typename PSR_Series<Store>::Value value_of(const PiFormula& formula) {
    return {row_of(formula).coefficients, -formula.power, formula.memory};
  }

  /// The root's place; the root and then the last product get the rest.
  template <class AnyArena>
  Store::Number cut_root(AnyArena& arena) const {
    auto root = Store::number(arena, root_.need().out_words, "orv_R.sf");
    arena.leave(root_.need());
    arena.leave(product_.need());
    return root;
  }

  PiSeries kind_;
  Row row_;
  PSR_Series<Store> series_;
  ProvedInvsqrtWord<Store> root_;
  FinalProduct<Store> product_;
  Need need_;
};

/// As pi.h has it.
template <class Store>
ConstantPlanPointer<Store> make_pi(const PiFormula& formula, u64 p, const typename Store::Budget& budget) {
  return std::make_unique<Pi_Series<Store>>(formula, p, budget);
}

}  // namespace orl
