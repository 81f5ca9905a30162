#include "machin/primes.h"

#include <algorithm>

namespace orl {
namespace {

constexpr u64 kRange = u64{1} << 32;

// The primes below 2^16, which suffice for any number up to 2^32.
const std::vector<u64>& small_primes() {
  static const std::vector<u64> primes = [] {
    std::vector<bool> composite(1 << 16);
    std::vector<u64> found;
    for (u64 p = 2; p < composite.size(); ++p) {
      if (composite[p]) continue;
      found.push_back(p);
      for (u64 multiple = p * p; multiple < composite.size(); multiple += p) composite[multiple] = true;
    }
    return found;
  }();
  return primes;
}

}  // namespace

std::vector<PrimePower> factorise(u64 n) {
  std::vector<PrimePower> factors;
  for (const u64 p : small_primes()) {
    if (p * p > n) break;
    u32 exponent = 0;
    for (; n % p == 0; n /= p) ++exponent;
    if (exponent) factors.push_back({p, exponent});
  }
  if (n > 1) factors.push_back({n, 1});
  return factors;
}

u64 cofactor(u64 n, std::span<const u64> primes) {
  for (const u64 p : primes)
    while (n % p == 0) n /= p;
  return n;
}

std::vector<u64> smooth_numbers(std::span<const u64> primes, u64 limit) {
  std::vector<u64> numbers{1};
  for (const u64 p : primes) {
    // Merges the numbers without p with p times what has been merged so far, which is never read past its
    // end.
    std::vector<u64> merged{1};
    u64 without = 1, with = 0;
    for (;;) {
      const u64 multiple = merged[with] * p;
      if (without < numbers.size() && numbers[without] < multiple) {
        merged.push_back(numbers[without++]);
      } else if (multiple <= limit) {
        merged.push_back(multiple);
        ++with;
      } else if (without == numbers.size()) {
        break;
      } else {
        merged.push_back(numbers[without++]);
      }
    }
    numbers = std::move(merged);
  }
  return numbers;
}

std::vector<u64> smooth_arguments(std::span<const u64> primes) {
  std::vector<u64> arguments;
  // An odd x is 2a + 1, and (x + 1)/(x - 1) = (a + 1)/a; an even one lies between two odd numbers.
  const std::vector<u64> numbers = smooth_numbers(primes, kRange / 2);
  for (u64 i = 1; i < numbers.size(); ++i)
    if (numbers[i] == numbers[i - 1] + 1) arguments.push_back(2 * numbers[i] - 1);
  std::vector<u64> odd(primes.begin(), primes.end());
  std::erase(odd, 2);
  const std::vector<u64> odd_numbers = smooth_numbers(odd, kRange - 1);
  for (u64 i = 1; i < odd_numbers.size(); ++i)
    if (odd_numbers[i] == odd_numbers[i - 1] + 2) arguments.push_back(odd_numbers[i] - 1);
  std::sort(arguments.begin(), arguments.end());
  return arguments;
}

}  // namespace orl
