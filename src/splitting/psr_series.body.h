// The definitions of psr_series.h, for the files that instantiate them for a store.
#pragma once

#include <algorithm>

#include "core/exceptions.h"
#include "functions/proved.body.h"
#include "splitting/block_list.body.h"
#include "splitting/exact_steps.h"
#include "splitting/psr_series.h"
#include "splitting/stage_timer.h"

namespace orl {

namespace psr_series {

/// The longest fraction of a series to p words.
template <class W>
u64 fraction_words(const Series<W>& series, u64 p) {
  return std::min(series.remaining_words(0), p + 1) + 2;
}

}  // namespace psr_series

template <class Store>
PSR_Series<Store>::PSR_Series(std::unique_ptr<const Series<W>> series, const Value& value, u64 p,
                              const Store::Budget& budget)
    : series_(std::move(series)),
      inverse_(is_inverse("PSR_SeriesB()", value.power)),
      p_(p),
      budget_(budget),
      list_(*series_, p, budget, value.memory, value.title),
      outer_(value.coefficients, p, psr_series::fraction_words(*series_, p)),
      division_(p, budget) {
  plan_need();
}

template <class Store>
void PSR_Series<Store>::plan_need() {
  const auto finish = [&](auto& arena) {
    outer_.cut(arena);
    arena.leave(division_.need().ram_bytes);
  };
  const Need sums = Store::need_of([&](auto& arena) {
    arena.leave(list_.total_bytes());
    outer_.cut(arena);
  });
  // The division keeps what it can without deciding the memory.
  for (const DivisionMemory memory : {DivisionMemory::kLess, DivisionMemory::kLeast})
    if (Store::need_of(finish).ram_bytes > sums.ram_bytes)
      division_ = ProvedDivision<Store>(p_, budget_, memory);
  need_ = division_.need();
  need_.ram_bytes = std::max(sums.ram_bytes, Store::need_of(finish).ram_bytes);
  list_.use_memory(need_.ram_bytes, need_);
}

template <class Store>
void PSR_Series<Store>::run_fraction(const RunContext& ctx, Store::Frame& caller, Fraction& fraction,
                                     Store::Arena heap) const {
  auto frame = caller.enter("PSR_SeriesB::run_fraction()");
  frame.assert_sL("Terms", series_->terms());
  list_.run(ctx, frame, fraction, heap);
}

template <class Store>
u64 PSR_Series<Store>::finish(const RunContext& ctx, Store::Frame& frame, Fraction& fraction,
                              Store::Number& out, Store::Arena heap) const {
  auto rest = heap;
  OuterFraction<Store> value = outer_.cut(rest);
  frame.stage([&] { outer_.run(ctx, fraction, value, heap); }, value.n, value.d, value.n_hash, value.d_hash);
  if (value.n.signum() == 0) {
    if (inverse_) throw ArithmeticException("PSR_SeriesB::run()", "Divide by zero.");
    out.set_zero();
    return 0;
  }
  show_fault_point("division operand", value.n);
  show_fault_point("division operand", value.d);
  const Hashed<typename Store::Number> n{value.n, value.n_hash}, d{value.d, value.d_hash};
  u64 hash = 0;
  frame.stage(
      [&] {
        hash = inverse_ ? division_.run(ctx, frame, out, d, n, rest)
                        : division_.run(ctx, frame, out, n, d, rest);
      },
      out, hash);
  return hash;
}

template <class Store>
u64 PSR_Series<Store>::run(const RunContext& ctx, Store::Frame& caller, Store::Number& out,
                           Store::Arena heap) const {
  if (heap.size < need_.ram_bytes)
    throw BufferTooSmallException("PSR_SeriesB::run()", heap.size, need_.ram_bytes);
  auto frame = caller.enter("PSR_SeriesB::run()");
  frame.assert_sL("p", p_);
  Fraction fraction;
  StageTimer summing(ctx.status, "Summing Series");
  frame.stage([&] { run_fraction(ctx, frame, fraction, heap); }, fraction.T, fraction.U);
  summing.finish();
  StageTimer finishing(ctx.status, "Finishing Series");
  const u64 hash = finish(ctx, frame, fraction, out, heap);
  finishing.finish();
  return hash;
}

}  // namespace orl
