// The cheapest Machin-like formula of a logarithm that a short search finds.
//
// For bases of the first primes of several sizes: a chain takes the primes of n beyond the base out
// (chain.h), and what is left is a sum over the base. That part comes from a stored set of arguments first,
// which serves every number of its base, and then from a search below its cost (span_search.h). A last search
// goes over the base and the primes of the chain together. The order and the limits are fixed, so the result
// depends on n and the precision alone.
#pragma once

#include <optional>

#include "machin/formula.h"

namespace orl {

/// Sets that one search tries.
inline constexpr u64 kFormulaTries = 100000;

/// A formula of ln n that uses no x of `banned`, by rising x, for a precision of `nats`; n in [2, 2^31). Null
/// where none was found. Each of up to eight searches tries so many sets.
std::optional<MachinFormula> find_formula(u64 n, const MachinFormula& banned, double nats,
                                          u64 tries = kFormulaTries);

}  // namespace orl
