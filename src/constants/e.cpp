#include "constants/e.body.h"
#include "splitting/leaf.h"

namespace orl {
namespace {

constexpr u64 kLeafWidth = 16;

// ln Q of (a, b] is ln(b!/a!).
constexpr FactorialModel::Parameters kModel{.A = DoubleDouble(0), .B = 1};

/// One more than the first t with ln t! >= the precision of p words.
template <class W>
u64 terms_for(u64 p) {
  const DoubleDouble nats = words_to_nats<W>(p);
  u64 low = 0, high = 1;
  while (stirling(high) < nats) {
    low = high;
    high *= 2;
  }
  while (high - low > 1) {
    const u64 t = low + (high - low) / 2;
    (stirling(t) < nats ? low : high) = t;
  }
  return 1 + high;
}

template <class W>
class TaylorSeries final : public Series<W> {
 public:
  TaylorSeries(ETaylor series, u64 p)
      : Series<W>(hyperdescent<W>(), std::make_unique<FactorialModel>(kModel), kLeafWidth, terms_for<W>(p),
                  series == ETaylor::kAlternating) {}

  // The terms shrink faster and faster: a straight line in a would be too low everywhere between its ends.
  DoubleDouble remaining(u64 a) const override { return stirling(this->terms()) - stirling(a); }

  // One pass: appending the term k turns P into P k + 1, or P k - 1, and Q into Q k.
  void end(u64 a, u64 b, SeriesNode<W>& out) const override {
    LeafNumber<W> P = leaf_number(out.P()), Q = leaf_number(out.Q());
    const u64 words = (b - a) * (64 / this->word_bits) + 1;
    check_end_capacity("e_Taylor_BSR_End()", P, words);
    check_end_capacity("e_Taylor_BSR_End()", Q, words);
    W one_word[2];
    LeafNumber<W> one{one_word, 2};
    one.set(1);
    P.set(1);
    Q.set(a + 1);
    for (u64 k = a + 2; k <= b; ++k) {
      P.mul(k);
      P.add(one, this->subtracts(a, k - 1));
      Q.mul(k);
    }
    finish_leaf(out.P(), P);
    finish_leaf(out.Q(), Q);
  }
};

}  // namespace

template <class W>
std::unique_ptr<const Series<W>> make_e_series(ETaylor series, u64 p) {
  return std::make_unique<TaylorSeries<W>>(series, p);
}

#define ORVANE_INSTANTIATE(W)                                                         \
  template std::unique_ptr<const Series<W>> make_e_series<W>(ETaylor, u64);           \
  template ConstantPlanPointer<RamStore<W>> make_e<RamStore<W>>(const EFormula&, u64, \
                                                                const RamStore<W>::Budget&);
ORVANE_INSTANTIATE(u32)
ORVANE_INSTANTIATE(u64)
#undef ORVANE_INSTANTIATE

}  // namespace orl
