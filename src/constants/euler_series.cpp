#include "constants/euler_series.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "splitting/leaf.h"

namespace orl {
namespace {

constexpr u64 kLeafWidth = 16;
/// Bits of precision that the series have beyond what is asked of them. The largest part of the sum that is taken off
/// again, e ln 2, takes 6 of them, and the number of terms of like size the rest.
constexpr u64 kGuardBits = 64;
/// From here on 4 n passes the coefficients of a sum, and the terms of A and B pass 2^61.
constexpr u32 kLastExponent = 58;

DoubleDouble nats_of(u64 p, u32 word_bits) {
  return (DoubleDouble::from_u64(p) * DoubleDouble(word_bits) + DoubleDouble(kGuardBits)) *
         DoubleDouble::ln2();
}

/// factor 2^e.
DoubleDouble power_of_2(double factor, u32 e) {
  return DoubleDouble(std::ldexp(factor, static_cast<int>(e)));
}

/// The first k in [low, high] with reached(k), which stays true from there on; high when there is none before it.
template <class Predicate>
u64 first_of(u64 low, u64 high, const Predicate& reached) {
  while (low < high) {
    const u64 k = low + (high - low) / 2;
    if (reached(k))
      high = k;
    else
      low = k + 1;
  }
  return high;
}

/// Nats by which the term k >= n of A and B is below the largest one, which is e^(2 n).
DoubleDouble fall_of_AB(u32 e, u64 k) {
  const DoubleDouble ln_n = DoubleDouble(e) * DoubleDouble::ln2();
  return DoubleDouble(2) * (stirling(k) - DoubleDouble::from_u64(k) * ln_n) + power_of_2(2, e);
}

/// Nats by which the term k <= 2 n of C is below the first one.
DoubleDouble fall_of_C(u32 e, u64 k) {
  const DoubleDouble ln_16n = DoubleDouble(e + 4) * DoubleDouble::ln2();
  return DoubleDouble(4) * stirling(k) + DoubleDouble::from_u64(2 * k) * ln_16n -
         DoubleDouble(3) * stirling(2 * k);
}

/// How large the numbers of a range are. With k* the index of (a, b] nearest to n, in nats:
///
///   D  F(b) - F(a)     T  2 (k* - a) ln n + 2 (F(b) - F(k*))     V  their sum,     F = stirling
///
/// C has ln h more than D and V than that, T has ln(b - a) more and V as many, with h = ln((b + 1)/(a + 1)) + 1. T
/// has lost the factor N of its first term and has the bits by which its exponent is not one of whole words.
class ABModel final : public SizeModel {
 public:
  static constexpr u32 kD = 0, kC = 1, kT = 2;

  ABModel(u32 e, u32 word_bits) : n_(u64{1} << e), ln_n_(DoubleDouble(e) * DoubleDouble::ln2()) {
    const double odd_bits = static_cast<double>(word_bits) - 1 - 2 * static_cast<double>(e);
    constant_excess_ = 2 + std::max(0.0, odd_bits * DoubleDouble::ln2().hi);
  }

  DoubleDouble size(u64 a, u64 b) const override {
    const u64 turn = std::clamp(n_, a, b);
    const DoubleDouble falling = stirling(b) - stirling(turn);
    return DoubleDouble(2) * (DoubleDouble::from_u64(turn - a) * ln_n_ + falling) + stirling(b) - stirling(a);
  }
  // No range has a larger part in D than one behind n, a third; none in T than one from the first term on.
  DoubleDouble part(u32 number, DoubleDouble nats) const override {
    if (number == kD || number == kC) return nats / DoubleDouble(3) + DoubleDouble(0.1);
    if (number != kT) return nats;
    const double x = std::max(0.0, terms_of(nats.hi) * (1 - 1e-12) - 1);
    return nats - DoubleDouble(stirling_estimate(x));
  }
  DoubleDouble excess(u64 a, u64 b) const override {
    const double terms = static_cast<double>(b - a);
    const double harmonic = std::log1p(terms / (static_cast<double>(a) + 1)) + 1;
    return DoubleDouble(std::log(terms) + std::log(harmonic) + constant_excess_);
  }
  u64 midpoint(u64 a, u64 b) const override {
    const double x = static_cast<double>(a), width = static_cast<double>(b - a);
    const double from = estimate(x), half = (estimate(x + width) - from) / 2;
    // The slope rises, so Newton's iteration comes from the right after the first step.
    double t = width / 2;
    for (int i = 0; i < 8; ++i) {
      const double step = (estimate(x + t) - from - half) / slope(x + t);
      t = std::clamp(t - step, 1.0, width - 1);
      if (std::fabs(step) < 0.25) break;
    }
    return a + std::clamp<u64>(static_cast<u64>(t + 0.5), 1, b - a - 1);
  }
  // The midpoint is off by less than one term, and by the last bits of doubles of the size of V.
  DoubleDouble imbalance(u64 b) const override {
    const double x = static_cast<double>(b) + 1;
    return DoubleDouble(2 * slope(x) + 1 + 1e-14 * x * slope(x));
  }

