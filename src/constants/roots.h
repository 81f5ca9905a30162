// Square roots and the golden ratio: one Newton iteration and linear steps. The iteration is proved by its
// residual, the steps behind it by the hash that the root had before that proof.
#pragma once

#include "constants/constant_plan.h"
#include "functions/proved.h"

namespace orl {

/// sqrt(n) for power 1, 1/sqrt(n) for power -1.
struct SqrtFormula {
  u64 n = 2;
  s32 power = 1;
};

/// A square root to p words, n >= 1 and of one word. Any other power throws InvalidParametersException "Power
/// must be 1 or -1.", n = 0 throws ArithmeticException "Divide by zero.".
template <class Store>
class Sqrt_Newton final : public BasicConstantPlan<Store> {
 public:
  using typename BasicConstantPlan<Store>::Word;
  using typename BasicConstantPlan<Store>::Number;
  using typename BasicConstantPlan<Store>::Arena;
  using typename BasicConstantPlan<Store>::Frame;
  using typename BasicConstantPlan<Store>::Budget;

  /// A plan for p words.
  Sqrt_Newton(const SqrtFormula& formula, u64 p, const Budget& budget);

  Need need() const override { return root_.need(); }
  u64 run(const RunContext& ctx, Frame& frame, Number& out, Arena heap) const override;

 private:
  Word n_;
  s32 power_;
  ProvedInvsqrtWord<Store> root_;
};

/// phi = (5v + 1)/2 for power 1, 1/phi = phi - 1 for power -1, v = 1/sqrt(5), to p words. Any other power
/// throws InvalidParametersException "Power must be 1 or -1.".
template <class Store>
class GoldenRatio_Newton final : public BasicConstantPlan<Store> {
 public:
  using typename BasicConstantPlan<Store>::Word;
  using typename BasicConstantPlan<Store>::Number;
  using typename BasicConstantPlan<Store>::Arena;
  using typename BasicConstantPlan<Store>::Frame;
  using typename BasicConstantPlan<Store>::Budget;

  /// A plan for p words and `tds` tasks.
  GoldenRatio_Newton(s32 power, u64 p, const Budget& budget);

  Need need() const override { return root_.need(); }
  u64 run(const RunContext& ctx, Frame& frame, Number& out, Arena heap) const override;

 private:
  s32 power_;
  ProvedInvsqrtWord<Store> root_;
};

/// A plan of sqrt(n) or its inverse.
template <class Store>
ConstantPlanPointer<Store> make_sqrt(const SqrtFormula& formula, u64 p,
                                     const typename Store::Budget& budget) {
  return std::make_unique<Sqrt_Newton<Store>>(formula, p, budget);
}
/// A plan of phi or its inverse.
template <class Store>
ConstantPlanPointer<Store> make_golden_ratio(s32 power, u64 p, const typename Store::Budget& budget) {
  return std::make_unique<GoldenRatio_Newton<Store>>(power, p, budget);
}

template <class W>
using Sqrt_Newton_BigFloatR = Sqrt_Newton<RamStore<W>>;
template <class W>
using GoldenRatio_Newton_BigFloatR = GoldenRatio_Newton<RamStore<W>>;

}  // namespace orl
