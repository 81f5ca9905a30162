#include "constants/e.h"

#include "core/exceptions.h"
#include "core/status.h"
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

template <class Store>
typename PSR_Series<Store>::Value value_of(const EFormula& formula) {
  constexpr const char* kFunction = "e_Taylor_BigFloatR()";
  const s32 power = checked_power(kFunction, formula.power);
  if (formula.series == ETaylor::kAlternating)  // the series is that of 1/e
    return {.coefficients = {.P = -1, .Q = 1}, .power = -power};
  if (power == -1)
    throw InvalidParametersException(kFunction, "Inversion not supported for non-alternating series.");
  return {.coefficients = {.P = 1, .Q = 1}, .power = power};
}

}  // namespace

template <class W>
std::unique_ptr<const Series<W>> make_e_series(ETaylor series, u64 p) {
  return std::make_unique<TaylorSeries<W>>(series, p);
}

template <class Store>
e_Taylor<Store>::e_Taylor(const EFormula& formula, u64 p, const Budget& budget)
    : power_(formula.power),
      series_(make_e_series<Word>(formula.series, p + 1), value_of<Store>(formula), p + 1, budget) {}

template <class Store>
u64 e_Taylor<Store>::run(const RunContext& ctx, Frame& caller, Number& out, Arena heap) const {
  Frame frame = caller.enter("e_Taylor_BigFloatR::run()");
  ctx.status.println(power_ == 1 ? "e - exp(1)" : "e - exp(-1):");
  u64 hash = 0;
  frame.stage([&] { hash = series_.run(ctx, frame, out, heap); }, out);
  require_hash(out, hash, "e_Taylor_BigFloatR::run()", ctx.parallel);
  return hash;
}

template class e_Taylor<RamStore<u32>>;
template class e_Taylor<RamStore<u64>>;
template std::unique_ptr<const Series<u32>> make_e_series<u32>(ETaylor, u64);
template std::unique_ptr<const Series<u64>> make_e_series<u64>(ETaylor, u64);

}  // namespace orl