 private:
  /// size(0, x) and what a term more adds to it, in doubles.
  double estimate(double x) const {
    const double n = static_cast<double>(n_);
    const double T =
        x <= n ? 2 * x * ln_n_.hi : 2 * (n * ln_n_.hi + stirling_estimate(x) - stirling_estimate(n));
    return T + stirling_estimate(x);
  }
  double slope(double x) const {
    const double ln_k = std::log1p(x);
    return 2 * std::max(ln_k, ln_n_.hi) + ln_k;
  }
  /// The x at which size(0, x) is `nats`.
  double terms_of(double nats) const {
    double low = 0, high = nats / (2 * ln_n_.hi);  // where D would be 1
    for (int i = 0; i < 64; ++i) {
      const double x = (low + high) / 2;
      (estimate(x) < nats ? low : high) = x;
    }
    return low;
  }

  u64 n_;
  DoubleDouble ln_n_;
  double constant_excess_;
};

template <class W>
class SeriesAB final : public Series<W> {
 public:
  using Kind = BrentMcMillanAB<W>;

  SeriesAB(u32 e, u64 p)
      : Series<W>(brent_mcmillan_AB<W>(), std::make_unique<ABModel>(e, Series<W>::word_bits), kLeafWidth,
                  terms_for(e, nats_of(p, Series<W>::word_bits)), false),
        e_(e),
        nats_(nats_of(p, Series<W>::word_bits)) {}

  // Up to n the terms rise, and what is behind a is the sum itself. From there on they fall faster and faster.
  DoubleDouble remaining(u64 a) const override {
    if (a >> e_ == 0) return nats_;
    return max(nats_ - fall_of_AB(e_, a), DoubleDouble(0));
  }

  // One pass: appending the term k turns C into C k + D, D into D k, T into T k^2 + 2^s and V into V k^3 + 2^s C, where
  // s = 2 e (k - 1) less the whole words that the exponent has.
  void end(u64 a, u64 b, SeriesNode<W>& out) const override {
    LeafNumber<W> D = leaf_number(out[Kind::kD]), C = leaf_number(out[Kind::kC]),
                  T = leaf_number(out[Kind::kT]), V = leaf_number(out[Kind::kV]);
    const u64 first = 2 * u64{e_} * a, words = first / this->word_bits, bits = first % this->word_bits;
    check_capacity(b - a, b, bits, out);
    W one_word[2];
    LeafNumber<W> one{one_word, 2};
    one.set(1);
    D.set(a + 1);
    C.set(1);
    T.set(u64{1} << bits);
    V.set(u64{1} << bits);
    for (u64 k = a + 2, shift = bits + 2 * e_; k <= b; ++k, shift += 2 * e_) {
      C.mul(k);
      C.add(D, false);
      D.mul(k);
      V.mul(k);
      for (LeafNumber<W>* x : {&T, &V}) {
        if (k >> 32 == 0) {
          x->mul(k * k);
        } else {
          x->mul(k);
          x->mul(k);
        }
      }
      T.add_shifted(one, shift);
      V.add_shifted(C, shift);
    }
    finish_leaf(out[Kind::kD], D);
    finish_leaf(out[Kind::kC], C);
    for (const auto& [i, x] : {std::pair{Kind::kT, &T}, {Kind::kV, &V}}) {
      finish_leaf(out[i], *x);
      out[i].exp = static_cast<s64>(words);
      out[i].hash = hash_mul(x->hash, hash_word_pow<W>(out[i].exp));
    }
  }

 private:
  static u64 terms_for(u32 e, DoubleDouble nats) {
    u64 enough = u64{1} << e;
    while (fall_of_AB(e, enough) < nats) enough *= 2;
    return first_of(std::max(enough / 2, u64{1} << e), enough,
                    [&](u64 k) { return fall_of_AB(e, k) >= nats; });
  }

  void check_capacity(u64 terms, u64 last, u64 bits, const SeriesNode<W>& out) const {
    const u64 bits_of_D = terms * static_cast<u64>(std::bit_width(last));
    const u64 bits_of_sum = static_cast<u64>(std::bit_width(terms));
    const u64 factor = std::max<u64>(2 * e_, 2 * static_cast<u64>(std::bit_width(last)));
    const u64 bits_of_T = bits + (terms - 1) * factor + bits_of_sum;
    const auto check = [&](u32 i, const char* function, u64 number_bits) {
      check_end_capacity(function, leaf_number(out[i]), number_bits / this->word_bits + 2);
    };
    check(Kind::kD, "seriesN_BSR_End_PQ1()", bits_of_D);
    check(Kind::kC, "seriesN_BSR_End_PQ1()", bits_of_D + bits_of_sum);
    check(Kind::kT, "seriesA_BSR_End_PQ1()", bits_of_T);
    check(Kind::kV, "seriesA_BSR_End_PQ1()", bits_of_T + bits_of_D);
  }

