// The definition of make_one_series, for the files that instantiate it for a store.
#pragma once

#include "constants/one_series.h"
#include "core/status.h"
#include "splitting/psr_series.body.h"

namespace orl {

/// The plan that make_one_series gives.
template <class Store>
class OneSeriesConstant final : public BasicConstantPlan<Store> {
 public:
  /// A plan for p words.
  OneSeriesConstant(const OneSeriesRow& row, s32 power, u64 p, const Store::Budget& budget)
      : name_(row.terms.name + "_BigFloatR"),
        line_(row.line),
        series_(
            make_term_series<typename Store::Word>(row.terms, p + 1),
            {.coefficients = row.terms.outer, .power = is_inverse((name_ + "()").c_str(), power) ? -1 : 1},
            p + 1, budget) {}

  Need need() const override { return series_.need(); }

  u64 run(const RunContext& ctx, Store::Frame& caller, Store::Number& out, Store::Arena heap) const override {
    constexpr const char* kRun = "OneSeriesConstant::run()";
    auto frame = caller.enter(kRun);
    ctx.status.println(line_);
    u64 hash = 0;
    frame.stage([&] { hash = series_.run(ctx, frame, out, heap); }, out, hash);
    require_hash<typename Store::Number>({out, hash}, kRun, kProductMismatch, ctx.parallel);
    return hash;
  }

 private:
  std::string name_;
  const char* line_;
  PSR_Series<Store> series_;
};

/// As one_series.h has it.
template <class Store>
ConstantPlanPointer<Store> make_one_series(OneSeries which, s32 power, u64 p,
                                           const typename Store::Budget& budget) {
  return std::make_unique<OneSeriesConstant<Store>>(one_series_row(which), power, p, budget);
}

}  // namespace orl
