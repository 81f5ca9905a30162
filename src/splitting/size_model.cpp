#include "splitting/size_model.h"

#include <algorithm>
#include <cmath>

#include "splitting/node.h"

namespace orl {
namespace {

template <class W>
const DoubleDouble& words_per_nat() {
  static const DoubleDouble value =
      DoubleDouble::parse(sizeof(W) == 8 ? "0.02254211001389005323999882314065456464729"
                                         : "0.04508422002778010647999764628130912929458");
  return value;
}

}  // namespace

double stirling_estimate(double x) { return (x + 0.5) * std::log1p(x) - x; }

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
u64 nats_to_words(DoubleDouble nats) {
  return (nats * words_per_nat<W>()).floor_u64() + 1;
}

template <class W>
u64 nats_to_words_rounded(DoubleDouble nats) {
  return (nats * words_per_nat<W>()).rint_u64();
}

DoubleDouble FactorialModel::size(u64 a, u64 b) const {
  return of_.A * DoubleDouble::from_u64(b - a) + DoubleDouble(of_.B) * (stirling(b) - stirling(a));
}

DoubleDouble FactorialModel::part(u32 number, DoubleDouble nats) const {
  return number == SeriesNode<u64>::kR ? nats * DoubleDouble(of_.R_share) : nats;
}

DoubleDouble FactorialModel::excess(u64 a, u64 b) const {
  const double roots =
      std::max(0.0, of_.s) * std::log1p(static_cast<double>(b - a) / (static_cast<double>(a) + 1));
  const double lead = std::max(0.0, of_.e * std::log(static_cast<double>(b)) + of_.ln_C);
  return DoubleDouble(roots + lead + 1);
}

DoubleDouble FactorialModel::imbalance(u64 b) const {
  // The midpoint is off by less than one term, and by the last bits of a double in a sum of the size of F(b).
  const double x = static_cast<double>(b) + 1;
  return of_.A * DoubleDouble(2) + DoubleDouble(2 * of_.B * std::log(x) + 1 + 1e-14 * x * std::log(x));
}

u64 FactorialModel::midpoint(u64 a, u64 b) const {
  // Newton's iteration for size(a, m) = size(m, b), whose left side grows by A + B ln m per term; the slope rises, so
  // it comes from the right after the first step. Doubles are enough: see imbalance().
  const double x = static_cast<double>(a);
  const double width = static_cast<double>(b - a);
  const double A = of_.A.hi, B = of_.B;
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

template DoubleDouble words_to_nats<u32>(u64);
template DoubleDouble words_to_nats<u64>(u64);
template u64 nats_to_words<u32>(DoubleDouble);
template u64 nats_to_words<u64>(DoubleDouble);
template u64 nats_to_words_rounded<u32>(DoubleDouble);
template u64 nats_to_words_rounded<u64>(DoubleDouble);

}  // namespace orl
