#include "constants/e.h"

#include "core/exceptions.h"
#include "core/status.h"
#include "splitting/leaf.h"

namespace orl {
namespace {

constexpr u64 kLeafWidth = 16;
constexpr u64 kTermWords = 10;  // of a leaf's numbers, for k below 2^40 in 64-bit words

// A = 0, B = 1: ln Q of (a, b] is ln(b!/a!).
constexpr SizeModel kModel{DoubleDouble(0), DoubleDouble(0), 1, 0, 0, 0};

template <class W>
class TaylorSeries final : public Series<W> {
 public:
  TaylorSeries(bool alternating, u64 p)
      : Series<W>(SeriesKind::kHyperdescent, kLeafWidth, kTermWords, alternating, kModel) {
    // One more than the first t with ln t! >= the precision in nats.
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
    this->terms_ = 1 + high;
  }

  // The terms shrink faster and faster: a straight line in a would be too low everywhere between its ends.
  DoubleDouble remaining(u64 a) const override { return stirling(this->terms_) - stirling(a); }

  // One pass: appending the term k turns P into P k + 1, or P k - 1, and Q into Q k.
  void end(u64 a, u64 b, SeriesNode<W>& out) const override {
    LeafNumber<W> P = leaf_number(out.P), Q = leaf_number(out.Q);
    const u64 words = (b - a) * (64 / this->word_bits) + 1;
    check_end_capacity("e_Taylor_BSR_End()", P, words);
    check_end_capacity("e_Taylor_BSR_End()", Q, words);
    P.set(1);
    P.take_hash();
    Q.set(a + 1);
    Q.take_hash();
    for (u64 k = a + 2; k <= b; ++k) {
      const bool subtract = this->subtracts(a, k - 1);
      P.mul(k);
      P.add_small(1, subtract);
      P.hash = hash_mul_add(P.hash, k, subtract ? kHashModulus - 1 : 1);
      Q.mul(k);
      Q.hash = hash_mul(Q.hash, k);
    }
    finish_leaf(out.P, P, 1);
    finish_leaf(out.Q, Q, 1);
  }
};

SeriesCoefficients coefficients(bool alternating, s32 power) {
  if (power != 1 && power != -1)
    throw InvalidParametersException("e_Taylor_BigFloatR()", "Power must be 1 or -1.");
  if (power == -1 && !alternating)
    throw InvalidParametersException("e_Taylor_BigFloatR()",
                                     "Inversion not supported for non-alternating series.");
  return {alternating ? -1 : 1, 1, 1};
}

}  // namespace

template <class W>
std::unique_ptr<const Series<W>> make_e_series(bool alternating, u64 p) {
  return std::make_unique<TaylorSeries<W>>(alternating, p);
}

// The alternating series is that of 1/e.
template <class Store>
e_Taylor<Store>::e_Taylor(bool alternating, s32 power, u64 p, u64 tds)
    : power_(power),
      series_(make_e_series<W>(alternating, p + 1), coefficients(alternating, power),
              alternating ? -power : power, p + 1, tds) {}

template <class Store>
void e_Taylor<Store>::run(const RunContext& ctx, Number& out, Arena heap) const {
  ctx.status.println(power_ == 1 ? "e - exp(1)" : "e - exp(-1):");
  series_.run(ctx, out, heap);
}

template class e_Taylor<RamStore<u32>>;
template class e_Taylor<RamStore<u64>>;
template std::unique_ptr<const Series<u32>> make_e_series<u32>(bool, u64);
template std::unique_ptr<const Series<u64>> make_e_series<u64>(bool, u64);

}  // namespace orl
