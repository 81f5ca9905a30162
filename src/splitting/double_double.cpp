#include "splitting/double_double.h"

#include <cmath>

#include "core/exceptions.h"

namespace orl {
namespace {

// a + b exactly; no order of magnitudes is asked for (Knuth).
DoubleDouble two_sum(double a, double b) {
  const double s = a + b;
  const double t = s - a;
  return {s, (a - (s - t)) + (b - t)};
}

// two_sum() for |a| >= |b|.
DoubleDouble quick_two_sum(double a, double b) {
  const double s = a + b;
  return {s, b - (s - a)};
}

// a * b exactly by splitting each into halves of 26 bits; |a|, |b| below 2^970.
DoubleDouble two_product(double a, double b) {
  constexpr double kSplit = 134217729.0;  // 2^27 + 1
  const double ta = kSplit * a, a1 = ta - (ta - a), a2 = a - a1;
  const double tb = kSplit * b, b1 = tb - (tb - b), b2 = b - b1;
  const double p = a * b;
  return {p, ((a1 * b1 - p) + a1 * b2 + a2 * b1) + a2 * b2};
}

DoubleDouble scaled(DoubleDouble x, int exponent) {
  return {std::ldexp(x.hi, exponent), std::ldexp(x.lo, exponent)};
}

}  // namespace

DoubleDouble DoubleDouble::from_u64(u64 n) {
  // Each half is exact in a double, and so is their sum in two.
  return two_sum(static_cast<double>(n >> 32) * 4294967296.0, static_cast<double>(n & 0xffffffff));
}

DoubleDouble DoubleDouble::parse(std::string_view text) {
  DoubleDouble value, scale = 1;
  const bool negative = !text.empty() && text[0] == '-';
  bool point = false, digits = false;
  for (char c : text.substr(negative)) {
    if (c == '.' && !point) {
      point = true;
      continue;
    }
    if (c < '0' || c > '9') internal_error("DoubleDouble::parse()", "Not a decimal number.");
    digits = true;
    value = value * 10.0 + DoubleDouble(c - '0');
    if (point) scale = scale * 10.0;
  }
  if (!digits) internal_error("DoubleDouble::parse()", "Not a decimal number.");
  value = value / scale;
  return negative ? -value : value;
}

u64 DoubleDouble::rint_u64() const {
  const auto high = static_cast<u64>(std::rint(hi));
  return high + static_cast<u64>(static_cast<s64>(std::rint(lo)));
}

u64 DoubleDouble::floor_u64() const {
  const double high = std::floor(hi);
  const double rest = std::floor((hi - high) + lo);
  return static_cast<u64>(high) + static_cast<u64>(static_cast<s64>(rest));
}

const DoubleDouble& DoubleDouble::ln2() {
  static const DoubleDouble value = parse("0.6931471805599453094172321214581765680755");
  return value;
}

DoubleDouble operator+(DoubleDouble a, DoubleDouble b) {
  const DoubleDouble s = two_sum(a.hi, b.hi);
  const DoubleDouble t = two_sum(a.lo, b.lo);
  const DoubleDouble u = quick_two_sum(s.hi, s.lo + t.hi);
  return quick_two_sum(u.hi, u.lo + t.lo);
}

DoubleDouble operator-(DoubleDouble a, DoubleDouble b) { return a + -b; }

DoubleDouble operator*(DoubleDouble a, DoubleDouble b) {
  const DoubleDouble p = two_product(a.hi, b.hi);
  return quick_two_sum(p.hi, p.lo + (a.hi * b.lo + a.lo * b.hi));
}

DoubleDouble operator/(DoubleDouble a, DoubleDouble b) {
  const double q1 = a.hi / b.hi;
  DoubleDouble r = a - b * DoubleDouble(q1);
  const double q2 = r.hi / b.hi;
  r = r - b * DoubleDouble(q2);
  return quick_two_sum(q1, q2) + DoubleDouble(r.hi / b.hi);
}

DoubleDouble exp(DoubleDouble x) {
  // x = k ln 2 + 512 r, |r| < 0.0007: nine terms of the series of e^r - 1 leave 2^-110, and nine squarings of
  // 1 + s in the form s = 2s + s^2 lose none of it.
  const double k = std::rint(x.hi / DoubleDouble::ln2().hi);
  const DoubleDouble r = scaled(x - DoubleDouble::ln2() * DoubleDouble(k), -9);
  DoubleDouble s, power = 1;
  for (int n = 1; n <= 9; ++n) {
    power = power * r / DoubleDouble(n);
    s = s + power;
  }
  for (int i = 0; i < 9; ++i) s = s * DoubleDouble(2) + s * s;
  return scaled(s + DoubleDouble(1), static_cast<int>(k));
}

DoubleDouble log1p(DoubleDouble x) {
  // One Newton step on e^y = 1 + x from a double: the error squares.
  const double y = std::log1p(x.hi);
  return DoubleDouble(y) + ((x + DoubleDouble(1)) * exp(DoubleDouble(-y)) - DoubleDouble(1));
}

}  // namespace orl
