// The definitions of roots.h, for the files that instantiate them for a store.
#pragma once

#include "constants/roots.h"
#include "core/exceptions.h"
#include "core/status.h"
#include "functions/proved.body.h"
#include "splitting/exact_steps.h"
#include "splitting/stage_timer.h"

namespace orl {

namespace roots {

inline constexpr const char* kSqrt = "Sqrt_Newton_BigFloatR()";
inline constexpr const char* kSqrtRun = "Sqrt_Newton_BigFloatR::run()";
inline constexpr const char* kGoldenRatio = "GoldenRatio_Newton_BigFloatR()";
inline constexpr const char* kGoldenRatioRun = "GoldenRatio_Newton_BigFloatR::run()";
/// 2 is the inverse of 2^60 modulo 2^61 - 1.
inline constexpr u64 kHashOfHalf = u64{1} << 60;

/// out = 1/sqrt(n); returns its hash.
template <class Store>
u64 inverse_root(const ProvedInvsqrtWord<Store>& root, typename Store::Word n, const RunContext& ctx,
                 typename Store::Frame& frame, typename Store::Number& out, typename Store::Arena heap) {
  StageTimer timer(ctx.status, "InvSqrt...");
  u64 hash = 0;
  frame.stage([&] { hash = root.run(ctx, frame, out, n, heap); }, out, hash);
  timer.finish();
  return hash;
}

}  // namespace roots

template <class Store>
Sqrt_Newton<Store>::Sqrt_Newton(const SqrtFormula& formula, u64 p, const Budget& budget)
    : n_(static_cast<Word>(formula.n)),
      power_(checked_power(roots::kSqrt, formula.power)),
      root_(p + 1, budget) {
  if (n_ != formula.n) throw InvalidParametersException(roots::kSqrt, "Argument is too large.");
  if (n_ == 0) throw ArithmeticException(roots::kSqrt, "Divide by zero.");
}

template <class Store>
u64 Sqrt_Newton<Store>::run(const RunContext& ctx, Frame& caller, Number& out, Arena heap) const {
  Frame frame = caller.enter(roots::kSqrtRun);
  u64 hash = roots::inverse_root(root_, n_, ctx, frame, out, heap);
  show_fault_point("root", out);
  if (power_ == 1) {
    frame.stage(
        [&] {
          out.mul_uW(n_, ctx.parallel);
          hash = hash_mul(hash, n_);
        },
        out, hash);
  }
  show_fault_point("root result", out);
  require_hash(out, hash, roots::kSqrtRun, ctx.parallel);
  return hash;
}

template <class Store>
GoldenRatio_Newton<Store>::GoldenRatio_Newton(s32 power, u64 p, const Budget& budget)
    : power_(checked_power(roots::kGoldenRatio, power)), root_(p + 1, budget) {}

template <class Store>
u64 GoldenRatio_Newton<Store>::run(const RunContext& ctx, Frame& caller, Number& out, Arena heap) const {
  Frame frame = caller.enter(roots::kGoldenRatioRun);
  u64 hash = roots::inverse_root(root_, Word{5}, ctx, frame, out, heap);
  show_fault_point("root", out);
  frame.stage(
      [&] {
        out.mul_uW(5, ctx.parallel);
        out.add_ip(1, 0);
        out.mp2(-1, ctx.parallel);
        hash = hash_mul(hash_mul_add(hash, 5, 1), roots::kHashOfHalf);
        if (power_ == -1) {
          out.truncate_above(0);
          hash = hash_sub(hash, 1);
        }
      },
      out, hash);
  show_fault_point("root result", out);
  require_hash(out, hash, roots::kGoldenRatioRun, ctx.parallel);
  return hash;
}

}  // namespace orl
