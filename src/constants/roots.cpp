#include "constants/roots.h"

#include "core/exceptions.h"
#include "core/status.h"
#include "splitting/exact_steps.h"
#include "splitting/stage_timer.h"

namespace orl {
namespace {

constexpr const char* kSqrt = "Sqrt_Newton_BigFloatR()";
constexpr const char* kSqrtRun = "Sqrt_Newton_BigFloatR::run()";
constexpr const char* kGoldenRatio = "GoldenRatio_Newton_BigFloatR()";
constexpr const char* kGoldenRatioRun = "GoldenRatio_Newton_BigFloatR::run()";
/// 2 is the inverse of 2^60 modulo 2^61 - 1.
constexpr u64 kHashOfHalf = u64{1} << 60;

/// out = 1/sqrt(n); returns its hash.
template <class Store>
u64 inverse_root(const ProvedInvsqrtWord<Store>& root, typename Store::Word n, const RunContext& ctx,
                 typename Store::Frame& frame, typename Store::Number& out, typename Store::Arena heap) {
  StageTimer timer(ctx.status, "InvSqrt...");
  u64 hash = 0;
  frame.stage([&] { hash = root.run(ctx, out, n, heap); }, out);
  timer.finish();
  return hash;
}

}  // namespace

template <class Store>
Sqrt_Newton<Store>::Sqrt_Newton(const SqrtFormula& formula, u64 p, const Budget& budget)
    : n_(static_cast<Word>(formula.n)),
      power_(checked_power(kSqrt, formula.power)),
      root_(p + 1, budget.tds) {
  if (n_ != formula.n) throw InvalidParametersException(kSqrt, "Argument is too large.");
  if (n_ == 0) throw ArithmeticException(kSqrt, "Divide by zero.");
}

template <class Store>
u64 Sqrt_Newton<Store>::run(const RunContext& ctx, Frame& caller, Number& out, Arena heap) const {
  Frame frame = caller.enter(kSqrtRun);
  u64 hash = inverse_root(root_, n_, ctx, frame, out, heap);
  show_fault_point("root", out);
  if (power_ == 1) {
    frame.stage([&] { out.mul_uW(n_, ctx.parallel); }, out);
    hash = hash_mul(hash, n_);
  }
  show_fault_point("root result", out);
  require_hash(out, hash, kSqrtRun, ctx.parallel);
  return hash;
}

template <class Store>
GoldenRatio_Newton<Store>::GoldenRatio_Newton(s32 power, u64 p, const Budget& budget)
    : power_(checked_power(kGoldenRatio, power)), root_(p + 1, budget.tds) {}

template <class Store>
u64 GoldenRatio_Newton<Store>::run(const RunContext& ctx, Frame& caller, Number& out, Arena heap) const {
  Frame frame = caller.enter(kGoldenRatioRun);
  u64 hash = inverse_root(root_, Word{5}, ctx, frame, out, heap);
  show_fault_point("root", out);
  frame.stage(
      [&] {
        out.mul_uW(5, ctx.parallel);
        out.add_ip(1, 0);
        out.mp2(-1, ctx.parallel);
        if (power_ == -1) out.truncate_above(0);
      },
      out);
  hash = hash_mul(hash_mul_add(hash, 5, 1), kHashOfHalf);
  if (power_ == -1) hash = hash_sub(hash, 1);
  show_fault_point("root result", out);
  require_hash(out, hash, kGoldenRatioRun, ctx.parallel);
  return hash;
}

template class Sqrt_Newton<RamStore<u32>>;
template class Sqrt_Newton<RamStore<u64>>;
template class GoldenRatio_Newton<RamStore<u32>>;
template class GoldenRatio_Newton<RamStore<u64>>;

}  // namespace orl
