// Formulas that are better than a short search finds at once, and sets of arguments that serve many numbers.
#pragma once

#include <span>

#include "machin/formula.h"

namespace orl {

/// The formulas of one logarithm: two that share no series, the cheaper first.
struct LogFormulas {
  MachinFormula primary;
  MachinFormula secondary;
};

/// A stored number with its formulas.
struct StoredLogFormulas {
  u64 n;
  LogFormulas formulas;
};
/// By rising n, the primes below 20 and 10: the cheapest at 10^9 digits that a search 30 times as long finds,
/// as `bench/machin/log_formulas_bench` prints them with 3000000 tries. That of Log(2): P. Sebah, 1997.
std::span<const StoredLogFormulas> stored_log_formulas();

/// Sets of x for the first `primes` primes as a base, cheapest first: each gives the logarithm of every
/// number smooth over the base with integer coefficients, since twice the inverse of the matrix of its
/// vectors is one of integers. Those of one base share no x. Empty for other sizes than 4, 5, 6 and 8.
std::span<const std::span<const u64>> argument_sets(u64 primes);

}  // namespace orl
