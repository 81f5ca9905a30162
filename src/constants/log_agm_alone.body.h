// The definitions of log_agm_alone.h, for the files that instantiate them for a store.
#pragma once

#include <algorithm>

#include "constants/log_agm_alone.h"
#include "constants/one_series.h"
#include "constants/pi.h"
#include "functions/log_agm.body.h"

namespace orl {

template <class Store>
Log_AGM_alone<Store>::Log_AGM_alone(u64 p, const Store::Budget& budget, u64 near_one_words)
    : log_(p, budget, near_one_words),
      pi_(make_pi<Store>({}, log_.operand_words(), budget)),
      log2_(make_one_series<Store>(OneSeries::kLog2Zuniga, 1, log_.operand_words(), budget)) {
  need_ = Store::need_of([&](auto& arena) {
    arena.leave(log_.mean_need());
    lay_out_constant(arena);
    lay_out_quotient(arena);
  });
  need_.out_words = log_.out_words();
}

template <class Store>
template <class AnyArena>
auto Log_AGM_alone<Store>::lay_out_constant(AnyArena& arena) const -> Number {
  auto constant = Store::number(arena, std::max(pi_->need().out_words, log2_->need().out_words), "orv_V.sf");
  arena.leave(pi_->need());
  return constant;
}

template <class Store>
template <class AnyArena>
auto Log_AGM_alone<Store>::lay_out_quotient(AnyArena& arena) const -> Number {
  auto quotient = Store::number(arena, log_.division_need().out_words, "orv_Q.sf");
  for (const Need& need : {log_.division_need(), log2_->need(), log_.finish_need()}) arena.leave(need);
  return quotient;
}

template <class Store>
u64 Log_AGM_alone<Store>::run(const RunContext& ctx, Store::Frame& parent, Number& out,
                              const Hashed<Number>& x, Store::Arena arena) const {
  if (log_.is_trivial(x.number)) {
    out.set_zero();
    return 0;
  }
  auto frame = parent.enter("Log_AGM_alone_BigFloatR::run()");
  const u64 mean_hash = log_.double_mean(ctx, frame, out, x, arena);
  auto constant = lay_out_constant(arena);
  u64 hash = 0;
  frame.stage([&] { hash = pi_->run(ctx, frame, constant, arena); }, out, constant, hash);
  auto quotient = lay_out_quotient(arena);
  const u64 quotient_hash = log_.divide(ctx, frame, quotient, {constant, hash}, {out, mean_hash}, arena);
  frame.stage([&] { hash = log2_->run(ctx, frame, constant, arena); }, quotient, constant, hash);
  return log_.finish(ctx, frame, out, {{constant, hash}, log_.shift(x.number), {quotient, quotient_hash}},
                     arena);
}

/// The plan that make_log_agm gives.
template <class Store>
class LogOfWord_AGM final : public BasicConstantPlan<Store> {
 public:
  using Number = Store::Number;

  /// Of ln n to p words.
  LogOfWord_AGM(Store::Word n, u64 p, const Store::Budget& budget) : n_(n), log_(p, budget) {}

  Need need() const override { return log_.need(); }
  u64 run(const RunContext& ctx, Store::Frame& frame, Number& out, Store::Arena heap) const override {
    typename Store::Word word[2];
    Number x(word, 2);
    x.set_uW(n_);
    return log_.run(ctx, frame, out, {x, n_}, heap);
  }

 private:
  Store::Word n_;
  Log_AGM_alone<Store> log_;
};

/// As log_agm_alone.h has it.
template <class Store>
ConstantPlanPointer<Store> make_log_agm(u64 n, u64 p, const typename Store::Budget& budget) {
  const auto word = static_cast<typename Store::Word>(n);
  if (n < 2 || word != n) throw InvalidParametersException("LogOfWord_AGM()", "Argument is out of range.");
  return std::make_unique<LogOfWord_AGM<Store>>(word, p, budget);
}

}  // namespace orl
