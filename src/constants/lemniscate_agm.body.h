// The plan of the lemniscate constant by Pi and an arithmetic-geometric mean.
#pragma once

#include <algorithm>

#include "constants/constant_plan.h"
#include "constants/pi.h"
#include "core/exceptions.h"
#include "core/status.h"
#include "functions/agm.body.h"
#include "splitting/psr_series.h"
#include "splitting/stage_timer.h"

namespace orl {

/// The mean comes first and is held while Pi is computed: the other way round Pi would be held through the iterations,
/// which take more memory than Pi's series.
template <class Store>
class Lemniscate_AGM final : public BasicConstantPlan<Store> {
 public:
  using Number = Store::Number;

  /// A plan for p words of the constant or its inverse.
  Lemniscate_AGM(bool inverse, u64 p, const Store::Budget& budget)
      : inverse_(inverse),
        root_(p + 1, budget),
        agm_(p + 1, budget),
        pi_(make_pi<Store>({}, p + 1, budget)),
        division_(p, budget, DivisionMemory::kLess) {
    need_ = Store::need_of([&](auto& arena) {
      cut_mean(arena);
      for (const Need& need : {root_.need(), agm_.need()}) arena.leave(need);
      cut_pi(arena);
    });
    need_.out_words = std::max(division_.need().out_words, root_.need().out_words + 1);
  }

  Need need() const override { return need_; }

  u64 run(const RunContext& ctx, Store::Frame& caller, Number& out, Store::Arena heap) const override {
    constexpr const char* kRun = "Lemniscate_AGM_BigFloatR::run()";
    if (heap.size < need_.ram_bytes) throw BufferTooSmallException(kRun, heap.size, need_.ram_bytes);
    auto frame = caller.enter(kRun);
    ctx.status.println("Lemniscate - AGM-Pi:");
    auto mean = cut_mean(heap);
    const u64 mean_hash = run_mean(ctx, frame, mean, out, heap);
    auto pi = cut_pi(heap);
    u64 hash = 0;
    frame.stage(
        [&] {
          hash = pi_->run(ctx, frame, pi, heap);
          pi.mul_uW(2, ctx.parallel);
          hash = hash_mul(hash, 2);
        },
        mean, mean_hash, pi, hash);
    fault_point("doubled pi", pi);
    StageTimer timer(ctx.status, "Large Division...");
    const Hashed<Number> a{pi, hash}, b{mean, mean_hash};
    frame.stage([&] { hash = division_.run(ctx, frame, out, inverse_ ? b : a, inverse_ ? a : b, heap); }, out,
                hash);
    timer.finish();
    return hash;
  }

 private:
  // `root` is the place of sqrt(2), which nothing needs afterwards.
  u64 run_mean(const RunContext& ctx, Store::Frame& frame, Number& mean, Number& root,
               const Store::Arena& arena) const {
    StageTimer timer(ctx.status, "AGM(1,x)...");
    u64 hash = 0, mean_hash = 0;
    frame.stage(
        [&] {
          hash = root_.run(ctx, frame, root, 2, arena);
          root.mul_uW(2, ctx.parallel);
          hash = hash_mul(hash, 2);
        },
        root, hash);
    fault_point("doubled root", root);
    frame.stage([&] { mean_hash = agm_.run(ctx, frame, mean, {root, hash}, arena); }, mean, mean_hash);
    timer.finish();
    return mean_hash;
  }

  template <class AnyArena>
  Number cut_mean(AnyArena& arena) const {
    return Store::number(arena, agm_.need().out_words, "orv_M.sf");
  }
  template <class AnyArena>
  Number cut_pi(AnyArena& arena) const {
    auto pi = Store::number(arena, pi_->need().out_words + 1, "orv_P.sf");
    for (const Need& need : {pi_->need(), division_.need()}) arena.leave(need);
    return pi;
  }

  bool inverse_;
  ProvedInvsqrtWord<Store> root_;
  AGM1<Store> agm_;
  ConstantPlanPointer<Store> pi_;
  ProvedDivision<Store> division_;
  Need need_;
};

}  // namespace orl
