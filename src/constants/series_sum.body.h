// The definition of make_series_sum, for the files that instantiate it for a store.
#pragma once

#include <algorithm>
#include <cstdio>

#include "constants/series_sum.h"
#include "core/exceptions.h"
#include "core/status.h"
#include "splitting/exact_steps.h"
#include "splitting/psr_series.body.h"

namespace orl {

/// The plan that make_series_sum gives.
template <class Store>
class SeriesSum final : public BasicConstantPlan<Store> {
 public:
  using W = typename Store::Word;
  using Number = typename Store::Number;

  /// A plan for p words.
  SeriesSum(SeriesSumNames names, std::vector<SeriesTerm<W>> terms, u64 p, const Store::Budget& budget)
      : names_(std::move(names)), kept_words_(p + 3) {
    Need series;
    for (SeriesTerm<W>& term : terms) {
      const typename PSR_Series<Store>::Value value{.coefficients = term.coefficients, .memory = term.memory};
      summands_.push_back(
          {std::make_unique<const PSR_Series<Store>>(std::move(term.series), value, p + 1, budget),
           term.subtracted});
      series = Need::max(series, summands_.back().series->need());
    }
    value_words_ = series.out_words;
    need_ = Store::need_of([&](auto& arena) {
      if (summands_.size() > 1) cut_value(arena);
      arena.leave(series);
    });
    // A sum may be longer than its summands by a word for each bound that a carry passes.
    need_.out_words = value_words_ + 4;
  }

  Need need() const override { return need_; }

  u64 run(const RunContext& ctx, Store::Frame& caller, Store::Number& out, Store::Arena heap) const override {
    if (heap.size < need_.ram_bytes) throw BufferTooSmallException(names_.run, heap.size, need_.ram_bytes);
    auto frame = caller.enter(names_.run);
    ctx.status.println(names_.headline);
    Number value = summands_.size() > 1 ? cut_value(heap) : Number();
    u64 hash = 0, value_hash = 0;
    for (u64 i = 0; i < summands_.size(); ++i) {
      const Summand& summand = summands_[i];
      char line[32];
      std::snprintf(line, sizeof line, "Term: %llu", static_cast<unsigned long long>(i));
      StatusFrame status(ctx.status, line);
      Number& result = i == 0 ? out : value;
      frame.stage([&] { value_hash = summand.series->run(ctx, frame, result, heap); }, out, hash, value,
                  value_hash);
      show_fault_point("sum of series", result);
      StatusFrame accumulating(ctx.status, "Accumulate");
      frame.stage(
          [&] {
            if (i == 0)
              begin(summand, out, hash, value_hash);
            else
              accumulate(summand, out, hash, Store::as_exact(value, value_hash), ctx.parallel);
          },
          out, hash);
      show_fault_point("sum of series", out);
    }
    require_hash<Number>({out, hash}, names_.run, kProductMismatch, ctx.parallel);
    return hash;
  }

 private:
  struct Summand {
    std::unique_ptr<const PSR_Series<Store>> series;
    bool subtracted;
  };

  /// The place of a value; its series gets the rest.
  template <class AnyArena>
  Number cut_value(AnyArena& arena) const {
    return Store::number(arena, value_words_, "orv_S.sf");
  }

  /// The first summand, which lies in the sum's place already.
  static void begin(const Summand& first, Number& sum, u64& hash, u64 value_hash) {
    hash = value_hash;
    if (!first.subtracted) return;
    sum.negate();
    hash = hash_neg(hash);
  }
  void accumulate(const Summand& summand, Number& sum, u64& hash, Store::Exact value,
                  ParallelContext parallel) const {
    auto x = Store::as_exact(sum, hash);
    add_exact(x, value, summand.subtracted, parallel);
    cut_exact(x, kept_words_, parallel);
    sum = Store::as_number(x);
    hash = x.hash;
  }

  SeriesSumNames names_;
  u64 kept_words_;
  std::vector<Summand> summands_;
  u64 value_words_;
  Need need_;
};

/// As series_sum.h has it.
template <class Store>
ConstantPlanPointer<Store> make_series_sum(SeriesSumNames names,
                                           std::vector<SeriesTerm<typename Store::Word>> terms, u64 p,
                                           const typename Store::Budget& budget) {
  return std::make_unique<SeriesSum<Store>>(std::move(names), std::move(terms), p, budget);
}

}  // namespace orl
