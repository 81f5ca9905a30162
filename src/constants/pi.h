// Pi and 1/Pi by the series of the Chudnovskys (1988) or of Ramanujan (1914), times 1/sqrt(x).
//
//   series     power   value
//   Chudnovsky     1   4270934400 Q / (P + 13591409 Q) / sqrt(10005)
//   Chudnovsky    -1   (P + 13591409 Q) / (426880 Q) / sqrt(10005)
//   Ramanujan      1   9801 Q / (P + 1103 Q) / sqrt(8)
//   Ramanujan     -1   (4 P + 4412 Q) / (9801 Q) / sqrt(2)
//
// with P, Q of the whole sum (pi_terms.h). No product is longer than about 1.4 p words: those of the
// largest block with the fraction behind it.
#pragma once

#include "constants/constant_plan.h"
#include "constants/final_product.h"
#include "functions/proved.h"
#include "splitting/binary_splitting.h"

namespace orl {

enum class PiSeries { kChudnovsky, kRamanujan };

/// A series of Pi for its terms: 1 to p words. For tests and measurements of the splitting itself.
template <class W>
std::unique_ptr<const Series<W>> make_pi_series(PiSeries series, u64 p);

/// Pi (power 1) or 1/Pi (power -1) to p words. `reduced` plans the series in blocks of at most half the
/// precision. Any other power throws InvalidParametersException "Power must be 1 or -1.".
template <class Store>
class Pi_Series final : public BasicConstantPlan<Store> {
 public:
  using W = typename Store::Word;
  using Number = typename Store::Number;
  using Arena = typename Store::Arena;

  Pi_Series(PiSeries series, s32 power, bool reduced, u64 p, u64 tds);

  Need need() const override { return need_; }
  void run(const RunContext& ctx, Number& out, Arena heap) const override;

 private:
  PiSeries kind_;
  u64 p_;
  u64 x_;  ///< the word under the root
  PSR_Series<Store> series_;
  ProvedInvsqrtWord<Store> root_;
  FinalProduct<Store> product_;
  u64 root_words_ = 0;
  Need need_;
};

template <class W>
using Pi_Series_BigFloatR = Pi_Series<RamStore<W>>;

}  // namespace orl
