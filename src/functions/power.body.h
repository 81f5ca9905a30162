// The definitions of power.h, for the files that instantiate them for a store.
#pragma once

#include <bit>

#include "core/exceptions.h"
#include "core/status.h"
#include "functions/hashed_steps.h"
#include "functions/power.h"
#include "functions/proved.body.h"

namespace orl {

// ---- x^e, e >= 0 ----------------------------------------------------------------------------------------

// A square doubles the relative error, a product by x adds that of x: e times a few W^-(p+1) in the end.
template <class Store>
Power_uL<Store>::Power_uL(u64 p, u64 exponent, const Store::Budget& budget)
    : p_(p), steps_p_(p), exponent_(exponent) {
  if (exponent > 1) {
    steps_p_ += sizeof(u64) / sizeof(typename Store::Word);
    need_ = Store::need_of([&](auto& arena) { Ladder::lay_out(steps_p_, by_x(), budget.tds, arena); });
  }
  need_.out_words = steps_p_ + 4;
}

template <class Store>
u64 Power_uL<Store>::run(const RunContext& ctx, Store::Frame& parent, Number& out, const Hashed<Number>& x,
                         Store::Arena arena) const {
  constexpr const char* kFunction = "Power_uL_BigFloatR()";
  if (out.size < need_.out_words) throw BufferTooSmallException(kFunction, out.size, need_.out_words);
  if (exponent_ == 0) {
    out.set_uW(1);
    return 1;
  }
  auto frame = parent.enter(kFunction);
  frame.assert_sL("exponent", exponent_);
  const StatusFrame status(ctx.status, "Powering");
  const auto base = top_hashed(x, steps_p_ + kBigFloatExtraPrecision, ctx.parallel);
  u64 hash = base.hash;
  frame.stage([&] { out.set_BigFloat(steps_p_, base.number, ctx.parallel); }, out, hash);
  if (exponent_ == 1 || x.number.L == 0) return hash;
  Ladder ladder(ctx, steps_p_, by_x(), base, arena);
  for (int bit = 62 - std::countl_zero(exponent_); bit >= 0; --bit) {
    frame.stage(
        [&] {
          const StatusFrame step(ctx.status, "Squaring");
          ladder.square(out, hash);
          if (exponent_ >> bit & 1) ladder.multiply(out, hash);
        },
        out, hash);
  }
  cut_hashed(out, hash, p_, ctx.parallel);
  return hash;
}

// ---- x^e ------------------------------------------------------------------------------------------------

namespace power {

/// |exponent|, which may be 2^63.
inline u64 magnitude(s64 exponent) {
  return exponent < 0 ? u64{0} - static_cast<u64>(exponent) : static_cast<u64>(exponent);
}

}  // namespace power

template <class Store>
Power_nL<Store>::Power_nL(u64 p, s64 exponent, const Store::Budget& budget)
    : inverse_(exponent < 0),
      power_(p, power::magnitude(exponent), budget),
      division_(p, budget, DivisionMemory::kLess) {
  need_ = power_.need();
  if (inverse_) {
    need_ = Store::need_of([&](auto& arena) { lay_out(arena); });
    need_.out_words = division_.need().out_words;
  }
}

template <class Store>
template <class AnyArena>
auto Power_nL<Store>::lay_out(AnyArena& arena) const -> Number {
  auto number = Store::number(arena, power_.need().out_words, "orv_X.sf");
  for (const Need& need : {power_.need(), division_.need()}) arena.leave(need);
  return number;
}

template <class Store>
u64 Power_nL<Store>::run(const RunContext& ctx, Store::Frame& parent, Number& out, const Hashed<Number>& x,
                         Store::Arena arena) const {
  if (!inverse_) return power_.run(ctx, parent, out, x, arena);
  auto frame = parent.enter("Power_nL_BigFloatR()");
  auto number = lay_out(arena);
  u64 hash = 0;
  frame.stage([&] { hash = power_.run(ctx, frame, number, x, arena); }, number, hash);
  const StatusFrame status(ctx.status, "Inverting");
  const HashedOne<Store> one;
  frame.stage([&] { hash = division_.run(ctx, frame, out, one.hashed(), {number, hash}, arena); }, out, hash);
  return hash;
}

}  // namespace orl
