// e and 1/e by their Taylor series: kind Hyperdescent with P(k) = 1, Q(k) = k.
//
//   alternating   power   value
//            no       1   (P + Q) / Q
//           yes       1   Q / (Q - P)
//           yes      -1   (Q - P) / Q
#pragma once

#include "constants/constant_plan.h"
#include "splitting/binary_splitting.h"

namespace orl {

/// The Taylor series for its terms: 1 to p words.
template <class W>
std::unique_ptr<const Series<W>> make_e_series(bool alternating, u64 p);

/// e (power 1) or 1/e (power -1) to p words. Throws InvalidParametersException "Power must be 1 or -1." and,
/// for power -1 without the alternating series, "Inversion not supported for non-alternating series.".
template <class Store>
class e_Taylor final : public BasicConstantPlan<Store> {
 public:
  using W = typename Store::Word;
  using Number = typename Store::Number;
  using Arena = typename Store::Arena;

  e_Taylor(bool alternating, s32 power, u64 p, u64 tds);

  Need need() const override { return series_.need(); }
  void run(const RunContext& ctx, Number& out, Arena heap) const override;

 private:
  s32 power_;
  PSR_Series<Store> series_;
};

template <class W>
using e_Taylor_BigFloatR = e_Taylor<RamStore<W>>;

}  // namespace orl
