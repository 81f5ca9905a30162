// The definitions of e.h, for the files that instantiate them for a store.
#pragma once

#include "constants/e.h"
#include "core/exceptions.h"
#include "core/status.h"
#include "splitting/psr_series.body.h"

namespace orl {

namespace e_constant {

template <class Store>
typename PSR_Series<Store>::Value value_of(const EFormula& formula) {
  constexpr const char* kFunction = "e_Taylor_BigFloatR()";
  const s32 power = checked_power(kFunction, formula.power);
  if (formula.series == ETaylor::kAlternating)  // the series is that of 1/e
    return {.coefficients = {.P = -1, .Q = 1}, .power = -power};
  if (power == -1)
    throw InvalidParametersException(kFunction, "Inversion not supported for non-alternating series.");
  return {.coefficients = {.P = 1, .Q = 1}, .power = power};
}

}  // namespace e_constant

template <class Store>
e_Taylor<Store>::e_Taylor(const EFormula& formula, u64 p, const Budget& budget)
    : kind_(formula.series),
      series_(make_e_series<Word>(formula.series, p + 1), e_constant::value_of<Store>(formula), p + 1,
              budget) {}

template <class Store>
u64 e_Taylor<Store>::run(const RunContext& ctx, Frame& caller, Number& out, Arena heap) const {
  Frame frame = caller.enter("e_Taylor_BigFloatR::run()");
  ctx.status.println(kind_ == ETaylor::kPlain ? "e - exp(1)" : "e - exp(-1):");
  u64 hash = 0;
  frame.stage([&] { hash = series_.run(ctx, frame, out, heap); }, out, hash);
  require_hash(out, hash, "e_Taylor_BigFloatR::run()", ctx.parallel);
  return hash;
}

}  // namespace orl
