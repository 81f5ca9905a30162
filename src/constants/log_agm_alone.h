// The natural logarithm of a number by the arithmetic-geometric mean, with Pi and Log(2) of its own.
//
// Memory  One large value is held beside a series: the mean while Pi is computed, their quotient while Log(2) is.
#pragma once

#include "constants/constant_plan.h"
#include "functions/log_agm.h"

namespace orl {

/// Log(x) as Log_AGM has it, from series of Pi and Log(2).
template <class Store>
class Log_AGM_alone {
 public:
  using Number = Store::Number;

  /// A plan for p words, and for numbers that Log_AGM::near_one_words() is at most `near_one_words` for.
  Log_AGM_alone(u64 p, const Store::Budget& budget, u64 near_one_words = 0);

  Need need() const { return need_; }
  /// out = Log(x), else as Log_AGM::run. Throws as the plans of Pi and Log(2) besides.
  u64 run(const RunContext& ctx, Store::Frame& frame, Number& out, const Hashed<Number>& x,
          Store::Arena arena) const;

 private:
  template <class AnyArena>
  Number lay_out_constant(AnyArena& arena) const;
  template <class AnyArena>
  Number lay_out_quotient(AnyArena& arena) const;

  Log_AGM<Store> log_;
  ConstantPlanPointer<Store> pi_, log2_;
  Need need_;
};

/// A plan of ln n to p words by Log_AGM_alone, n > 1 of one word.
template <class Store>
ConstantPlanPointer<Store> make_log_agm(u64 n, u64 p, const typename Store::Budget& budget);

template <class W>
using Log_AGM_alone_BigFloatR = Log_AGM_alone<RamStore<W>>;

}  // namespace orl
