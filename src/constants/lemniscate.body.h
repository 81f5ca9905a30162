// The definition of make_lemniscate, for the files that instantiate it for a store.
#pragma once

#include <algorithm>
#include <array>
#include <cstdlib>
#include <type_traits>

#include "constants/arcsinlemn.h"
#include "constants/final_product.h"
#include "constants/lemniscate.h"
#include "constants/lemniscate_agm.body.h"
#include "constants/series_sum.body.h"
#include "splitting/stage_timer.h"

namespace orl {

/// The plan for the singular value: 11 / sum times 33^(1/4), which is 1 / sqrt(1 / sqrt(33)), with ProvedInvsqrtFloat
/// as Root. With ProvedSqrtFloat it gives the inverse, sum / 11 times sqrt(1 / sqrt(33)).
template <class Store, class Root>
class Lemniscate_Singular final : public BasicConstantPlan<Store> {
 public:
  using Number = typename Store::Number;

  /// A plan for p words.
  Lemniscate_Singular(u64 p, const Store::Budget& budget)
      : series_(make_term_series<typename Store::Word>(lemniscate_terms(), p + 2),
                {.coefficients = lemniscate_terms().outer, .power = kInverse ? 1 : -1}, p + 2, budget),
        square_root_(p + 2, budget),
        fourth_root_(p + 1, budget),
        product_(kRun, p + 1, budget) {
    need_ = Store::need_of([&](auto& arena) {
      arena.leave(series_.need());
      cut_roots(arena);
    });
    need_.out_words = std::max(series_.need().out_words, product_.need().out_words);
  }

  Need need() const override { return need_; }

  u64 run(const RunContext& ctx, Store::Frame& caller, Number& out, Store::Arena heap) const override {
    if (heap.size < need_.ram_bytes) throw BufferTooSmallException(kRun, heap.size, need_.ram_bytes);
    auto frame = caller.enter(kRun);
    ctx.status.println("Lemniscate - Singular value:");
    u64 hash = 0, square_root_hash = 0, root_hash = 0;
    frame.stage([&] { hash = series_.run(ctx, frame, out, heap); }, out, hash);
    Roots roots = cut_roots(heap);
    {
      StageTimer timer(ctx.status, "InvSqrt...");
      frame.stage([&] { square_root_hash = square_root_.run(ctx, frame, roots.square, 33, roots.rest); }, out,
                  hash, roots.square, square_root_hash);
      timer.finish();
    }
    {
      StageTimer timer(ctx.status, kInverse ? "Sqrt..." : "InvSqrt...");
      const Hashed<Number> square{roots.square, square_root_hash};
      frame.stage([&] { root_hash = fourth_root_.run(ctx, frame, roots.fourth, square, roots.rest); }, out,
                  hash, roots.fourth, root_hash);
      timer.finish();
    }
    StageTimer timer(ctx.status, "Large Multiply...");
    frame.stage(
        [&] {
          hash = product_.run(ctx, frame, out, hash, {roots.fourth, root_hash}, roots.rest);
        },
        out, hash);
    timer.finish();
    return hash;
  }

 private:
  static constexpr const char* kRun = "Lemniscate_Singular_BigFloatR::run()";
  static constexpr bool kInverse = std::is_same_v<Root, ProvedSqrtFloat<Store>>;

  template <class AnyArena>
  struct RootsOf {
    Number fourth, square;  ///< 33^(1/4) or its inverse, and 1 / sqrt(33)
    AnyArena rest;
  };
  using Roots = RootsOf<typename Store::Arena>;

  /// The places of both roots; each of them and the last product get the rest.
  template <class AnyArena>
  RootsOf<AnyArena> cut_roots(AnyArena& arena) const {
    const Number fourth = Store::number(arena, fourth_root_.need().out_words, "orv_R.sf");
    const Number square = Store::number(arena, square_root_.need().out_words, "orv_V.sf");
    arena.leave(square_root_.need());
    arena.leave(fourth_root_.need());
    arena.leave(product_.need());
    return {fourth, square, arena};
  }

  PSR_Series<Store> series_;
  ProvedInvsqrtWord<Store> square_root_;
  Root fourth_root_;
  FinalProduct<Store> product_;
  Need need_;
};

/// c ArcSinlemn(x/y).
struct ArcSinlemnTerm {
  s64 c;
  u64 x, y;
};

/// The plan for a sum of two series. Their numbers grow to more than ten times the precision: blocks of half of it
/// save 1.4 bytes per digit, a quarter, and cost 2 % of the time (3000000 digits).
template <class Store>
ConstantPlanPointer<Store> make_lemniscate_sum(const char* headline, std::array<ArcSinlemnTerm, 2> sum, u64 p,
                                               const typename Store::Budget& budget) {
  using W = typename Store::Word;
  std::vector<SeriesTerm<W>> terms;
  for (const auto& [c, x, y] : sum) {
    const TermSeries series = arcsinlemn_terms<W>(std::abs(c), x, y);
    terms.push_back({make_term_series<W>(series, p + 1), series.outer, c < 0, SeriesMemory::kReduced});
  }
  return make_series_sum<Store>({"Lemniscate_ArcSinlemn_BigFloatR::run()", headline}, std::move(terms), p,
                                budget);
}

/// As lemniscate.h has it.
template <class Store>
ConstantPlanPointer<Store> make_lemniscate(const LemniscateFormula& formula, u64 p,
                                           const typename Store::Budget& budget) {
  constexpr const char* kFunction = "FormulaS_Lemniscate::run()";
  const bool inverse = is_inverse("Lemniscate()", formula.power);
  const auto refuse_inverse = [&](const char* algorithm) {
    if (inverse)
      throw InvalidParametersException(
          "Lemniscate()", std::string("(Power = -1) is not supported for (Algorithm = ") + algorithm + ").");
  };
  switch (formula.algorithm) {
    case LemniscateAlgorithm::kAgmPi:
      return std::make_unique<Lemniscate_AGM<Store>>(inverse, p, budget);
    case LemniscateAlgorithm::kGauss:
      refuse_inverse("gauss");
      return make_lemniscate_sum<Store>("Lemniscate = 8 ArcSinlemn( 1 / 2 ) + 4 ArcSinlemn( 7 / 23 )",
                                        {{{8, 1, 2}, {4, 7, 23}}}, p, budget);
    case LemniscateAlgorithm::kSebah:
      refuse_inverse("sebah");
      return make_lemniscate_sum<Store>("Lemniscate = 8 ArcSinlemn( 2 / 3 ) - 4 ArcSinlemn( 7 / 137 )",
                                        {{{8, 2, 3}, {-4, 7, 137}}}, p, budget);
    case LemniscateAlgorithm::kSingular:
      if (inverse) return std::make_unique<Lemniscate_Singular<Store, ProvedSqrtFloat<Store>>>(p, budget);
      return std::make_unique<Lemniscate_Singular<Store, ProvedInvsqrtFloat<Store>>>(p, budget);
  }
  throw InvalidParametersException(kFunction, "Invalid Algorithm");
}

}  // namespace orl
