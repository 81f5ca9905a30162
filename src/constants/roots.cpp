#include "constants/roots.h"

#include "core/exceptions.h"
#include "core/status.h"
#include "splitting/stage_timer.h"

namespace orl {
namespace {

s32 checked_power(const char* function, s32 power) {
  if (power != 1 && power != -1) throw InvalidParametersException(function, "Power must be 1 or -1.");
  return power;
}

template <class Store>
void inverse_root(const ProvedInvsqrtWord<Store>& root, typename Store::Word n, const RunContext& ctx,
                  typename Store::Number& out, typename Store::Arena heap) {
  StageTimer stage(ctx.status, "InvSqrt...");
  root.run(ctx, out, n, heap);
  stage.finish();
}

}  // namespace

template <class Store>
Sqrt_Newton<Store>::Sqrt_Newton(W n, s32 power, u64 p, u64 tds)
    : n_(n), power_(checked_power("Sqrt_Newton_BigFloatR()", power)), root_(p + 1, tds) {
  if (n == 0) throw ArithmeticException("Sqrt_Newton_BigFloatR()", "Divide by zero.");
}

template <class Store>
void Sqrt_Newton<Store>::run(const RunContext& ctx, Number& out, Arena heap) const {
  inverse_root(root_, n_, ctx, out, heap);
  if (power_ == 1) out.mul_uW(n_, ctx.parallel);
}

template <class Store>
GoldenRatio_Newton<Store>::GoldenRatio_Newton(s32 power, u64 p, u64 tds)
    : negative_power_(checked_power("GoldenRatio_Newton_BigFloatR()", power) < 0), root_(p + 1, tds) {}

// 5v = 2.236... has its units word on top, so adding or taking 1 touches that word alone: 5v + 1 = 3.2.., 5v
// - 1 = 1.2..
template <class Store>
void GoldenRatio_Newton<Store>::run(const RunContext& ctx, Number& out, Arena heap) const {
  inverse_root(root_, W{5}, ctx, out, heap);
  out.mul_uW(5, ctx.parallel);
  if (out.magnitude() != 1)
    throw AlgorithmFailedException("GoldenRatio_Newton_BigFloatR::run()", "Convergence Failure");
  W& units = out.T[out.L - 1];
  units = negative_power_ ? units - 1 : units + 1;
  out.mp2(-1, ctx.parallel);
}

template class Sqrt_Newton<RamStore<u32>>;
template class Sqrt_Newton<RamStore<u64>>;
template class GoldenRatio_Newton<RamStore<u32>>;
template class GoldenRatio_Newton<RamStore<u64>>;

}  // namespace orl
