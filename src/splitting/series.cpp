#include "splitting/series.h"

#include <algorithm>
#include <cmath>

namespace orl {
namespace {

// Above this the recursion splits by cost, below it by count.
constexpr u64 kCountedRange = 100;

template <class W>
const DoubleDouble& words_per_nat() {
  static const DoubleDouble value =
      DoubleDouble::parse(sizeof(W) == 8 ? "0.02254211001389005323999882314065456464729"
                                         : "0.04508422002778010647999764628130912929458");
  return value;
}

template <class W>
u64 whole_words(DoubleDouble nats) {
  return (nats * words_per_nat<W>()).floor_u64() + 1;
}

// stirling() and its slope, log1p, in doubles: enough to halve a range to within a term.
double stirling_estimate(double x) { return (x + 0.5) * std::log1p(x) - x; }

}  // namespace

const char* kind_name(SeriesKind kind) {
  return kind == SeriesKind::kCommonP2B3 ? "CommonP2B3" : "Hyperdescent";
}

DoubleDouble stirling(u64 x) {
  static const DoubleDouble offset =
      DoubleDouble::parse("0.081061466795327258219670263594382360138602526362217");
  const DoubleDouble y = DoubleDouble::from_u64(x);
  return (y + DoubleDouble(0.5)) * log1p(y) - y - offset;
}

template <class W>
DoubleDouble words_to_nats(u64 p) {
  return DoubleDouble::from_u64(p) / words_per_nat<W>();
}

template <class W>
u64 Series<W>::terms_for(u64 p, DoubleDouble rate) {
  return (DoubleDouble::from_u64(p) * DoubleDouble(word_bits) * DoubleDouble::ln2() / rate +
          DoubleDouble(1.5))
      .rint_u64();
}

template <class W>
DoubleDouble Series<W>::remaining(u64 a) const {
  return DoubleDouble::from_u64(terms_ - a) * model_.rate;
}

template <class W>
u64 Series<W>::remaining_words(u64 a) const {
  return (remaining(a) * words_per_nat<W>()).rint_u64() + 1;
}

template <class W>
DoubleDouble Series<W>::size(u64 a, u64 b) const {
  return model_.A * DoubleDouble::from_u64(b - a) + DoubleDouble(model_.B) * (stirling(b) - stirling(a));
}

template <class W>
DoubleDouble Series<W>::excess(u64 a, u64 b) const {
  const double roots =
      std::max(0.0, model_.s) * std::log1p(static_cast<double>(b - a) / (static_cast<double>(a) + 1));
  const double lead = std::max(0.0, model_.e * std::log(static_cast<double>(b)) + model_.ln_C);
  return DoubleDouble(roots + lead + 1);
}

template <class W>
u64 Series<W>::bound_words(u64 a, u64 b) const {
  return whole_words<W>(size(a, b) + excess(a, b));
}

template <class W>
DoubleDouble Series<W>::imbalance(u64 b) const {
  // The midpoint is off by less than one term, and by the last bits of a double in a sum of the size of F(b).
  const double x = static_cast<double>(b) + 1;
  return model_.A * DoubleDouble(2) + DoubleDouble(2 * model_.B * std::log(x) + 1 + 1e-14 * x * std::log(x));
}

template <class W>
u64 Series<W>::product_words(DoubleDouble nats, u64 b) const {
  return whole_words<W>(nats + DoubleDouble(2) * excess(0, b)) + 1;
}

template <class W>
u64 Series<W>::scratch_words(DoubleDouble nats, u64 a, u64 b) const {
  // Each level adds a left number that may be longer than its model by the excess, a word for rounding up and
  // 7 for the right half's start. Levels: while a node has more terms than kCountedRange, it is at least as
  // large as the first such range and its size is halved; then five levels down to a leaf.
  const double top = nats.to_double();
  const double off = imbalance(b).to_double();
  const double smallest = b - a > kCountedRange ? size(a, a + kCountedRange + 1).to_double() : top;
  u64 levels = 6;
  for (double d = top; b - a > kCountedRange && d + off >= smallest && levels < 128; d = d / 2 + off) {
    ++levels;
    if (d / 2 + off >= d) break;
  }
  const u64 per_level = 9 + whole_words<W>(excess(0, b));
  return whole_words<W>(nats + excess(0, b)) + per_level * levels;
}

template <class W>
u64 Series<W>::scratch_words(u64 a, u64 b) const {
  return scratch_words(size(a, b), a, b);
}

template <class W>
u64 Series<W>::midpoint(u64 a, u64 b) const {
  // Newton's iteration for size(a, m) = size(m, b), whose left side grows by A + B ln m a term; the slope
  // rises, so it comes from the right after the first step. Doubles are enough: see imbalance().
  const double x = static_cast<double>(a);
  const double width = static_cast<double>(b - a);
  const double A = model_.A.hi, B = model_.B;
  const double start = stirling_estimate(x);
  const double half = (A * width + B * (stirling_estimate(x + width) - start)) / 2;
  double t = width / 2;
  for (int i = 0; i < 8; ++i) {
    const double surplus = A * t + B * (stirling_estimate(x + t) - start) - half;
    const double step = surplus / (A + B * std::log1p(x + t));
    t = std::clamp(t - step, 1.0, width - 1);
    if (std::fabs(step) < 0.25) break;
  }
  return a + std::clamp<u64>(static_cast<u64>(t + 0.5), 1, b - a - 1);
}

template class Series<u32>;
template class Series<u64>;
template DoubleDouble words_to_nats<u32>(u64);
template DoubleDouble words_to_nats<u64>(u64);

}  // namespace orl
