// The definition of make_e, for the files that instantiate it for a store.
#pragma once

#include "constants/e.h"
#include "core/exceptions.h"
#include "core/status.h"
#include "splitting/psr_series.body.h"

namespace orl {

/// The plan that make_e gives.
template <class Store>
class e_Taylor final : public BasicConstantPlan<Store> {
 public:
  /// A plan for p words.
  e_Taylor(const EFormula& formula, u64 p, const Store::Budget& budget)
      : kind_(formula.series),
        series_(make_e_series<typename Store::Word>(formula.series, p + 1), value_of(formula), p + 1,
                budget) {}

  Need need() const override { return series_.need(); }

  u64 run(const RunContext& ctx, Store::Frame& caller, Store::Number& out, Store::Arena heap) const override {
    constexpr const char* kRun = "e_Taylor_BigFloatR::run()";
    auto frame = caller.enter(kRun);
    ctx.status.println(kind_ == ETaylor::kPlain ? "e - exp(1)" : "e - exp(-1):");
    u64 hash = 0;
    frame.stage([&] { hash = series_.run(ctx, frame, out, heap); }, out, hash);
    require_hash<typename Store::Number>({out, hash}, kRun, kProductMismatch, ctx.parallel);
    return hash;
  }

 private:
  static typename PSR_Series<Store>::Value value_of(const EFormula& formula) {
    constexpr const char* kFunction = "e_Taylor_BigFloatR()";
    const bool inverse = is_inverse(kFunction, formula.power);
    if (formula.series == ETaylor::kAlternating)  // the series is that of 1/e
      return {.coefficients = {.P = -1, .Q = 1}, .power = inverse ? 1 : -1};
    if (inverse)
      throw InvalidParametersException(kFunction, "Inversion not supported for non-alternating series.");
    return {.coefficients = {.P = 1, .Q = 1}};
  }

  ETaylor kind_;
  PSR_Series<Store> series_;
};

/// As e.h has it.
template <class Store>
ConstantPlanPointer<Store> make_e(const EFormula& formula, u64 p, const typename Store::Budget& budget) {
  return std::make_unique<e_Taylor<Store>>(formula, p, budget);
}

}  // namespace orl