  u32 e_;
  DoubleDouble nats_;
};

/// R(k) = (2k - 1)^3, Q(k) = 32 N k. The fractions R/Q rise from 1/Q to 1 at k = 2 n, so Q is the longest number but
/// for P, which may have a factor of as many terms.
TermSeries terms_of_C(u32 e) {
  return {.name = "EulerGamma_BMR_seriesC", .Q = {32, {{1, 0}, {0, s64{1} << e, 2}}}, .R = {1, {{2, -1, 3}}}};
}
FactorialModel::Parameters sizes_of_C(u32 e) {
  return {
      .A = DoubleDouble(2 * e + 5) * DoubleDouble::ln2(), .B = 1, .ln_C = (e + 1) * DoubleDouble::ln2().hi};
}

template <class W>
class SeriesC final : public Series<W> {
 public:
  SeriesC(u32 e, DoubleDouble nats, u64 terms) : SeriesC(e, nats, terms, TermLeaf<W>(terms_of_C(e), terms)) {}

  DoubleDouble remaining(u64 a) const override { return max(nats_ - fall_of_C(e_, a), DoubleDouble(0)); }
  void end(u64 a, u64 b, SeriesNode<W>& out) const override { leaf_.end(*this, a, b, out); }

 private:
  SeriesC(u32 e, DoubleDouble nats, u64 terms, TermLeaf<W> leaf)
      : Series<W>(common_P2B3<W>(), std::make_unique<FactorialModel>(sizes_of_C(e)), leaf.width(), terms,
                  false),
        e_(e),
        nats_(nats),
        leaf_(std::move(leaf)) {}

  u32 e_;
  DoubleDouble nats_;
  TermLeaf<W> leaf_;
};

/// Nats to which C is needed.
DoubleDouble nats_of_C(u32 e, u64 p, u32 word_bits) { return nats_of(p, word_bits) - power_of_2(4, e); }

}  // namespace

u32 euler_exponent(EulerVariant variant, u64 p, u32 word_bits) {
  const bool refined = variant == EulerVariant::kRefined;
  const DoubleDouble needed =
      nats_of(p, word_bits) +
      DoubleDouble(refined ? 3.17805383034794562 : 1.14472988584940017);  // ln 24, ln Pi
  u32 e = 1;
  while (power_of_2(refined ? 8 : 4, e) < needed) ++e;
  return e;
}

std::string refused_euler_exponent(EulerVariant variant, u64 e, u64 p, u32 word_bits) {
  const u32 smallest = euler_exponent(variant, p, word_bits);
  const u32 largest = std::min(std::max(smallest + 4, 22u), kLastExponent);
  const auto refusal = [&](const char* what, const char* bound, u32 k) {
    return "k = " + std::to_string(e) + " is too " + what + " for this precision. It must be at " + bound +
           " " + std::to_string(k) + ".";
  };
  if (e < smallest) return refusal("small", "least", smallest);
  if (e > largest) return refusal("large", "most", largest);
  return {};
}

template <class W>
std::unique_ptr<const Series<W>> make_euler_AB(u32 e, u64 p) {
  return std::make_unique<SeriesAB<W>>(e, p);
}

template <class W>
u64 euler_C_words(u32 e, u64 p) {
  const DoubleDouble nats = nats_of_C(e, p, 8 * sizeof(W));
  return nats <= DoubleDouble(0) ? 0 : nats_to_words<W>(nats);
}

template <class W>
std::unique_ptr<const Series<W>> make_euler_C(u32 e, u64 p) {
  const DoubleDouble nats = nats_of_C(e, p, 8 * sizeof(W));
  const u64 last = (u64{2} << e) - 1;
  const u64 terms = first_of(1, last, [&](u64 k) { return fall_of_C(e, k) >= nats; });
  return std::make_unique<SeriesC<W>>(e, nats, terms);
}

#define ORVANE_INSTANTIATE(W)                                           \
  template std::unique_ptr<const Series<W>> make_euler_AB<W>(u32, u64); \
  template u64 euler_C_words<W>(u32, u64);                              \
  template std::unique_ptr<const Series<W>> make_euler_C<W>(u32, u64);
ORVANE_INSTANTIATE(u32)
ORVANE_INSTANTIATE(u64)
#undef ORVANE_INSTANTIATE

}  // namespace orl
