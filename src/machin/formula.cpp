#include "machin/formula.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <map>

#include "machin/primes.h"
#include "splitting/double_double.h"

namespace orl {
namespace {

using Exponents = std::map<u64, s128>;

// exponents += times * those of n.
void add_factors(Exponents& exponents, u64 n, s128 times) {
  for (const PrimePower& factor : factorise(n)) exponents[factor.prime] += times * factor.exponent;
}

bool is_in_range(const MachinTerm& term) {
  return term.coefficient != 0 && std::abs(term.coefficient) <= kMaxMachinCoefficient && term.x >= 2 &&
         term.x <= kMaxArcCothArgument;
}

// sum 1 / ((2k + 1) x^(2k + 1)), to the last bit of a double-double.
DoubleDouble arccoth(u64 x) {
  const DoubleDouble inverse = DoubleDouble(1) / DoubleDouble::from_u64(x), square = inverse * inverse;
  DoubleDouble sum, power = inverse;
  for (double k = 1; power.hi > inverse.hi * 0x1p-110; k += 2) {
    sum = sum + power / DoubleDouble(k);
    power = power * square;
  }
  return sum;
}

}  // namespace

std::string to_string(const MachinTerm& term) {
  return std::to_string(term.coefficient) + " ArcCoth( " + std::to_string(term.x) + " )";
}

std::string to_string(const MachinFormula& formula, u64 n) {
  std::string text = "Log(" + std::to_string(n) + ") =";
  for (const MachinTerm& term : formula) {
    if (&term == &formula.front())
      text += " " + to_string(term);
    else
      text +=
          (term.coefficient < 0 ? " - " : " + ") + to_string(MachinTerm{std::abs(term.coefficient), term.x});
  }
  return text;
}

double arccoth_cost(u64 x, double nats) {
  const double log_square = 2 * std::log(static_cast<double>(x));
  const double terms = nats / log_square;
  return (terms * (log_square + std::log(2.0)) + std::lgamma(terms + 1)) / nats;
}

double cost(const MachinFormula& formula, double nats) {
  double sum = 0;
  for (const MachinTerm& term : formula) sum += arccoth_cost(term.x, nats);
  return sum;
}

bool is_proved(const MachinFormula& formula, u64 n) {
  if (n < 2 || n > kMaxLogArgument) return false;
  Exponents exponents;
  add_factors(exponents, n, -2);
  for (const MachinTerm& term : formula) {
    const auto same_x = [&](const MachinTerm& other) { return other.x == term.x; };
    if (!is_in_range(term) || std::count_if(formula.begin(), formula.end(), same_x) != 1) return false;
    add_factors(exponents, term.x + 1, term.coefficient);
    add_factors(exponents, term.x - 1, -s128{term.coefficient});
  }
  return std::all_of(exponents.begin(), exponents.end(), [](const auto& entry) { return entry.second == 0; });
}

bool agrees_with_log(const MachinFormula& formula, u64 n) {
  const DoubleDouble log = log1p(DoubleDouble::from_u64(n - 1));
  DoubleDouble sum;
  double magnitudes = log.hi;
  for (const MachinTerm& term : formula) {
    const DoubleDouble value = DoubleDouble(static_cast<double>(term.coefficient)) * arccoth(term.x);
    sum = sum + value;
    magnitudes += std::fabs(value.hi);
  }
  return std::fabs((sum - log).hi) <= magnitudes * 0x1p-90;
}

bool has_series(const MachinFormula& formula, u64 x) {
  return std::any_of(formula.begin(), formula.end(), [x](const MachinTerm& term) { return term.x == x; });
}

bool share_no_series(const MachinFormula& a, const MachinFormula& b) {
  return std::none_of(a.begin(), a.end(), [&](const MachinTerm& term) { return has_series(b, term.x); });
}

}  // namespace orl
