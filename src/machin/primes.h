// Primes, factors, and numbers all of whose primes belong to a given set.
#pragma once

#include <span>
#include <vector>

#include "core/types.h"

namespace orl {

/// prime^exponent, exponent >= 1.
struct PrimePower {
  u64 prime;
  u32 exponent;
};
/// Rising primes; none for 1. n lies in [1, 2^32]. By trial division.
std::vector<PrimePower> factorise(u64 n);

/// All numbers up to `limit`, which is at most 2^32, that have no other primes than those given; rising, from
/// 1.
std::vector<u64> smooth_numbers(std::span<const u64> primes, u64 limit);

/// All x in [2, 2^32) for which x^2 - 1 has no other primes than those given, which hold 2; rising.
std::vector<u64> smooth_arguments(std::span<const u64> primes);

/// Divides n by the primes as often as it goes.
u64 cofactor(u64 n, std::span<const u64> primes);

}  // namespace orl
