// Square roots and the golden ratio: one Newton iteration and one linear step.
#pragma once

#include "constants/constant_plan.h"
#include "functions/proved.h"

namespace orl {

/// sqrt(n) for power 1, 1/sqrt(n) for power -1, to p words, n >= 1. Any other power throws
/// InvalidParametersException "Power must be 1 or -1.", n = 0 throws ArithmeticException "Divide by zero.".
template <class Store>
class Sqrt_Newton final : public BasicConstantPlan<Store> {
 public:
  using W = typename Store::Word;
  using Number = typename Store::Number;
  using Arena = typename Store::Arena;

  Sqrt_Newton(W n, s32 power, u64 p, u64 tds);

  Need need() const override { return root_.need(); }
  void run(const RunContext& ctx, Number& out, Arena heap) const override;

 private:
  W n_;
  s32 power_;
  ProvedInvsqrtWord<Store> root_;
};

/// phi = (5v + 1)/2 for power 1, 1/phi = (5v - 1)/2 for power -1, v = 1/sqrt(5), to p words. Any other power
/// throws InvalidParametersException "Power must be 1 or -1.".
template <class Store>
class GoldenRatio_Newton final : public BasicConstantPlan<Store> {
 public:
  using W = typename Store::Word;
  using Number = typename Store::Number;
  using Arena = typename Store::Arena;

  GoldenRatio_Newton(s32 power, u64 p, u64 tds);

  Need need() const override { return root_.need(); }
  void run(const RunContext& ctx, Number& out, Arena heap) const override;

 private:
  bool negative_power_;
  ProvedInvsqrtWord<Store> root_;
};

template <class W>
using Sqrt_Newton_BigFloatR = Sqrt_Newton<RamStore<W>>;
template <class W>
using GoldenRatio_Newton_BigFloatR = GoldenRatio_Newton<RamStore<W>>;

}  // namespace orl
