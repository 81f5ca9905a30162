#include "constants/arccoth.h"

#include <bit>
#include <cmath>

#include "core/exceptions.h"
#include "splitting/leaf.h"

namespace orl {
namespace {

constexpr u64 kLeafWidth = 24;

/// x^2, once x is in range.
u64 checked_square(u64 x) {
  constexpr const char* kFunction = "Series_ArcCoth_Base()";
  if (x < 2) throw InvalidParametersException(kFunction, "Argument is too small.");
  if (x >> 32 != 0) throw InvalidParametersException(kFunction, "Argument is too large.");
  return x * x;
}

DoubleDouble ln(u64 n) { return log1p(DoubleDouble::from_u64(n - 1)); }

// P(k)/Q(k) ~ 1 / (2 y k), and the root of Q is -1/2. A term of Q has A + ln(last + 1) nats at most, that of R is shorter
// by ln y.
FactorialModel::Parameters model_of(u64 y, u64 last) {
  const DoubleDouble A = ln(y) + DoubleDouble::ln2();
  const double per_term = A.hi + std::log(static_cast<double>(last) + 1);
  return {.A = A, .B = 1, .s = 0.5, .e = -1, .ln_C = -A.hi, .R_share = 1 - ln(y).hi / per_term * (1 - 1e-9)};
}

template <class W>
class ArcCothSeries final : public GeometricSeries<W> {
 public:
  ArcCothSeries(u64 y, u64 p)
      : GeometricSeries<W>(
            common_P2B3<W>(),
            std::make_unique<FactorialModel>(model_of(y, GeometricSeries<W>::terms_for(p, ln(y)))),
            kLeafWidth, p, ln(y), false),
        y_(y) {}

  // One pass: appending the term k turns P into P y (2k + 1) + R, Q into Q y (2k + 1) and R into R (2k + 1).
  void end(u64 a, u64 b, SeriesNode<W>& out) const override {
    LeafNumber<W> P = leaf_number(out.P()), Q = leaf_number(out.Q()), R = leaf_number(out.R());
    const auto words = [&](int bits) { return (b - a) * static_cast<u64>(bits) / this->word_bits + 2; };
    const int y_bits = std::bit_width(y_), odd_bits = std::bit_width(2 * b + 1);
    const char* const function = end_case(b);
    check_end_capacity(function, P, words(y_bits + odd_bits));
    check_end_capacity(function, Q, words(y_bits + odd_bits));
    check_end_capacity(function, R, words(odd_bits));
    P.set(1);
    R.set(2 * a + 3);
    Q.set(2 * a + 3);
    Q.mul(y_);
    const bool joined = y_bits + odd_bits <= 64;
    for (u64 k = a + 2; k <= b; ++k) {
      const u64 odd = 2 * k + 1;
      P.mul(joined ? y_ * odd : y_);
      Q.mul(joined ? y_ * odd : y_);
      if (!joined) {
        P.mul(odd);
        Q.mul(odd);
      }
      P.add(R, false);
      R.mul(odd);
    }
    finish_leaf(out.P(), P);
    finish_leaf(out.Q(), Q);
    finish_leaf(out.R(), R);
  }

 private:
  const char* end_case(u64 b) const {
    if (static_cast<W>(2 * b + 1) != 2 * b + 1) return "ArcCoth_BSR_End_PQR2()";
    return static_cast<W>(y_) == y_ ? "ArcCoth_BSR_End_small()" : "ArcCoth_BSR_End_large()";
  }

  u64 y_;
};

}  // namespace

template <class W>
std::unique_ptr<const Series<W>> make_arccoth_series(u64 x, u64 p) {
  return std::make_unique<ArcCothSeries<W>>(checked_square(x), p);
}

SeriesCoefficients arccoth_coefficients(s64 c, u64 x) { return {.P = c, .Q = c, .D = x}; }

template std::unique_ptr<const Series<u32>> make_arccoth_series<u32>(u64, u64);
template std::unique_ptr<const Series<u64>> make_arccoth_series<u64>(u64, u64);

}  // namespace orl
