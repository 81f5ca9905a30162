// The definitions of log_agm.h, for the files that instantiate them for a store.
#pragma once

#include <algorithm>

#include "core/exceptions.h"
#include "core/status.h"
#include "functions/agm.body.h"
#include "functions/log_agm.h"

namespace orl {

namespace log_agm {

inline constexpr const char* kFunction = "Log_AGM_BigFloatR::run()";

/// Words that the difference of two numbers near ln s costs, 41 bits, and that x near 1 does, 16 bits.
template <class W>
inline constexpr u64 kGuardWords = sizeof(W) == 4 ? 3 : 2;

}  // namespace log_agm

template <class Store>
Log_AGM<Store>::Log_AGM(u64 p, const Store::Budget& budget, u64 near_one_words)
    : result_p_(p),
      near_one_(near_one_words),
      p_(p + log_agm::kGuardWords<typename Store::Word> + near_one_words),
      mean_(p_, budget),
      division_(p_, budget, DivisionMemory::kLess) {
  need_ = Store::need_of([&](auto& arena) { lay_out(arena); });
  need_.out_words = out_words();
}

template <class Store>
u64 Log_AGM<Store>::near_one_words(const Number& x) {
  const HashedOne<Store> one;
  const u64 bits = agreeing_bits(x, one.number), word_bits = 8 * sizeof(typename Store::Word);
  return bits < 16 || bits == ~u64{0} ? 0 : bits / word_bits + 1;
}

template <class Store>
template <class AnyArena>
auto Log_AGM<Store>::lay_out(AnyArena& arena) const -> Number {
  auto quotient = Store::number(arena, division_.need().out_words, "orv_Q.sf");
  for (const Need& need : {mean_need(), division_need(), finish_need()}) arena.leave(need);
  return quotient;
}

template <class Store>
Need Log_AGM<Store>::mean_need() const {
  return Store::need_of([&](auto& arena) {
    Store::number(arena, p_ + 4, "orv_K.sf");
    arena.leave(mean_.need());
  });
}

template <class Store>
Need Log_AGM<Store>::finish_need() const {
  return Store::need_of([&](auto& arena) { Store::number(arena, p_ + 6, "orv_L.sf"); });
}

template <class Store>
s64 Log_AGM<Store>::shift(const Number& x) const {
  return x.magnitude() + static_cast<s64>((result_p_ + near_one_ + 1) / 2 + 1);
}

template <class Store>
bool Log_AGM<Store>::is_trivial(const Number& x) const {
  if (x.L == 0) throw InvalidParametersException(log_agm::kFunction, "Log(0) is negative infinity.");
  if (x.signum() < 0)
    throw InvalidParametersException(log_agm::kFunction, "Log of a negative number is complex.");
  if (near_one_words(x) > near_one_)
    throw InvalidParametersException(log_agm::kFunction, "The argument is nearer to 1 than planned.");
  return Number::cmp(x, HashedOne<Store>().number) == 0;
}

template <class Store>
u64 Log_AGM<Store>::double_mean(const RunContext& ctx, Store::Frame& frame, Number& g,
                                const Hashed<Number>& x, Store::Arena arena) const {
  ctx.status.println("AGM(1,x)");
  u64 hash = 0;
  frame.stage(
      [&] {
        auto k = Store::number(arena, p_ + 4, "orv_K.sf");
        const auto top = top_hashed(x, p_ + kBigFloatExtraPrecision, ctx.parallel);
        k.set_BigFloat(p_, top.number, ctx.parallel);
        k.mul_uW(4, ctx.parallel);
        k.exp -= shift(x.number);
        const u64 factor = hash_mul(4, hash_word_pow<typename Store::Word>(-shift(x.number)));
        hash = mean_.run(ctx, frame, g, {k, hash_canon(hash_mul(top.hash, factor))}, arena);
        g.mul_uW(2, ctx.parallel);
        hash = hash_canon(hash_mul(hash, 2));
        fault_point("doubled mean", g);
      },
      g, hash);
  return hash;
}

template <class Store>
u64 Log_AGM<Store>::divide(const RunContext& ctx, Store::Frame& frame, Number& quotient,
                           const Hashed<Number>& pi, const Hashed<Number>& g, Store::Arena arena) const {
  const StatusFrame status(ctx.status, "Large Multiply");
  u64 hash = 0;
  frame.stage([&] { hash = division_.run(ctx, frame, quotient, pi, g, arena); }, quotient, hash);
  return hash;
}

template <class Store>
u64 Log_AGM<Store>::finish(const RunContext& ctx, Store::Frame& frame, Number& out,
                           const LogParts<Number>& parts, Store::Arena arena) const {
  const StatusFrame status(ctx.status, "Finishing Log(x)");
  u64 hash = 0;
  frame.stage(
      [&] {
        auto multiple = Store::number(arena, p_ + 6, "orv_L.sf");
        const auto top = top_hashed(parts.log2, p_ + kBigFloatExtraPrecision, ctx.parallel);
        const s64 bits = parts.shift * static_cast<s64>(8 * sizeof(typename Store::Word));
        multiple.set_mul_sL(p_ + kBigFloatExtraPrecision, top.number, bits, ctx.parallel);
        fault_point("multiple of Log(2)", multiple);
        u64 multiple_hash = hash_mul(top.hash, static_cast<u64>(bits < 0 ? -bits : bits));
        if (bits < 0) multiple_hash = hash_neg(multiple_hash);
        hash = subtract_hashed<typename Store::Word>(out, result_p_, {multiple, multiple_hash},
                                                     parts.quotient, ctx.parallel);
        fault_point("logarithm", out);
        require_hash<Number>({out, hash}, log_agm::kFunction, "Checksum Mismatch. Logarithm failed.",
                             ctx.parallel);
      },
      out, hash);
  return hash;
}

template <class Store>
u64 Log_AGM<Store>::run(const RunContext& ctx, Store::Frame& parent, Number& out, const Hashed<Number>& x,
                        const LogOperands<Number>& operands, Store::Arena arena) const {
  if (is_trivial(x.number)) {
    out.set_zero();
    return 0;
  }
  auto frame = parent.enter(log_agm::kFunction);
  frame.assert_sL("p", result_p_);
  auto quotient = lay_out(arena);
  const u64 mean_hash = double_mean(ctx, frame, out, x, arena);
  const u64 hash = divide(ctx, frame, quotient, operands.pi, {out, mean_hash}, arena);
  return finish(ctx, frame, out, {operands.log2, shift(x.number), {quotient, hash}}, arena);
}

}  // namespace orl
