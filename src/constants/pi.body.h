// The definitions of pi.h, for the files that instantiate them for a store.
#pragma once

#include <algorithm>

#include "constants/pi.h"
#include "core/exceptions.h"
#include "core/status.h"
#include "splitting/psr_series.body.h"
#include "splitting/stage_timer.h"

namespace orl {

namespace pi_constant {

inline constexpr const char* kFunction = "Pi_Series_BigFloatR()";
inline constexpr const char* kRun = "Pi_Series_BigFloatR::run()";

/// A row of the table in pi.h.
struct Row {
  SeriesCoefficients coefficients;
  u64 x;
};

/// The row of the table in pi.h that a formula means.
inline Row row_of(const PiFormula& formula) {
  const bool pi = checked_power(kFunction, formula.power) == 1;
  if (formula.series == PiSeries::kChudnovsky)
    return {{.P = 1, .Q = 13591409, .D = u64{pi ? 4270934400u : 426880u}}, 10005};
  if (pi) return {{.P = 1, .Q = 1103, .D = 9801}, 8};
  return {{.P = 4, .Q = 4412, .D = 9801}, 2};
}

// The series' own power is the opposite of the constant's: it is D Q / (a P + b Q) that Pi takes.
template <class Store>
typename PSR_Series<Store>::Value value_of(const PiFormula& formula) {
  return {row_of(formula).coefficients, -formula.power, formula.memory};
}

}  // namespace pi_constant

template <class Store>
Pi_Series<Store>::Pi_Series(const PiFormula& formula, u64 p, const Budget& budget)
    : kind_(formula.series),
      x_(pi_constant::row_of(formula).x),
      series_(make_pi_series<Word>(formula.series, p + 2), pi_constant::value_of<Store>(formula), p + 2,
              budget),
      root_(p + 1, budget),
      product_(p + 1, budget) {
  const Need sum = series_.need();
  need_ = Need::max(sum, root_.need());
  need_.out_words = std::max(sum.out_words, product_.out_words());
  need_.ram_bytes = Store::need_of([&](auto& arena) {
                      arena.leave(sum.ram_bytes);
                      cut_root(arena);
                    }).ram_bytes;
  need_.table_bits = std::max(need_.table_bits, product_.product_words() * 8 * sizeof(Word));
}

template <class Store>
template <class AnyArena>
auto Pi_Series<Store>::cut_root(AnyArena& arena) const -> Number {
  Number root = Store::number(arena, root_.need().out_words, "orv_R.sf");
  arena.leave(std::max(root_.need().ram_bytes, product_.heap_bytes()));
  return root;
}

template <class Store>
u64 Pi_Series<Store>::run(const RunContext& ctx, Frame& caller, Number& out, Arena heap) const {
  if (heap.size < need_.ram_bytes)
    throw BufferTooSmallException(pi_constant::kRun, heap.size, need_.ram_bytes);
  Frame frame = caller.enter(pi_constant::kRun);
  ctx.status.println(kind_ == PiSeries::kChudnovsky ? "Pi - Chudnovsky (1989):" : "Pi - Ramaunjan (1910):");
  u64 hash = 0, root_hash = 0;
  frame.stage([&] { hash = series_.run(ctx, frame, out, heap); }, out, hash);
  Number root = cut_root(heap);
  {
    StageTimer timer(ctx.status, "InvSqrt...");
    frame.stage([&] { root_hash = root_.run(ctx, frame, root, static_cast<Word>(x_), heap); }, out, hash,
                root, root_hash);
    timer.finish();
  }
  StageTimer timer(ctx.status, "Large Multiply...");
  frame.stage([&] { hash = product_.run(ctx, frame, out, hash, {root, root_hash}, heap); }, out, hash);
  timer.finish();
  return hash;
}

}  // namespace orl
