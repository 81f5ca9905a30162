// The definitions of roots.h, for the files that instantiate them for a store.
#pragma once

#include "constants/roots.h"
#include "core/exceptions.h"
#include "core/status.h"
#include "functions/proved.body.h"
#include "splitting/exact_steps.h"
#include "splitting/psr_series.h"
#include "splitting/stage_timer.h"

namespace orl {

/// An inverse root and what is made of it by linear steps on its words and its hash.
template <class Store>
class RootConstant : public BasicConstantPlan<Store> {
 public:
  Need need() const override { return root_.need(); }

  u64 run(const RunContext& ctx, Store::Frame& caller, Store::Number& out, Store::Arena heap) const override {
    auto frame = caller.enter(run_name_);
    u64 hash = 0;
    StageTimer timer(ctx.status, "InvSqrt...");
    frame.stage([&] { hash = root_.run(ctx, frame, out, n_, heap); }, out, hash);
    timer.finish();
    show_fault_point("root", out);
    frame.stage([&] { finish(out, hash, ctx.parallel); }, out, hash);
    show_fault_point("root result", out);
    require_hash<typename Store::Number>({out, hash}, run_name_, kProductMismatch, ctx.parallel);
    return hash;
  }

 protected:
  /// For 1/sqrt(n) to p + 1 words; `run_name` is the name of run() in exceptions.
  RootConstant(const char* run_name, Store::Word n, u64 p, const Store::Budget& budget)
      : run_name_(run_name), n_(n), root_(p + 1, budget) {}

  /// x = the constant, from 1/sqrt(n); the hash follows.
  virtual void finish(Store::Number& x, u64& hash, ParallelContext parallel) const = 0;

  const char* run_name_;
  Store::Word n_;
  ProvedInvsqrtWord<Store> root_;
};

/// The plan that make_sqrt gives.
template <class Store>
class Sqrt_Newton final : public RootConstant<Store> {
 public:
  /// A plan for p words.
  Sqrt_Newton(const SqrtFormula& formula, u64 p, const Store::Budget& budget)
      : RootConstant<Store>("Sqrt_Newton_BigFloatR::run()", checked_word(formula.n), p, budget),
        inverse_(is_inverse(kFunction, formula.power)) {}

 private:
  static constexpr const char* kFunction = "Sqrt_Newton_BigFloatR()";

  static Store::Word checked_word(u64 n) {
    if (n == 0) throw ArithmeticException(kFunction, "Divide by zero.");
    const auto word = static_cast<typename Store::Word>(n);
    if (word != n) throw InvalidParametersException(kFunction, "Argument is too large.");
    return word;
  }
  void finish(Store::Number& x, u64& hash, ParallelContext parallel) const override {
    if (inverse_) return;
    x.mul_uW(this->n_, parallel);
    hash = hash_mul(hash, this->n_);
  }

  bool inverse_;
};

/// The plan that make_golden_ratio gives.
template <class Store>
class GoldenRatio_Newton final : public RootConstant<Store> {
 public:
  /// A plan for p words.
  GoldenRatio_Newton(s32 power, u64 p, const Store::Budget& budget)
      : RootConstant<Store>("GoldenRatio_Newton_BigFloatR::run()", 5, p, budget),
        inverse_(is_inverse("GoldenRatio_Newton_BigFloatR()", power)) {}

 private:
  void finish(Store::Number& x, u64& hash, ParallelContext parallel) const override {
    constexpr u64 kHashOfHalf = u64{1} << 60;  // 2 is the inverse of 2^60 modulo 2^61 - 1
    x.mul_uW(5, parallel);
    x.add_ip(1, 0);
    x.mp2(-1, parallel);
    hash = hash_mul(hash_mul_add(hash, 5, 1), kHashOfHalf);
    if (!inverse_) return;
    x.truncate_above(0);
    hash = hash_sub(hash, 1);
  }

  bool inverse_;
};

/// As roots.h has it.
template <class Store>
ConstantPlanPointer<Store> make_sqrt(const SqrtFormula& formula, u64 p,
                                     const typename Store::Budget& budget) {
  return std::make_unique<Sqrt_Newton<Store>>(formula, p, budget);
}

/// As roots.h has it.
template <class Store>
ConstantPlanPointer<Store> make_golden_ratio(s32 power, u64 p, const typename Store::Budget& budget) {
  return std::make_unique<GoldenRatio_Newton<Store>>(power, p, budget);
}

}  // namespace orl
