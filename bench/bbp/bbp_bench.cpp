// Fractions of hexadecimal digits of Pi, one thread: terms per second of each kernel beside a plain
// Montgomery loop in 64-bit words, which works on one term at a time.
//
// bbp_bench [offset ...]; a term of Bellard's series at the middle of its range, 32 digits.

#include "bbp/bbp_sum.h"
#include "simd/target.h"
#include "support/measure.h"

namespace {

using namespace orl;

constexpr u64 kLimbs = 4, kLimbMask = (u64{1} << kBbpLimbBits) - 1;
using Limbs = std::vector<u64>;

u64 montgomery(u128 x, u64 m, u64 inverse) {
  const u64 high = static_cast<u64>(x >> 64);
  const u64 multiple = static_cast<u64>(u128{static_cast<u64>(x) * inverse} * m >> 64);
  return high >= multiple ? high - multiple : high - multiple + m;
}

u64 power_of_2(u64 exponent, u64 m) {
  u64 inverse = m;
  for (int i = 0; i < 5; ++i) inverse *= 2 - m * inverse;
  int left = std::max(58 - __builtin_clzll(exponent), 0);
  u64 x = static_cast<u64>((u128{1} << (64 + (exponent >> left))) % m);
  while (left-- > 0) {
    x = montgomery(u128{x} * x, m, inverse);
    if (exponent >> left & 1) x = 2 * x >= m ? 2 * x - m : 2 * x;
  }
  return montgomery(x, m, inverse);
}

Limbs peer_sum(const BbpTerm& term, u64 first, u64 last) {
  u64 sums[kLimbs] = {};
  for (u64 k = first; k < last; ++k) {
    const u64 m = term.a * k + term.b;
    u64 x = power_of_2(static_cast<u64>(term.c * static_cast<s64>(k) + term.d), m);
    for (u64 i = kLimbs; i-- > 0;) {
      u64 quotient, low = x << kBbpLimbBits, high = x >> (64 - kBbpLimbBits);
      asm("divq %[m]" : "=a"(quotient), "=d"(x) : "0"(low), "1"(high), [m] "r"(m) : "cc");
      sums[i] += quotient;
    }
    if (k % 4096 == 0 || k + 1 == last)
      for (u64 i = 0; i < kLimbs; ++i) {
        if (i + 1 < kLimbs) sums[i + 1] += sums[i] >> kBbpLimbBits;
        sums[i] &= kLimbMask;
      }
  }
  return {sums, sums + kLimbs};
}

void measure(u64 offset, simd::Target target) {
  const BbpTerm term{20, 9, -20, 4 * static_cast<s64>(offset) - 6, true};
  const u64 first = offset / 10, count = 4800;
  Limbs limbs;
  const auto kernel = [&] {
    limbs.assign(kLimbs, 0);
    bbp_sum(target, term, first, first + count, limbs.data(), kLimbs);
  };
  kernel();
  if (limbs != peer_sum(term, first, first + count)) {
    std::fprintf(stderr, "bbp_bench: the sums differ at offset %llu\n",
                 static_cast<unsigned long long>(offset));
    std::exit(1);
  }
  // The fastest runs: a neighbour on the machine slows either side by any factor.
  const bench::Comparison c = bench::compare(
      kernel, [&] { limbs = peer_sum(term, first, first + count); }, 1e6, 25);
  std::printf("  %-8s %22llu %12.1f %9.2f %9.2f %8.2f\n", simd::target_name(target),
              static_cast<unsigned long long>(offset), 1e3 * double(count) / c.call.low,
              c.call.low / double(count), c.peer.low / double(count), c.peer.low / c.call.low);
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<u64> offsets;
  for (int i = 1; i < argc; ++i) offsets.push_back(std::strtoull(argv[i], nullptr, 10));
  if (offsets.empty())
    offsets = {1000000, 100000000, 10000000000, 1000000000000, 50000000000000, 1000000000000000};
  bench::heading("bbp_bench", "all that this machine runs");
  std::printf("  %-8s %22s %12s %9s %9s %8s\n", "", "offset", "10^6 terms/s", "ns/term", "peer", "ratio");
  for (const simd::Target target : {simd::Target::kAvx512, simd::Target::kAvx2, simd::Target::kScalar}) {
    if (target > simd::best_target()) continue;
    for (const u64 offset : offsets) measure(offset, target);
  }
}
